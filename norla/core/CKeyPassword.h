#pragma once

#include <optional>
#include <string>

namespace norla {

class CEasyHandle;
class CRequestURL;

/// The password of a private key, for which libcurl has one option that stands for two: the key of a TLS certificate
/// and that of an SSH login. Used by the thread of the transfer.
class CKeyPassword {
public:
    /// @param handle outlives this object
    explicit CKeyPassword(CEasyHandle& handle)
        : m_handle(handle)
    {
    }
    CKeyPassword(const CKeyPassword&) = delete;
    CKeyPassword& operator=(const CKeyPassword&) = delete;

    /// @param password empty for a key that has none; nothing when there is no key
    void setForTLS(std::optional<std::string> password) { m_tls = std::move(password); }
    void setForSSH(std::optional<std::string> password) { m_ssh = std::move(password); }

    /// The handle's options are what they were at first (curl_easy_reset()).
    void forgetOptions() noexcept;

    /// A transfer begins.
    void begin(const CRequestURL& url);

private:
    CEasyHandle& m_handle;
    std::optional<std::string> m_tls;
    std::optional<std::string> m_ssh;
    bool m_isSet = false; // CURLOPT_KEYPASSWD, from here
};

} // namespace norla
