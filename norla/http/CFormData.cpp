#include "norla/http/CFormData.h"

#include "kx/base/CInvalidArgError.h"
#include "kx/streams/CBufferStream.h"
#include "kx/text/CStringFormat.h"
#include "kx/text/numbers.h"
#include "norla/http/CFormFile.h"

#include <algorithm>
#include <random>
#include <string_view>
#include <utility>

namespace norla {

namespace {

kx::String newBoundary()
{
    std::random_device random;
    const auto next = [&random] { return static_cast<unsigned>(random()); };
    const unsigned first = next();
    const unsigned second = next();
    const unsigned third = next();
    return kx::CStringFormat("--------------------%08x%08x%08x%08x", first, second, third, next());
}

/// @param what the name is, for the error
std::string escapedName(const kx::String& name, const kx::String& what)
{
    if (name.find(L'\0') != kx::String::npos)
        throw kx::CInvalidArgError("the " + what + " of a part contains a zero character", "CFormData::addPart");
    return name.replaceAll("\"", "%22").replaceAll("\r", "%0D").replaceAll("\n", "%0A").toUTF8();
}

std::string checkedType(const kx::String& contentType)
{
    const bool isVisible
        = std::all_of(contentType.begin(), contentType.end(), [](wchar_t c) { return c >= L' ' && c <= L'~'; });
    if (!isVisible)
        throw kx::CInvalidArgError(
            "the content type of a part holds something else than visible ASCII", "CFormData::addPart");
    return contentType.toLatin1();
}

kx::P<kx::TBuffer<unsigned char>> bufferOf(std::string_view bytes)
{
    auto buffer = kx::newObj<kx::TBuffer<unsigned char>>();
    buffer->append(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
    return buffer;
}

/// Reads a buffer of the caller's, which it keeps.
class CKeptBufferStream : public kx::CBufferStream {
public:
    explicit CKeptBufferStream(const CFormData::Buffer& buffer)
        : kx::CBufferStream(buffer)
        , m_buffer(&buffer)
    {
    }

private:
    const kx::PC<CFormData::Buffer> m_buffer;
};

} // namespace

/// Bytes in a row, of which the form consists: a part's head, what it holds, the end.
struct CFormData::CSegment {
    kx::P<kx::IInStream> stream;
    long long length = -1;
    kx::P<CFormFile> file = {}; // the same as the stream, where it is one
    kx::String partName = {};
};

CFormData::CFormData()
    : m_boundary(newBoundary())
{
    addBytes("--" + m_boundary.toLatin1() + "--\r\n");
}

CFormData::~CFormData() = default;

kx::String CFormData::getContentType() const
{
    return "multipart/form-data; boundary=" + m_boundary;
}

void CFormData::addText(const kx::String& name, const kx::String& text, const CFormPart& part)
{
    const auto buffer = bufferOf(text.toUTF8());
    addPart(name, part, {kx::newObj<kx::CBufferStream>(buffer), static_cast<long long>(buffer->getSize())});
}

void CFormData::addBuffer(const kx::String& name, const Buffer* buffer, const CFormPart& part)
{
    if (!buffer)
        throw kx::CInvalidArgError("buffer is null", "CFormData::addBuffer");
    addPart(name, part, {kx::newObj<CKeptBufferStream>(*buffer), static_cast<long long>(buffer->getSize())});
}

void CFormData::addStream(const kx::String& name, kx::IInStream* stream, const CFormPart& part)
{
    if (!stream)
        throw kx::CInvalidArgError("stream is null", "CFormData::addStream");
    addPart(name, part, {stream, stream->getLength()});
}

void CFormData::addFile(const kx::String& name, const Path& path, const CFormPart& part)
{
    const auto file = kx::newObj<CFormFile>(path);
    CFormPart described = part;
    if (described.fileName.isEmpty()) // what has no UTF-8 form cannot be sent
        described.fileName = kx::String::fromUTF8(path.getFileName().toDisplayUTF8());
    if (described.contentType.isEmpty())
        described.contentType = "application/octet-stream";
    addPart(name, described, {file, file->getLength(), file});
}

// The line end before a boundary belongs to the boundary, not to the part (RFC 2046 section 5.1.1).
void CFormData::addPart(const kx::String& name, const CFormPart& part, CSegment content)
{
    const std::string delimiter = (m_segments.size() == 1 ? "--" : "\r\n--") + m_boundary.toLatin1();
    std::string head = delimiter + "\r\nContent-Disposition: form-data; name=\"" + escapedName(name, "name") + '"';
    if (!part.fileName.isEmpty())
        head += "; filename=\"" + escapedName(part.fileName, "file name") + '"';
    if (!part.contentType.isEmpty())
        head += "\r\nContent-Type: " + checkedType(part.contentType);
    content.partName = name;
    m_segments.pop_back(); // the end
    addBytes(head + "\r\n\r\n");
    m_segments.push_back(std::move(content));
    addBytes("\r\n--" + m_boundary.toLatin1() + "--\r\n");
}

void CFormData::addBytes(const std::string& bytes)
{
    m_segments.push_back({kx::newObj<kx::CBufferStream>(bufferOf(bytes)), static_cast<long long>(bytes.size())});
}

int CFormData::read(unsigned char* buffer, int size, const HeaderMap& /*responseHeaders*/)
{
    int done = 0;
    while (done < size && m_current < m_segments.size()) {
        const int count = readSegment(m_segments[m_current], buffer + done, size - done);
        if (count == 0)
            goTo(m_current + 1, 0);
        done += count;
    }
    return done;
}

/// @return 0 at its end
int CFormData::readSegment(CSegment& segment, unsigned char* buffer, int size)
{
    if (!m_hasBegun && segment.stream->getPosition() != m_offset)
        segment.stream->seek(m_offset);
    m_hasBegun = true;
    const long long left = segment.length == -1 ? size : segment.length - m_offset;
    const int count = left > 0 ? segment.stream->read(buffer, static_cast<int>(std::min<long long>(size, left))) : 0;
    m_offset += count;
    m_position += count;
    if (count == 0)
        requireWhole(segment);
    return count;
}

void CFormData::requireWhole(CSegment& segment) const
{
    if (segment.length != -1 && (m_offset != segment.length || segment.stream->getLength() != segment.length))
        throw kx::CError("The part '" + segment.partName + "' of the form has another length than when it was added, "
            + kx::toString(segment.length) + " bytes.");
    if (segment.file)
        segment.file->finish();
}

long long CFormData::getLength()
{
    long long length = 0;
    for (const CSegment& segment : m_segments) {
        if (segment.length == -1)
            return -1;
        length += segment.length;
    }
    return length;
}

void CFormData::seek(long long position)
{
    long long left = position;
    size_t segment = 0;
    while (left > 0 && segment < m_segments.size() && m_segments[segment].length != -1
        && left >= m_segments[segment].length)
        left -= m_segments[segment++].length;
    if (left != 0 && (left < 0 || segment == m_segments.size() || m_segments[segment].length == -1))
        throw kx::CError("There is no known position " + kx::toString(position) + " in the form.");
    goTo(segment, left);
    m_position = position;
}

void CFormData::rewindParts()
{
    for (CSegment& segment : m_segments) {
        if (segment.stream->getPosition() != 0)
            segment.stream->seek(0);
    }
    seek(0);
}

void CFormData::goTo(size_t segment, long long offset)
{
    m_current = segment;
    m_offset = offset;
    m_hasBegun = false;
}

} // namespace norla
