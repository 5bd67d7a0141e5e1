#pragma once

#include "kx/text/String.h"

#include <curl/curl.h>

namespace norla {

class CEasyHandle;

/// The bearer token of a transfer, and which methods of authentication it may use: with a token that alone, without one
/// those that the caller has chosen. Used by the thread of the transfer.
class CBearerToken {
public:
    /// @param handle outlives this object
    explicit CBearerToken(CEasyHandle& handle);
    CBearerToken(const CBearerToken&) = delete;
    CBearerToken& operator=(const CBearerToken&) = delete;

    /// As CNetRequest::setBearerToken().
    void set(const kx::String& token);

    /// The caller's choice (CURLOPT_HTTPAUTH).
    void setMethods(long methods);

    /// The handle's options are what they were at first (curl_easy_reset()).
    void forgetOptions() noexcept;

private:
    CEasyHandle& m_handle;
    bool m_isSet = false;
    long m_methods = firstMethods;
    static constexpr long firstMethods = CURLAUTH_BASIC; // libcurl's
};

} // namespace norla
