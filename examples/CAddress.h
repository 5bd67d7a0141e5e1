#pragma once

#include "examples/credentials.h"
#include "examples/text.h"
#include "norla/core/CNetRequest.h"
#include "norla/http/util.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string>

/// A URL of the command line, apart from its login: errors show the one and not the other.
class CAddress {
public:
    /// @param bytes in which blanks and the like are escaped; others than ASCII may stand in it as they are
    /// @throws as usageError() for a URL without a scheme or with one that the programs do not serve
    explicit CAddress(const std::string& bytes)
    {
        const size_t mark = bytes.find("://");
        if (mark == std::string::npos)
            throw usageError("no URL with a scheme, such as https://: '" + withoutLogin(bytes) + "'");
        m_scheme = textOf(bytes.substr(0, mark), "the scheme of a URL").toLower();
        if (std::find(served.begin(), served.end(), m_scheme.toUTF8()) == served.end())
            throw usageError("the scheme '" + m_scheme + "' is not served, only http, https, ftp, ftps and sftp");
        const size_t start = mark + 3;
        const size_t end = std::min(bytes.find_first_of("/?#", start), bytes.size());
        m_host = takeLogin(bytes.substr(start, end - start));
        if (m_host.isEmpty())
            throw usageError("no host in the URL '" + withoutLogin(bytes) + "'");
        m_url = m_scheme + "://" + m_host + escapedBytes(bytes.substr(end));
    }

    /// Without a login.
    const kx::String& url() const { return m_url; }

    bool isHTTP() const { return m_scheme.startsWith("http"); }

    /// In place of the login in the URL.
    void setUser(const kx::String& user)
    {
        m_user = user;
        m_password.reset();
    }
    void setPassword(const kx::String& password) { m_password = password; }

    /// Whose password it is: addresses with the same account have the same one.
    kx::String account() const { return m_scheme + "://" + m_user + "@" + m_host; }
    const std::optional<kx::String>& password() const { return m_password; }

    /// Whether a user has a name and no password.
    bool lacksPassword() const { return !m_user.isEmpty() && !m_password; }

    /// With its port.
    const kx::String& host() const { return m_host; }

    /// Asks for the password that belongs to a user's name without one (see credentials.h). SFTP may do without: there
    /// are keys.
    /// @param variable of the environment that may hold it
    void completeLogin(const std::string& variable)
    {
        if (!lacksPassword())
            return;
        const kx::String question = "Password for " + m_user + " at " + m_host;
        if (m_scheme == "sftp")
            m_password = knownSecret(variable, question);
        else
            m_password = secretOf(variable, question);
    }

    /// Sets safe defaults, URL and login.
    void applyTo(norla::CNetRequest& request) const
    {
        request.setSafeDefaults();
        request.setURL(m_url);
        request.setOptionString(CURLOPT_PROTOCOLS_STR, "http,https,ftp,ftps,sftp");
        if (!m_user.isEmpty())
            request.setUserName(m_user);
        if (m_password)
            request.setUserPassword(*m_password);
    }

private:
    static constexpr std::array<std::string_view, 5> served{"http", "https", "ftp", "ftps", "sftp"};

    /// @param authority "host", "user@host:port" or "user:password@host"
    /// @return what stands behind the login
    kx::String takeLogin(const std::string& authority)
    {
        const size_t at = authority.rfind('@');
        if (at == std::string::npos)
            return textOf(authority, "the host of a URL");
        const kx::String login = textOf(authority.substr(0, at), "the login in a URL");
        if (login.find(L'@') != kx::String::npos)
            throw usageError("the login in a URL holds an '@', which is written as %40");
        const size_t colon = login.find(L':');
        m_user = unescaped(login.substr(0, colon));
        if (colon != kx::String::npos)
            m_password = unescaped(login.substr(colon + 1));
        return textOf(authority.substr(at + 1), "the host of a URL");
    }

    /// What is no URL may hold a password all the same.
    static kx::String withoutLogin(const std::string& bytes)
    {
        const size_t at = bytes.rfind('@');
        return at == std::string::npos ? shownPath(bytes) : "***" + shownPath(bytes.substr(at));
    }

    static kx::String unescaped(const kx::String& text)
    {
        kx::String plain = norla::urlUnescape(text, false);
        if (plain.isEmpty() && !text.isEmpty())
            throw usageError("the login in a URL is not text in UTF-8");
        return plain;
    }

    kx::String m_scheme;
    kx::String m_host; ///< with its port
    kx::String m_url;
    kx::String m_user;
    std::optional<kx::String> m_password;
};
