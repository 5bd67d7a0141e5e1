// What a request tells of a transfer, beside its answer, and how long it waits for what.

#include "kx/base/CInvalidArgError.h"
#include "kx/base/systemErrorText.h"
#include "norla/core/CDeadlines.h"
#include "norla/core/CNetRequestRooms.h"
#include "norla/core/httpSuccess.h"
#include "norla/core/plainURL.h"

#include <algorithm>
#include <limits>

namespace norla {

namespace {

constexpr int longestMilliseconds = std::numeric_limits<int>::max(); // that libcurl takes, and that mean no limit

/// The span in units of so many microseconds, rounded up; 0 for none.
int roundedUp(const kx::CTimeSpan& span, long long unit, const char* name)
{
    if (span.isInfinite())
        return 0;
    const long long microseconds = span.getMicroseconds();
    if (microseconds < 0)
        throw kx::CInvalidArgError(
            "the deadline '" + kx::String::fromLatin1(name) + "' is negative", "CNetRequest::setDeadlines");
    const long long units = microseconds / unit + (microseconds % unit > 0 ? 1 : 0);
    return static_cast<int>(std::min(units, static_cast<long long>(longestMilliseconds) * 1000 / unit));
}

/// What libcurl's result tells, and otherwise how far the transfer has come.
TransferPhase phaseOf(CURLcode result, TransferPhase reached) noexcept
{
    switch (result) {
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY:
        return TransferPhase::NameLookup;
    case CURLE_COULDNT_CONNECT:
    case CURLE_PROXY:
        return TransferPhase::Connect;
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_SSL_CERTPROBLEM:
    case CURLE_SSL_CIPHER:
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_CRL_BADFILE:
    case CURLE_SSL_ISSUER_ERROR:
    case CURLE_SSL_PINNEDPUBKEYNOTMATCH:
    case CURLE_SSL_INVALIDCERTSTATUS:
    case CURLE_SSL_CLIENTCERT:
    case CURLE_USE_SSL_FAILED:
        return TransferPhase::Encryption;
    default:
        return reached;
    }
}

constexpr int ftpServiceNotAvailable = 421; // RFC 959 section 4.2.1

} // namespace

CTransferInfo CNetRequest::getTransferInfo() const
{
    return m_rooms->record.getInfo();
}

void CNetRequest::setDeadlines(const CDeadlines& deadlines)
{
    constexpr long long millisecond = 1000;
    constexpr long long second = 1'000'000;
    const int connect = roundedUp(deadlines.connect, millisecond, "connect");
    const int inactivity = roundedUp(deadlines.inactivity, second, "inactivity");
    const int total = roundedUp(deadlines.total, millisecond, "total");
    setOptionInt(CURLOPT_CONNECTTIMEOUT_MS, connect == 0 ? longestMilliseconds : connect); // 0: libcurl's own default
    setOptionInt(CURLOPT_LOW_SPEED_LIMIT, inactivity == 0 ? 0 : 1);
    setOptionInt(CURLOPT_LOW_SPEED_TIME, inactivity);
    setOptionInt(CURLOPT_SERVER_RESPONSE_TIMEOUT, inactivity);
    setOptionInt(CURLOPT_TIMEOUT_MS, total);
    m_rooms->deadlines.speak();
}

kx::String CNetRequest::CRooms::failureText(CURLcode result) const
{
    if (deadlines.doesSpeak() && result == CURLE_OPERATION_TIMEDOUT) {
        kx::String text = failureDetails(result).limitText;
        if (!text.isEmpty())
            return text;
    }
    const kx::String message = handle.getErrorMessage();
    if (result == CURLE_COULDNT_CONNECT && sockets.getShortage() != 0)
        return message + "; " + kx::systemErrorText(sockets.getShortage());
    const kx::String explanation = url.isSSH() ? ssh.explain(result, message) : tls.explain(result, message);
    return message.isEmpty() || explanation.isEmpty() ? message + explanation : message + "; " + explanation;
}

// Then the URL is that of the redirect, and not the one that it leads to.
bool CNetRequest::CRooms::isRedirect() const
{
    long status = 0;
    return url.isHTTP() && handle.ask(CURLINFO_RESPONSE_CODE, status) && status >= 300 && status <= 399;
}

// What looks like a handshake or a login with the server may be what is said to the proxy before.
bool CNetRequest::CRooms::isAtProxy(int proxyStatus) const
{
    const TransferPhase reached = record.getPhase();
    const bool mayBe = reached == TransferPhase::Encryption || reached == TransferPhase::Login;
    return mayBe && !record.hasReplies() && !isHTTPSuccess(proxyStatus);
}

CFailureDetails CNetRequest::CRooms::failureDetails(CURLcode result) const
{
    CFailureDetails details;
    details.phase = phaseOf(result, record.getPhase());
    const std::string current = record.getURL();
    const bool isUnreadable = result == CURLE_URL_MALFORMAT && !isRedirect();
    if (isUnreadable || (result == CURLE_UNSUPPORTED_PROTOCOL && !isRedirect()))
        details.url = readable(withoutSecrets(current, !isUnreadable));
    if (current.empty() || isUnreadable) // of which nobody knows where its host is
        return details;
    const bool isFTP = schemeOf(current).starts_with("ftp");
    details.host = readable(hostOf(current));
    details.path = readable(pathOf(current));
    details.address = record.getRemoteAddress();
    details.isRecipientRefused = record.isRecipientRefused();
    long status = 0;
    if (handle.ask(CURLINFO_HTTP_CONNECTCODE, status))
        details.proxyStatus = static_cast<int>(status);
    details.proxy = proxy.find(current, record.getRemotePort());
    if (isFTP)
        details.ftpReply = response.getFTPRefusal();
    const bool isServersEnd = isFTP && handle.ask(CURLINFO_RESPONSE_CODE, status) && status == ftpServiceNotAvailable;
    if (result == CURLE_OPERATION_TIMEDOUT && !isServersEnd)
        details.limit = deadlines.findReached(record, details.phase);
    if (!details.proxy.isEmpty() && isAtProxy(details.proxyStatus))
        details.phase = phaseOf(result, TransferPhase::Connect);
    details.limitText = deadlines.describe(details);
    if (result == CURLE_COULDNT_CONNECT && sockets.getShortage() != 0)
        details.limitText = "No connection to the server " + details.host
            + " can be made from here: " + kx::systemErrorText(sockets.getShortage()) + ".";
    return details;
}

} // namespace norla
