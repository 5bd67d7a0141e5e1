#include "norla/core/CTLSDemand.h"

#include "norla/core/CEasyHandle.h"
#include "norla/core/CRequestURL.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace norla {

namespace {

/// Those that begin in plain text and are upgraded; for others the option says nothing.
constexpr std::array<std::string_view, 5> upgradedSchemes = {"ftp", "smtp", "imap", "pop3", "ldap"};

constexpr bool isSameLetter(char one, char other) noexcept
{
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
    return lower(one) == lower(other);
}

bool isUpgradedScheme(std::string_view scheme) noexcept
{
    return std::any_of(upgradedSchemes.begin(), upgradedSchemes.end(), [scheme](std::string_view candidate) {
        return std::equal(candidate.begin(), candidate.end(), scheme.begin(), scheme.end(), isSameLetter);
    });
}

} // namespace

CTLSDemand::CTLSDemand(const CEasyHandle& handle) noexcept
    : m_handle(handle)
{
}

void CTLSDemand::noticeNumber(CURLoption option, long long value) noexcept
{
    if (option == CURLOPT_USE_SSL)
        m_useSSL = value;
    else if (option == CURLOPT_FTP_SSL_CCC)
        m_clearControl = value;
    else if (option == CURLOPT_FRESH_CONNECT)
        m_isFreshConnectSet = value != 0;
}

void CTLSDemand::forgetOptions() noexcept
{
    m_useSSL = CURLUSESSL_NONE;
    m_clearControl = CURLFTPSSL_CCC_NONE;
    m_isFreshConnectSet = false;
}

bool CTLSDemand::isMade() const noexcept
{
    return m_useSSL >= CURLUSESSL_CONTROL && m_clearControl == CURLFTPSSL_CCC_NONE;
}

bool CTLSDemand::isUpgraded(const CRequestURL& url) const
{
    return m_useSSL > CURLUSESSL_NONE && isUpgradedScheme(url.getScheme().toDisplayUTF8());
}

bool CTLSDemand::concernsThisProtocol() const noexcept
{
    // The URL in use, after redirects. A proxy may be spoken to in another protocol than the URL's: what was to be
    // encrypted is in the clear then all the same.
    const std::string_view url = m_handle.askText(CURLINFO_EFFECTIVE_URL);
    return isUpgradedScheme(url.substr(0, url.find(':'))) || isUpgradedScheme(m_handle.askText(CURLINFO_SCHEME));
}

// Of FTP's two connections this is the one for commands. libcurl secures the other one, or not, as the option says.
bool CTLSDemand::isConnectionPlain() const noexcept
{
    const curl_tlssessioninfo* session = nullptr;
    return !m_handle.ask(CURLINFO_TLS_SSL_PTR, session) || !session || !session->internals;
}

bool CTLSDemand::refusesConnection() noexcept
{
    if (!isMade() || !concernsThisProtocol() || !isConnectionPlain())
        return false;
    long newConnections = 0;
    const bool isKnown = m_handle.ask(CURLINFO_NUM_CONNECTS, newConnections);
    m_finding = isKnown && newConnections == 0 ? Finding::OldConnection : Finding::NewConnection;
    return true;
}

} // namespace norla
