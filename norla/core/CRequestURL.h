#pragma once

#include "kx/text/String.h"

namespace norla {

/// The URL of a transfer as its owner has set it, and what the text tells of the protocol. Whether redirects have led
/// to another one is not seen, unless somebody tells.
class CRequestURL {
public:
    CRequestURL() = default; ///< none
    explicit CRequestURL(const kx::String& url);

    const kx::String& toString() const noexcept { return m_url; }

    /// In lower case; empty without one.
    kx::String getScheme() const;

    /// What counts from now on, whatever the text says. @param scheme in letters of either case
    void setSpoken(const kx::String& scheme);

    /// What its response codes belong to: "http", "ftp", "smtp", or empty for other schemes.
    const kx::String& getResponseCodeDomain() const noexcept { return m_domain; }

    bool isHTTP() const noexcept { return m_isHTTP; }
    bool isMail() const noexcept { return m_isMail; }

    /// SFTP and SCP, as the text says: setSpoken() does not count.
    bool isSSH() const noexcept { return m_isSSH; }

private:
    kx::String m_url;
    kx::String m_domain;
    bool m_isHTTP = false;
    bool m_isMail = false;
    bool m_isSSH = false;
};

} // namespace norla
