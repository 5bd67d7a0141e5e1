#include "norla/core/CFileSink.h"

#include "kx/text/numbers.h"
#include "norla/http/CHTTPContentRange.h"

#include <algorithm>
#include <utility>

namespace norla {

namespace {

constexpr int firstExplained = 300; // status whose body is not the file

kx::COutputFile::COptions optionsFor(CFileSink::Older older)
{
    using Start = kx::COutputFile::Start;
    return {.start = older == CFileSink::Older::Replace ? Start::Empty : Start::OlderContent};
}

bool beginsAt(const kx::String& contentRange, long long position)
{
    try {
        const auto range = CHTTPContentRange::parse(contentRange);
        return range->getUnit() == "bytes" && range->getFirst() == position;
    } catch (const kx::CError&) {
        return false;
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
    constexpr int partialContent = 206;
    if (responseCode == partialContent)
        requireRest(responseHeaders);
    else if (responseCode > 0) // a status of HTTP
        m_file->restart(kx::COutputFile::Start::Empty);
}

void CFileSink::requireRest(const CNetRequest::HeaderMap& responseHeaders) const
{
    const auto found = responseHeaders.find("content-range");
    const kx::String range = found == responseHeaders.end() ? kx::String() : found->second;
    if (!beginsAt(range, m_file->getLength()))
        throw kx::CError("The file '" + m_file->getPath().toString() + "' cannot go on behind its "
            + kx::toString(m_file->getLength()) + " bytes: the server has sent the part '" + range + "'.");
}

} // namespace norla
