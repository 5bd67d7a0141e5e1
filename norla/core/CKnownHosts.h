#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace norla {

/// The bytes of a file of known SSH hosts (sshd(8), "SSH_KNOWN_HOSTS FILE FORMAT"): names, patterns, hashed names,
/// keys, "@revoked". Lines that make no sense, and certificate authorities, which libcurl cannot use, know nobody. A
/// value.
class CKnownHosts {
public:
    static constexpr int usualPort = 22;

    /// Who shows the key, by the name in the URL, without brackets.
    struct CHost {
        std::string name;
        int port = usualPort;

        /// "host", or "[host]:port" where the port is another one than 22.
        std::string toText() const;
    };

    enum class Verdict {
        Known,
        Unknown,
        Changed, ///< known, by other keys
        Revoked
    };

    CKnownHosts() = default; ///< knows nobody
    explicit CKnownHosts(std::string_view bytes);

    /// @param key as SSH sends it (RFC 4253 section 6.6)
    Verdict judge(const CHost& host, std::string_view key) const;

    /// By which the host is known, in the order of the file. A host on another port than 22 that is not known there is
    /// known by those that it has on all ports.
    std::vector<std::string> keysOf(const CHost& host) const;

    /// @return the line, without its end; empty where the host's name cannot stand in one
    static std::string lineFor(const CHost& host, std::string_view key);

    /// "ssh-ed25519"; empty when it is no key.
    static std::string_view typeOf(std::string_view key) noexcept;

private:
    struct CLine {
        bool isRevoked = false;
        std::string hosts;
        std::string key;
    };

    void readLine(std::string_view line);
    std::vector<std::string> keysUnder(const std::string& name) const;
    bool isRevokedUnder(const std::string& name, std::string_view key) const;

    std::vector<CLine> m_lines;
};

} // namespace norla
