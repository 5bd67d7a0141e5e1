#include "norla/core/CFileSink.h"

#include "kx/text/numbers.h"
#include "norla/http/CHTTPContentRange.h"

#include <algorithm>
#include <utility>

namespace norla {

namespace {

constexpr int partialContent = 206;
constexpr int firstExplained = 300; // status whose body is not the file

kx::COutputFile::COptions optionsFor(CFileSink::Older older)
{
    using Start = kx::COutputFile::Start;
    return {.start = older == CFileSink::Older::Replace ? Start::Empty : Start::OlderContent};
}

kx::String rangeOf(const CNetRequest::HeaderMap& responseHeaders)
{
    const auto found = responseHeaders.find("content-range");
    return found == responseHeaders.end() ? kx::String() : found->second;
}

/// Null for what is no range of bytes.
kx::P<CHTTPContentRange> parseRange(const kx::String& contentRange)
{
    try {
        const auto range = CHTTPContentRange::parse(contentRange);
        return range->getUnit() == "bytes" ? range : nullptr;
    } catch (const kx::CError&) {
        return nullptr;
    }
}

} // namespace

CFileSink::CFileSink(CNetRequest& request, const CNetRequest::Path& path, Older older)
    : m_older(older)
    , m_file(kx::newObj<kx::COutputFile>(path, optionsFor(older)))
    , m_explanation(request.getDefaultReceiveBuffer())
{
}

CFileSink::~CFileSink() = default;

void CFileSink::begin()
{
    m_isUsed = true;
    m_file->restart();
    m_hasBegun = false;
}

int CFileSink::write(
    const unsigned char* data, int size, int responseCode, const CNetRequest::HeaderMap& responseHeaders)
{
    m_isUsed = true; // also by a sink that passes on nothing but this
    if (responseCode < firstExplained) {
        if (!std::exchange(m_hasBegun, true) && m_older == Older::Resume)
            goOn(responseCode, responseHeaders);
        return m_file->write(data, size);
    }
    constexpr size_t mostExplanation = 64 << 10;
    const size_t room = mostExplanation - std::min(m_explanation->getSize(), mostExplanation);
    m_explanation->append(data, std::min(static_cast<size_t>(size), room));
    return size;
}

// A resource that is empty by now comes without a block.
void CFileSink::end(int responseCode, const CNetRequest::HeaderMap& responseHeaders)
{
    constexpr int noContent = 204; // which says nothing of the resource
    const auto length = responseHeaders.find("content-length");
    const bool isEmpty = length == responseHeaders.end() || length->second == "0";
    if (m_older == Older::Resume && !m_hasBegun && isEmpty && responseCode < firstExplained
        && responseCode != noContent)
        goOn(responseCode, responseHeaders);
    if (m_older == Older::Resume && responseCode == partialContent)
        requireEnd(responseHeaders);
}

void CFileSink::finish()
{
    if (!m_isUsed)
        throw kx::CError("The file '" + m_file->getPath().toString()
            + "' is not written: no transfer has had it for its sink (CNetRequest::setReceiveDataSink()).");
    m_file->finish();
}

void CFileSink::goOn(int responseCode, const CNetRequest::HeaderMap& responseHeaders)
{
    if (responseCode == partialContent)
        requireRest(responseHeaders);
    else if (responseCode > 0) // a status of HTTP
        m_file->restart(kx::COutputFile::Start::Empty);
}

void CFileSink::requireRest(const CNetRequest::HeaderMap& responseHeaders) const
{
    const kx::String text = rangeOf(responseHeaders);
    const auto range = parseRange(text);
    if (!range || range->getFirst() != m_file->getLength())
        throw kx::CError("The file '" + m_file->getPath().toString() + "' cannot go on behind its "
            + kx::toString(m_file->getLength()) + " bytes: the server has sent the part '" + text + "'.");
}

// A part may end before the resource does, whatever was asked for (RFC 9110 section 15.3.7).
void CFileSink::requireEnd(const CNetRequest::HeaderMap& responseHeaders) const
{
    const kx::String text = rangeOf(responseHeaders);
    const auto range = parseRange(text);
    const long long length = m_file->getLength();
    const bool isWhole
        = range && range->getLast() == length - 1 && (range->getTotal() == -1 || range->getTotal() == length);
    if (!isWhole)
        throw kx::CError("The file '" + m_file->getPath().toString() + "' is not whole with its " + kx::toString(length)
            + " bytes: the server has sent the part '" + text + "'.");
}

} // namespace norla
