#pragma once

#include "kx/text/String.h"
#include "norla/core/CAcceptEncoding.h"

#include <curl/curl.h>

#include <cstddef>
#include <optional>

namespace norla {

class CEasyHandle;

/// Which compressed answers are asked for, and what a transfer unpacks of one before that is too much. Used by the
/// thread of the transfer.
class CUnpackingLimits {
public:
    /// @param handle outlives this object
    explicit CUnpackingLimits(CEasyHandle& handle);
    CUnpackingLimits(const CUnpackingLimits&) = delete;
    CUnpackingLimits& operator=(const CUnpackingLimits&) = delete;

    /// As CNetRequest::setAcceptEncoding().
    void set(const CAcceptEncoding& options);

    /// What is set; other options than the size of libcurl's buffer are ignored.
    void noticeNumber(CURLoption option, long long value) noexcept;

    /// A transfer begins.
    void begin() noexcept { m_unpacked = 0; }

    /// So many bytes of the body are there, before anybody gets them.
    /// @return why that is too much, naming the limit; empty when it is not
    kx::String take(size_t size);

    /// The handle's options are what they were at first (curl_easy_reset()).
    void forgetOptions() noexcept;

private:
    bool isBeyondRatio() const noexcept;

    CEasyHandle& m_handle;
    std::optional<CAcceptEncoding> m_options; // none: nothing is asked for, and nothing limited
    long long m_unpacked = 0;
    long long m_bufferSize = firstBufferSize;
    static constexpr long long firstBufferSize = CURL_MAX_WRITE_SIZE; // libcurl's
};

} // namespace norla
