#pragma once

#include "kx/text/String.h"

#include <curl/curl.h>

#include <string>

namespace norla {

/// Which proxy a transfer goes over: libcurl says no more than the address of the connection's other end. Used by the
/// thread of the transfer.
class CProxyRoute {
public:
    /// What was set; other options than those of proxies are ignored.
    void noticeText(CURLoption option, const std::string& bytes);
    void noticeNumber(CURLoption option, long long value) noexcept;

    /// The handle's options are what they were at first (curl_easy_reset()).
    void forgetOptions() noexcept { *this = CProxyRoute(); }

    /// "host:port" of the proxy, without its login; empty when there is none, or when that is not certain.
    /// @param url that was or is fetched
    /// @param remotePort of the connection's other end; 0 when there is no connection
    kx::String find(const std::string& url, long remotePort) const;

private:
    std::string textFor(const std::string& url) const;
    bool isForEveryHost() const noexcept;

    std::string m_proxy;
    std::string m_preProxy;
    long m_port = 0;
    bool m_isSet = false; // also to none, which the environment does not change then
    bool m_hasExceptions = false;
};

} // namespace norla
