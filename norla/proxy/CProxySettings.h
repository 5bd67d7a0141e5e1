#pragma once

#include "kx/base/CBase.h"
#include "kx/base/TSafeGlobalPointer.h"
#include "kx/containers/TArray.h"
#include "kx/containers/TMap.h"
#include "kx/text/String.h"
#include "kx/threads/CMutex.h"

namespace norla {

/// Which proxy to use for each URL scheme, and the hosts that are reached directly. Schemes and hosts are compared
/// without regard to case. Any thread, except where it says otherwise.
class KX_EXPORT CProxySettings : public virtual kx::CBase {
public:
    /// The user's settings of this process. They start empty; the application fills them.
    /// @throws kx::CError "Construction of static object has failed." once the process is exiting
    static kx::TSafeGlobalPointer<CProxySettings>& getUserSettings();
    static kx::CSafeGlobalGuard& globalInstanceGuard();
    static kx::P<CProxySettings> createAndInitFromUserSettings();

    CProxySettings() = default;
    CProxySettings(const CProxySettings&) = delete;
    CProxySettings& operator=(const CProxySettings&) = delete;
    ~CProxySettings() override;

    /// Forgets all proxies and hosts.
    void clear();

    /// Empties the settings; stored settings of the user are not read.
    void initFromUserSettings();

    /// @param proxy "host:port" or a URL, kept as it is; empty removes the scheme's proxy
    void setProxyForURLScheme(const kx::String& scheme, const kx::String& proxy);

    /// Empty when the scheme has no proxy.
    kx::String getProxyForURLScheme(const kx::String& scheme) const;

    /// Appends the schemes that have a proxy, in order. Takes no lock: nobody may change the settings meanwhile.
    void getProxyURLSchemes(kx::TArray<kx::String>& schemes) const;

    /// Appends the hosts that are reached directly, in order.
    void getDirectConnectHosts(kx::TArray<kx::String>& hosts) const;

    /// A host is matched as a whole: no domain suffixes, wildcards or address ranges.
    void addDirectConnectHost(const kx::String& host);
    void removeDirectConnectHost(const kx::String& host);
    bool isDirectConnectHost(const kx::String& host) const;

    /// Adds the proxies of a list, separated by ";", ",", blanks or tabs. "scheme=proxy" sets one scheme ("ftp="
    /// removes its proxy); "host" and "host:port" set http, https and ftp; a URL such as "https://host:443" sets its
    /// own scheme.
    void addProxiesFromString(const kx::String& text);

    /// Adds the hosts of a list, separated likewise.
    void addDirectConnectHostsFromString(const kx::String& text);

    /// The proxy to use for the URL; empty for a direct connection. A user name in the URL counts as part of the host.
    kx::String getProxyForURL(const kx::String& url) const;

private:
    void addProxy(const kx::String& item);

    kx::TMap<kx::String, kx::String> m_proxies;
    kx::TMap<kx::String, bool> m_directConnectHosts; // a set
    mutable kx::CMutex m_mutex;
};

} // namespace norla
