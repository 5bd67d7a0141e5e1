#include "norla/core/CUnpackingLimits.h"

#include "kx/base/CInvalidArgError.h"
#include "kx/text/numbers.h"
#include "norla/core/CEasyHandle.h"
#include "norla/core/contentEncodings.h"

#include <algorithm>

namespace norla {

CUnpackingLimits::CUnpackingLimits(CEasyHandle& handle)
    : m_handle(handle)
{
}

void CUnpackingLimits::set(const CAcceptEncoding& options)
{
    requireContentEncodings(options.encodings, curl_version_info(CURLVERSION_NOW)->features);
    if (options.maxRatio < 0)
        throw kx::CInvalidArgError(
            "the ratio " + kx::toString(options.maxRatio) + " is negative", "CNetRequest::setAcceptEncoding");
    if (options.maxSize < 0)
        throw kx::CInvalidArgError(
            "the size " + kx::toString(options.maxSize) + " is negative", "CNetRequest::setAcceptEncoding");
    m_handle.setText(CURLOPT_ACCEPT_ENCODING, options.encodings.toLatin1()); // empty: all that it has
    m_options = options;
}

void CUnpackingLimits::noticeNumber(CURLoption option, long long value) noexcept
{
    if (option == CURLOPT_BUFFERSIZE)
        m_bufferSize = std::clamp<long long>(value, firstBufferSize, CURL_MAX_READ_SIZE);
}

kx::String CUnpackingLimits::take(size_t size)
{
    if (!m_options)
        return kx::String();
    m_unpacked += static_cast<long long>(size);
    if (m_options->maxSize > 0 && m_unpacked > m_options->maxSize)
        return "the unpacked body has more than " + kx::toString(m_options->maxSize) + " bytes";
    if (m_options->maxRatio > 0 && m_unpacked > CAcceptEncoding::ratioFrom && isBeyondRatio())
        return "the unpacked body has more than " + kx::toString(m_options->maxRatio)
            + " times the bytes that have come";
    return kx::String();
}

// libcurl counts a block that has come only once it is unpacked.
bool CUnpackingLimits::isBeyondRatio() const noexcept
{
    curl_off_t come = 0;
    return m_handle.ask(CURLINFO_SIZE_DOWNLOAD_T, come) && m_unpacked / m_options->maxRatio > come + m_bufferSize;
}

void CUnpackingLimits::forgetOptions() noexcept
{
    m_options.reset();
    m_bufferSize = firstBufferSize;
}

} // namespace norla
