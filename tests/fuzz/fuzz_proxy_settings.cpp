// Proxy settings: a list of proxies, a list of direct hosts and a URL, on a line each.
#include "kx/containers/TArray.h"
#include "norla/proxy/CProxySettings.h"
#include "tests/fuzz/require.h"

#include <algorithm>
#include <cstdint>
#include <string_view>

namespace {

using Texts = kx::TArray<kx::String>;

/// The line, which is taken away from the text.
std::string_view takeLine(std::string_view& text)
{
    const size_t end = std::min(text.find('\n'), text.size());
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return line;
}

bool hasSeparator(const kx::String& text)
{
    return text.toWide().find_first_of(L";, \t") != std::wstring::npos;
}

Texts schemesOf(const norla::CProxySettings& settings)
{
    Texts schemes;
    settings.getProxyURLSchemes(schemes);
    return schemes;
}

Texts hostsOf(const norla::CProxySettings& settings)
{
    Texts hosts;
    settings.getDirectConnectHosts(hosts);
    return hosts;
}

void checkProxies(const norla::CProxySettings& settings)
{
    norla::CProxySettings again;
    for (const kx::String& scheme : schemesOf(settings)) {
        const kx::String proxy = settings.getProxyForURLScheme(scheme);
        require(scheme == scheme.toLower(), "schemes are in lower case");
        require(!proxy.isEmpty(), "a scheme that is listed has a proxy");
        require(!hasSeparator(scheme) && !hasSeparator(proxy), "separators are taken away");
        again.addProxiesFromString(scheme + "=" + proxy);
        require(again.getProxyForURLScheme(scheme) == proxy, "a scheme and its proxy are read as they are written");
    }
    require(schemesOf(again) == schemesOf(settings), "nothing else is read");
}

void checkHosts(const norla::CProxySettings& settings)
{
    norla::CProxySettings again;
    for (const kx::String& host : hostsOf(settings)) {
        require(!host.isEmpty() && host == host.trim() && host == host.toLower() && !hasSeparator(host),
            "a host is an item of its list, in lower case");
        require(settings.isDirectConnectHost(host), "a host that is listed is direct");
        again.addDirectConnectHostsFromString(host + ";");
    }
    require(hostsOf(again) == hostsOf(settings), "hosts are read as they are written");
}

void checkURL(norla::CProxySettings& settings, const kx::String& url)
{
    const size_t colon = url.find(L':');
    const kx::String proxy = settings.getProxyForURL(url);
    if (colon == kx::String::npos)
        require(proxy.isEmpty(), "what has no scheme has no proxy");
    else if (!proxy.isEmpty())
        require(proxy == settings.getProxyForURLScheme(url.substr(0, colon)), "the proxy is the scheme's");
    for (const kx::String& host : hostsOf(settings))
        settings.removeDirectConnectHost(host);
    require(hostsOf(settings).empty(), "hosts are removed by their names");
    const kx::String scheme = colon == kx::String::npos ? kx::String() : url.substr(0, colon);
    const kx::String expected = colon == kx::String::npos ? kx::String() : settings.getProxyForURLScheme(scheme);
    require(settings.getProxyForURL(url) == expected, "without direct hosts the scheme alone decides");
}

/// A host without delimiters is found in every shape of URL.
void checkDirectHost(norla::CProxySettings& settings, const kx::String& host)
{
    if (host.isEmpty() || host.toWide().find_first_of(L"/?#:") != std::wstring::npos)
        return;
    settings.setProxyForURLScheme("x", "p");
    for (const kx::String& rest : kx::TArray<kx::String>{"", "/a?b:c", ":80/", "?a", "#a", ":80#a"}) {
        require(settings.getProxyForURL("X://" + host + rest) == "p", "a host is not direct at first");
        settings.addDirectConnectHost(host);
        require(settings.getProxyForURL("X://" + host + rest).isEmpty(), "a direct host has no proxy");
        require(settings.getProxyForURL("X://y" + host + rest) == "p", "its subdomains have");
        settings.removeDirectConnectHost(host);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::string_view rest(reinterpret_cast<const char*>(data), size);
    norla::CProxySettings settings;
    settings.addProxiesFromString(kx::String::fromLatin1(takeLine(rest)));
    const kx::String hosts = kx::String::fromLatin1(takeLine(rest));
    settings.addDirectConnectHostsFromString(hosts);
    checkProxies(settings);
    checkHosts(settings);
    checkURL(settings, kx::String::fromLatin1(rest));
    checkDirectHost(settings, hosts);
    return 0;
}
