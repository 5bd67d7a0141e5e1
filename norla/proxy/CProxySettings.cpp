#include "norla/proxy/CProxySettings.h"

#include "kx/threads/CMutexLock.h"

#include <algorithm>
#include <string_view>

namespace norla {

namespace {

kx::TArray<kx::String> splitList(const kx::String& text)
{
    constexpr std::wstring_view separators = L";, \t";
    const std::wstring& wide = text.toWide();
    kx::TArray<kx::String> items;
    for (size_t start = 0; start < wide.size();) {
        const size_t end = std::min(wide.find_first_of(separators, start), wide.size());
        const kx::String item = text.substr(start, end - start).trim();
        if (!item.isEmpty())
            items.push_back(item);
        start = end + 1;
    }
    return items;
}

bool isAllDigits(const kx::String& text)
{
    return !text.isEmpty() && text.toWide().find_first_not_of(L"0123456789") == std::wstring::npos;
}

// The delimiters count in this order, not by their place: a "/" within a query ends the host where there is no path.
kx::String hostOfURLRest(std::wstring_view rest)
{
    rest.remove_prefix(std::min(rest.find_first_not_of(L'/'), rest.size()));
    for (const wchar_t delimiter : {L'/', L'?', L'#'}) {
        const size_t end = rest.find(delimiter);
        if (end != std::wstring_view::npos) {
            rest = rest.substr(0, end);
            break;
        }
    }
    return kx::String(std::wstring(rest.substr(0, rest.rfind(L':'))));
}

} // namespace

kx::TSafeGlobalPointer<CProxySettings>& CProxySettings::getUserSettings()
{
    const auto lock = kx::TSafeGlobalPointer<CProxySettings>::lockUntilConstructed(globalInstanceGuard());
    static kx::TSafeGlobalPointer<CProxySettings> g_pInstance(globalInstanceGuard(), createAndInitFromUserSettings);
    return kx::TSafeGlobalPointer<CProxySettings>::waitConstructed(g_pInstance, globalInstanceGuard());
}

kx::CSafeGlobalGuard& CProxySettings::globalInstanceGuard()
{
    static constinit kx::CSafeGlobalGuard g_Guard;
    return g_Guard;
}

kx::P<CProxySettings> CProxySettings::createAndInitFromUserSettings()
{
    auto settings = kx::newObj<CProxySettings>();
    settings->initFromUserSettings();
    return settings;
}

CProxySettings::~CProxySettings() = default;

void CProxySettings::clear()
{
    const kx::CMutexLock lock(m_mutex);
    m_proxies.clear();
    m_directConnectHosts.clear();
}

void CProxySettings::initFromUserSettings()
{
    const kx::CMutexLock lock(m_mutex);
    clear();
}

void CProxySettings::setProxyForURLScheme(const kx::String& scheme, const kx::String& proxy)
{
    const kx::CMutexLock lock(m_mutex);
    if (proxy.isEmpty())
        m_proxies.erase(scheme.toLower());
    else
        m_proxies.insert_or_assign(scheme.toLower(), proxy);
}

kx::String CProxySettings::getProxyForURLScheme(const kx::String& scheme) const
{
    const kx::CMutexLock lock(m_mutex);
    const auto found = m_proxies.find(scheme.toLower());
    return found == m_proxies.end() ? kx::String() : found->second;
}

void CProxySettings::getProxyURLSchemes(kx::TArray<kx::String>& schemes) const
{
    for (const auto& [scheme, proxy] : m_proxies)
        schemes.push_back(scheme);
}

void CProxySettings::getDirectConnectHosts(kx::TArray<kx::String>& hosts) const
{
    const kx::CMutexLock lock(m_mutex);
    for (const auto& [host, isDirect] : m_directConnectHosts)
        hosts.push_back(host);
}

void CProxySettings::addDirectConnectHost(const kx::String& host)
{
    const kx::CMutexLock lock(m_mutex);
    m_directConnectHosts.insert_or_assign(host.toLower(), true);
}

void CProxySettings::removeDirectConnectHost(const kx::String& host)
{
    const kx::CMutexLock lock(m_mutex);
    m_directConnectHosts.erase(host.toLower());
}

bool CProxySettings::isDirectConnectHost(const kx::String& host) const
{
    const kx::CMutexLock lock(m_mutex);
    return m_directConnectHosts.contains(host.toLower());
}

// Both lists are added under one lock, so that a reader sees all of a list or nothing.
void CProxySettings::addProxiesFromString(const kx::String& text)
{
    const kx::CMutexLock lock(m_mutex);
    for (const kx::String& item : splitList(text))
        addProxy(item);
}

void CProxySettings::addDirectConnectHostsFromString(const kx::String& text)
{
    const kx::CMutexLock lock(m_mutex);
    for (const kx::String& host : splitList(text))
        addDirectConnectHost(host);
}

void CProxySettings::addProxy(const kx::String& item)
{
    const size_t equals = item.find(L'=');
    if (equals != kx::String::npos) {
        setProxyForURLScheme(item.substr(0, equals), item.substr(equals + 1));
        return;
    }
    const size_t colon = item.find(L':');
    if (colon != kx::String::npos && !isAllDigits(item.substr(colon + 1))) {
        setProxyForURLScheme(item.substr(0, colon), item);
        return;
    }
    for (const char* const scheme : {"http", "https", "ftp"})
        setProxyForURLScheme(kx::String::fromLatin1(scheme), item);
}

kx::String CProxySettings::getProxyForURL(const kx::String& url) const
{
    const size_t colon = url.find(L':');
    if (colon == kx::String::npos)
        return kx::String();
    const kx::CMutexLock lock(m_mutex);
    kx::String proxy = getProxyForURLScheme(url.substr(0, colon));
    if (proxy.isEmpty() || isDirectConnectHost(hostOfURLRest(std::wstring_view(url.toWide()).substr(colon + 1))))
        return kx::String();
    return proxy;
}

} // namespace norla
