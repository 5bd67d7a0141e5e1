#pragma once

#include "kx/containers/TMap.h"
#include "norla/core/CTLSDemand.h"

#include <curl/curl.h>

#include <optional>
#include <string>

namespace norla {

class CEasyHandle;
class CRequestURL;

/// Which of libcurl's open connections a transfer must not go over: those that were made when less was demanded of
/// them. Used by the thread of the transfer.
class CConnectionDemands {
public:
    /// @param handle outlives this object
    explicit CConnectionDemands(CEasyHandle& handle);
    CConnectionDemands(const CConnectionDemands&) = delete;
    CConnectionDemands& operator=(const CConnectionDemands&) = delete;

    /// What is set, or about to be; other options than those that matter here are ignored.
    void noticeNumber(CURLoption option, long long value) noexcept { m_tls.noticeNumber(option, value); }
    void noticeText(CURLoption option, const std::string& bytes);
    /// @param value null: what was set is taken back
    void noticePointer(CURLoption option, const void* value);

    /// @param trust all that matters of how the two sides of a TLS connection prove who they are; empty for nothing
    /// special
    void noticeTLSTrust(const std::string& trust) { m_trust = trust; }

    /// The same for SSH; replaces what else was set.
    void noticeSSHTrust(const std::string& trust) { m_ssh = {{CURLOPT_SSH_HOSTKEYFUNCTION, trust}}; }
    /// Whether a server of SSH has to prove anything.
    bool wantsSSHHosts() const noexcept { return !m_ssh.empty(); }

    /// The handle's options are what they were at first (curl_easy_reset()).
    void forgetOptions() noexcept;

    /// A transfer begins. Sets options only for who demands something, so that everybody else's stay what they were.
    /// @param isManaged whether it may go over connections of other requests
    void begin(const CRequestURL& url, bool isManaged);

    /// Whether refusesConnection() is to be asked before each request.
    bool wantsToBeAsked() const noexcept { return m_tls.isMade(); }

    /// Whether the attempt has to end, because its connection is not encrypted.
    bool refusesConnection() noexcept { return m_tls.refusesConnection(); }

    /// Whether one more attempt, on a connection of its own, may succeed where the last one was ended: nothing of the
    /// transfer was sent or received then.
    bool canBeginAgain() const noexcept { return !m_isFreshBySelf && m_tls.canConnectionHelp(); }
    void beginAgain();

    /// Whether the attempt was ended because its connection is not encrypted.
    bool wasRefused() const noexcept { return m_tls.wasRefused(); }

private:
    bool needsNewSSHConnection(const CRequestURL& url, bool isManaged);
    bool needsNewTLSConnection(const CRequestURL& url, bool isManaged);
    void setFresh(bool fresh);

    CEasyHandle& m_handle;
    CTLSDemand m_tls;
    kx::TMap<CURLoption, std::string> m_ssh;                   // what the server of an SSH connection has to prove
    std::optional<kx::TMap<CURLoption, std::string>> m_ownSSH; // of the connections that the request makes by itself
    bool m_hasOtherSSHConnections = false;                     // which were made under other demands
    std::string m_trust;                                       // whom a TLS connection believes
    std::optional<std::string> m_ownTrust;                     // as for SSH
    bool m_hasOtherTLSConnections = false;                     // the same
    bool m_isFreshBySelf = false;                              // CURLOPT_FRESH_CONNECT
};

} // namespace norla
