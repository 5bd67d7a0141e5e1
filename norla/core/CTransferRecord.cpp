#include "norla/core/CTransferRecord.h"

#include "norla/core/CEasyHandle.h"
#include "norla/core/plainURL.h"

#include <algorithm>
#include <array>
#include <exception>

namespace norla {

namespace {

curl_off_t sizeOf(const CEasyHandle& handle, CURLINFO info) noexcept
{
    curl_off_t value = 0;
    return handle.ask(info, value) ? value : 0;
}

long numberOf(const CEasyHandle& handle, CURLINFO info) noexcept
{
    long value = 0;
    return handle.ask(info, value) ? value : 0;
}

/// libcurl's zero is a moment that was not reached.
std::optional<kx::CTimeSpan> momentOf(curl_off_t microseconds) noexcept
{
    if (microseconds <= 0)
        return std::nullopt;
    return kx::CTimeSpan::fromMicroseconds(microseconds);
}

/// libcurl's -1 is a size that is not known.
std::optional<long long> announced(curl_off_t size) noexcept
{
    if (size < 0)
        return std::nullopt;
    return size;
}

bool isSSH(std::string_view scheme) noexcept
{
    return scheme == "sftp" || scheme == "scp";
}

bool isMail(std::string_view scheme) noexcept
{
    return scheme == "smtp" || scheme == "smtps";
}

bool isFTP(std::string_view scheme) noexcept
{
    return scheme == "ftp" || scheme == "ftps";
}

/// Whether TLS comes before anything that is said.
bool beginsWithTLS(std::string_view scheme) noexcept
{
    return scheme == "https" || scheme == "ftps" || scheme == "smtps";
}

constexpr size_t replyCodeSize = 3;

/// Of "HTTP/1.1 404 Not Found"; empty where there is none.
std::string_view statusOf(std::string_view statusLine) noexcept
{
    const size_t blank = std::min(statusLine.find(' '), statusLine.size());
    return statusLine.substr(blank).substr(statusLine.size() > blank ? 1 : 0).substr(0, replyCodeSize);
}

bool isFollowed(std::string_view status) noexcept
{
    constexpr std::array<std::string_view, 5> redirects = {"301", "302", "303", "307", "308"}; // RFC 9110 section 15.4
    return std::find(redirects.begin(), redirects.end(), status) != redirects.end();
}

} // namespace

CTransferRecord::CTransferRecord(const CEasyHandle& handle) noexcept
    : m_handle(handle)
{
}

void CTransferRecord::forget() noexcept
{
    m_state = State::None;
    m_tls = sela::CTLSSession();
}

void CTransferRecord::begin() noexcept
{
    m_state = State::Running;
    m_answered = CMoments();
    m_hasAnswer = false;
    m_isHeadOpen = false;
    m_isRedirect = false;
    m_redirects = 0;
    m_replies = CReplies();
    m_method.clear();
}

void CTransferRecord::noticeLine(std::string_view line, bool isHTTP) noexcept
{
    const bool isStatusLine = line.starts_with("HTTP/");
    m_isHeadOpen = isStatusLine || (m_isHeadOpen && line != "\r\n" && line != "\n");
    if (isStatusLine)
        noticeStatusLine(line);
    else if (!isHTTP)
        noticeReplyLine(line);
}

void CTransferRecord::noticeStatusLine(std::string_view line) noexcept
{
    const std::string_view status = statusOf(line);
    const CMoments now = askMoments();
    // A proxy that makes a tunnel answers before the request is sent, and "100 Continue" comes while it is.
    if (now.request == m_answered.request || status.starts_with('1'))
        return;
    if (!m_hasAnswer)
        noticeMethod();
    m_redirects += m_isRedirect ? 1 : 0;
    m_isRedirect = isFollowed(status);
    m_answered = now;
    m_hasAnswer = true;
    noticeTLS();
}

// Before libcurl follows a redirect, which may make a GET of it. Where there is no memory for it, it is none that may
// be sent again.
void CTransferRecord::noticeMethod() noexcept
{
    try {
        m_method = m_handle.askText(CURLINFO_EFFECTIVE_METHOD);
    } catch (const std::exception&) {
        m_method.clear();
    }
}

bool CTransferRecord::hasIdempotentMethod() const noexcept
{
    constexpr std::array<std::string_view, 6> methods = {"GET", "HEAD", "PUT", "DELETE", "OPTIONS", "TRACE"};
    return std::find(methods.begin(), methods.end(), m_method) != methods.end();
}

void CTransferRecord::noticeReplyLine(std::string_view line) noexcept
{
    if (!m_replies.areThere) {
        m_replies.areThere = true;
        m_replies.connections = numberOf(m_handle, CURLINFO_NUM_CONNECTS);
        m_replies.connect = sizeOf(m_handle, CURLINFO_CONNECT_TIME_T);
        m_replies.areAfterLogin = m_replies.connections == 0; // the connection was open before
        m_tls = sela::CTLSSession();
    }
    m_replies.last = Clock::now();
    noticeTLS();
    if (m_tls.isThere() && m_replies.encryption == 0)
        m_replies.encryption = sizeOf(m_handle, CURLINFO_APPCONNECT_TIME_T);
    noticeStatus(line.substr(0, replyCodeSize), line.size() > replyCodeSize && line[replyCodeSize] == ' ');
}

// What tells how far a login is (RFC 959 section 5.4, RFC 4954 section 6). A mail server that needs none agrees to each
// hello, which is said again behind STARTTLS, and then to the sender.
void CTransferRecord::noticeStatus(std::string_view status, bool isLastLine) noexcept
{
    CReplies& replies = m_replies;
    replies.startTLS = status == "234" || (status == "220" && replies.greetings > 0);
    replies.greetings += status == "220" && isLastLine ? 1 : 0;
    replies.agreements += status == "250" && isLastLine ? 1 : 0;
    if (status == "230" || status == "235" || replies.agreements > replies.greetings)
        replies.areAfterLogin = true;
    replies.hasDataBegun = replies.hasDataBegun || status == "354";
    replies.isRefused = status.starts_with('4') || status.starts_with('5');
    if (replies.isRefused)
        replies.isRecipientRefused = replies.agreements > replies.greetings && !replies.hasDataBegun;
}

void CTransferRecord::noticeTLS() noexcept
{
    const curl_tlssessioninfo* session = nullptr;
    const bool isOpenSSL
        = m_handle.ask(CURLINFO_TLS_SSL_PTR, session) && session && session->backend == CURLSSLBACKEND_OPENSSL;
    void* const ssl = isOpenSSL ? session->internals : nullptr;
    if (m_tls.isOf(ssl))
        return;
    try {
        m_tls = sela::CTLSSession(ssl);
    } catch (const std::exception&) {
        m_tls = sela::CTLSSession(); // no memory for what may never be asked
    }
}

void CTransferRecord::end()
{
    m_state = State::Ended;
    m_end = Clock::now();
    if (!m_hasAnswer)
        noticeMethod();
    m_url.clear();
    m_url = m_handle.askText(CURLINFO_EFFECTIVE_URL); // which the next option changes
}

CTransferRecord::CMoments CTransferRecord::askMoments() const noexcept
{
    return {.hop = sizeOf(m_handle, CURLINFO_REDIRECT_TIME_T),
        .lookup = sizeOf(m_handle, CURLINFO_NAMELOOKUP_TIME_T),
        .encryption = sizeOf(m_handle, CURLINFO_APPCONNECT_TIME_T),
        .request = sizeOf(m_handle, CURLINFO_PRETRANSFER_TIME_T),
        .connections = numberOf(m_handle, CURLINFO_NUM_CONNECTS)};
}

long long CTransferRecord::getTotalMicroseconds() const noexcept
{
    return sizeOf(m_handle, CURLINFO_TOTAL_TIME_T);
}

long long CTransferRecord::getHopMicroseconds() const noexcept
{
    return getTotalMicroseconds() - sizeOf(m_handle, CURLINFO_REDIRECT_TIME_T);
}

long long CTransferRecord::getSilentMicroseconds() const noexcept
{
    if (!m_replies.areThere)
        return 0;
    const Clock::time_point now = m_state == State::Ended ? m_end : Clock::now();
    return std::chrono::duration_cast<std::chrono::microseconds>(now - m_replies.last).count();
}

kx::String CTransferRecord::getRemoteAddress() const
{
    const std::string_view address = m_handle.askText(CURLINFO_PRIMARY_IP);
    if (m_state == State::None || address.empty())
        return {};
    const std::string port = std::to_string(getRemotePort());
    const bool isIPv6 = address.find(':') != std::string_view::npos;
    return readable((isIPv6 ? "[" + std::string(address) + "]" : std::string(address)) + ":" + port);
}

long CTransferRecord::getRemotePort() const noexcept
{
    return std::max(0L, numberOf(m_handle, CURLINFO_PRIMARY_PORT));
}

std::string CTransferRecord::getURL() const
{
    if (m_state == State::None)
        return {};
    return m_state == State::Ended ? m_url : std::string(m_handle.askText(CURLINFO_EFFECTIVE_URL));
}

std::string CTransferRecord::getScheme() const
{
    return schemeOf(getURL());
}

TransferPhase CTransferRecord::getPhase() const
{
    if (m_state == State::None)
        return TransferPhase::Unknown;
    const CMoments now = askMoments();
    if (m_hasAnswer && now.hop == m_answered.hop)
        return TransferPhase::Receiving;
    return now.request > m_answered.request ? phaseAfterRequest() : phaseBeforeRequest(now);
}

bool CTransferRecord::hasRequestBegun() const noexcept
{
    const CMoments now = askMoments();
    return (m_hasAnswer && now.hop == m_answered.hop) || now.request > m_answered.request;
}

TransferPhase CTransferRecord::phaseBeforeRequest(const CMoments& now) const
{
    const std::string scheme = getScheme();
    if (m_replies.areThere && m_replies.areAfterLogin)
        return isMail(scheme) ? TransferPhase::Sending : TransferPhase::Waiting;
    if (m_replies.areThere)
        return m_replies.startTLS && !m_tls.isThere() ? TransferPhase::Encryption : TransferPhase::Login;
    const bool isNew = now.connections > m_answered.connections;
    if (!isNew && !m_handle.askText(CURLINFO_PRIMARY_IP).empty() && m_answered.hop == now.hop)
        return TransferPhase::Waiting; // over a connection that was open
    if (!isNew)
        return now.lookup > m_answered.lookup ? TransferPhase::Connect : TransferPhase::NameLookup;
    if (beginsWithTLS(scheme) && now.encryption == m_answered.encryption)
        return TransferPhase::Encryption;
    return isFTP(scheme) || isMail(scheme) || isSSH(scheme) ? TransferPhase::Login : TransferPhase::Connect;
}

TransferPhase CTransferRecord::phaseAfterRequest() const
{
    const std::string scheme = getScheme();
    const curl_off_t sent = sizeOf(m_handle, CURLINFO_SIZE_UPLOAD_T);
    const curl_off_t toBeSent = sizeOf(m_handle, CURLINFO_CONTENT_LENGTH_UPLOAD_T);
    if (toBeSent > sent || (isMail(scheme) && toBeSent < 0))
        return TransferPhase::Sending;
    return sizeOf(m_handle, CURLINFO_SIZE_DOWNLOAD_T) > 0 ? TransferPhase::Receiving : TransferPhase::Waiting;
}

// What FTP and mail servers are asked counts as sent only behind all their answers; whom libcurl asks it knows before.
bool CTransferRecord::isConnectionReused() const noexcept
{
    if (m_replies.areThere)
        return m_replies.connections == 0;
    const bool hasConnection
        = sizeOf(m_handle, CURLINFO_PRETRANSFER_TIME_T) > 0 || numberOf(m_handle, CURLINFO_PRIMARY_PORT) > 0;
    return hasConnection && numberOf(m_handle, CURLINFO_NUM_CONNECTS) == 0;
}

CTransferInfo::CTimes CTransferRecord::getTimes() const
{
    CTransferInfo::CTimes times;
    if (!isConnectionReused()) {
        const bool hasReplies = m_replies.areThere;
        const curl_off_t connect = hasReplies ? m_replies.connect : sizeOf(m_handle, CURLINFO_CONNECT_TIME_T);
        const curl_off_t encryption = hasReplies ? m_replies.encryption : sizeOf(m_handle, CURLINFO_APPCONNECT_TIME_T);
        times.nameLookup = momentOf(sizeOf(m_handle, CURLINFO_NAMELOOKUP_TIME_T));
        times.connect = momentOf(connect);
        // Of SSH libcurl counts the moment of the connection in.
        times.encryption = momentOf(isSSH(getScheme()) ? encryption - connect : encryption);
    }
    times.request = momentOf(sizeOf(m_handle, CURLINFO_PRETRANSFER_TIME_T));
    times.firstByte = momentOf(sizeOf(m_handle, CURLINFO_STARTTRANSFER_TIME_T));
    times.redirects = momentOf(sizeOf(m_handle, CURLINFO_REDIRECT_TIME_T));
    times.total = kx::CTimeSpan::fromMicroseconds(getTotalMicroseconds());
    return times;
}

std::optional<CTransferInfo::CTLS> CTransferRecord::getTLS() const
{
    const bool isOfLastHop
        = m_replies.areThere || (m_hasAnswer && sizeOf(m_handle, CURLINFO_REDIRECT_TIME_T) == m_answered.hop);
    if (!isOfLastHop || !m_tls.isThere())
        return std::nullopt;
    return CTransferInfo::CTLS{
        .version = m_tls.getVersion(), .cipher = m_tls.getCipher(), .subjects = m_tls.getSubjects()};
}

kx::String CTransferRecord::getProtocol() const
{
    switch (numberOf(m_handle, CURLINFO_HTTP_VERSION)) {
    case CURL_HTTP_VERSION_1_0:
        return "http/1.0";
    case CURL_HTTP_VERSION_1_1:
        return "http/1.1";
    case CURL_HTTP_VERSION_2_0:
        return "h2";
    case CURL_HTTP_VERSION_3:
        return "h3";
    default:
        return readable(getScheme());
    }
}

int CTransferRecord::getRedirects() const noexcept
{
    const bool isFollowing = m_isRedirect && sizeOf(m_handle, CURLINFO_REDIRECT_TIME_T) != m_answered.hop;
    return m_redirects + (isFollowing ? 1 : 0);
}

CTransferInfo CTransferRecord::getInfo() const
{
    CTransferInfo info;
    if (m_state == State::None)
        return info;
    info.phase = getPhase();
    info.times = getTimes();
    info.remoteAddress = readable(m_handle.askText(CURLINFO_PRIMARY_IP));
    info.remotePort = static_cast<int>(getRemotePort());
    info.scheme = readable(getScheme());
    info.protocol = getProtocol();
    info.url = readable(withoutLogin(getURL()));
    info.redirects = getRedirects();
    info.isConnectionReused = isConnectionReused();
    info.bytesDown = sizeOf(m_handle, CURLINFO_SIZE_DOWNLOAD_T);
    info.bytesUp = sizeOf(m_handle, CURLINFO_SIZE_UPLOAD_T);
    info.announcedDown = announced(sizeOf(m_handle, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T));
    info.announcedUp = announced(sizeOf(m_handle, CURLINFO_CONTENT_LENGTH_UPLOAD_T));
    info.tls = getTLS();
    return info;
}

} // namespace norla
