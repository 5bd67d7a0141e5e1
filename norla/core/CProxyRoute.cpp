#include "norla/core/CProxyRoute.h"

#include "norla/core/plainURL.h"

#include <algorithm>
#include <cstdlib>
#include <memory>

namespace norla {

namespace {

struct CEndpoint {
    std::string host;
    long port = 0;
};

/// As libcurl reads it. Without a host where it cannot be read.
CEndpoint endpointOf(const std::string& text, long usualPort, unsigned int portFlags)
{
    const std::unique_ptr<CURLU, decltype(&curl_url_cleanup)> parsed(curl_url(), &curl_url_cleanup);
    const auto part = [&parsed](CURLUPart which, unsigned int flags) {
        char* found = nullptr;
        const bool isThere = curl_url_get(parsed.get(), which, &found, flags) == CURLUE_OK;
        const std::unique_ptr<char, decltype(&curl_free)> owned(found, &curl_free);
        return isThere ? std::string(found) : std::string();
    };
    if (!parsed
        || curl_url_set(parsed.get(), CURLUPART_URL, text.c_str(), CURLU_NON_SUPPORT_SCHEME | CURLU_GUESS_SCHEME)
            != CURLUE_OK)
        return {};
    const std::string port = part(CURLUPART_PORT, portFlags);
    return {.host = part(CURLUPART_HOST, 0), .port = port.empty() ? usualPort : std::atol(port.c_str())};
}

std::string fromEnvironment(const std::string& name)
{
    const char* const value = std::getenv(name.c_str());
    return value ? value : std::string();
}

std::string inCapitals(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
        [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; });
    return text;
}

} // namespace

void CProxyRoute::noticeText(CURLoption option, const std::string& bytes)
{
    if (option == CURLOPT_PROXY) {
        m_proxy = bytes;
        m_isSet = true;
    } else if (option == CURLOPT_PRE_PROXY) {
        m_preProxy = bytes;
    } else if (option == CURLOPT_NOPROXY) {
        m_hasExceptions = !bytes.empty();
    }
}

void CProxyRoute::noticeNumber(CURLoption option, long long value) noexcept
{
    if (option == CURLOPT_PROXYPORT)
        m_port = static_cast<long>(value);
}

// The connection leads to the proxy in front of the other one, if there are two. HTTP_PROXY in capitals is what a web
// server makes of a request's header, so that libcurl does not look at it.
std::string CProxyRoute::textFor(const std::string& url) const
{
    if (!m_preProxy.empty())
        return m_preProxy;
    if (m_isSet)
        return m_proxy;
    const std::string scheme = schemeOf(url);
    for (const std::string& name : {scheme + "_proxy", std::string("all_proxy")}) {
        std::string text = fromEnvironment(name);
        if (text.empty() && name != "http_proxy")
            text = fromEnvironment(inCapitals(name));
        if (!text.empty())
            return text;
    }
    return {};
}

bool CProxyRoute::isForEveryHost() const noexcept
{
    return !m_hasExceptions && !std::getenv("no_proxy") && !std::getenv("NO_PROXY");
}

kx::String CProxyRoute::find(const std::string& url, long remotePort) const
{
    constexpr long usualPort = 1080;
    const std::string text = textFor(url);
    if (text.empty())
        return {};
    const CEndpoint proxy
        = endpointOf(text, m_port > 0 ? m_port : usualPort, schemeOf(text) == "https" ? CURLU_DEFAULT_PORT : 0);
    const bool mayBeTheServer = remotePort == 0 || remotePort == endpointOf(url, 0, CURLU_DEFAULT_PORT).port;
    const bool isUsed = mayBeTheServer ? isForEveryHost() : remotePort == proxy.port;
    if (proxy.host.empty() || !isUsed)
        return {};
    return readable(proxy.host + ":" + std::to_string(proxy.port));
}

} // namespace norla
