#include "norla/core/CTransferLimits.h"

#include "kx/text/numbers.h"
#include "norla/core/CTransferRecord.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace norla {

namespace {

constexpr long long microsecondsOfAMillisecond = 1000; // in microseconds
constexpr long long millisecondsOfASecond = 1000;      // in milliseconds

/// Such as "1 second", "30 seconds" and "1.25 seconds".
kx::String durationText(long long milliseconds)
{
    if (milliseconds == millisecondsOfASecond)
        return "1 second";
    kx::String text = kx::toString(milliseconds / millisecondsOfASecond);
    if (milliseconds % millisecondsOfASecond != 0) {
        kx::String fraction = kx::toString(millisecondsOfASecond + milliseconds % millisecondsOfASecond).substr(1);
        while (fraction.endsWith("0"))
            fraction = fraction.substr(0, fraction.size() - 1);
        text += "." + fraction;
    }
    return text + " seconds";
}

/// " through the proxy host:port", or nothing.
kx::String wayOf(const CFailureDetails& details)
{
    return details.proxy.isEmpty() ? kx::String() : " through the proxy " + details.proxy;
}

kx::String connectText(const CFailureDetails& details, const kx::String& time)
{
    const kx::String accepted = "The server " + details.host + " accepted a connection" + wayOf(details) + ", but ";
    switch (details.phase) {
    case TransferPhase::NameLookup:
        return "The name lookup for " + details.host + " was not done within " + time + ".";
    case TransferPhase::Encryption:
        return accepted + "agreed on no encryption within " + time + ".";
    case TransferPhase::Connect:
        if (!details.proxy.isEmpty())
            return "No connection to the server " + details.host + " was made" + wayOf(details) + " within " + time
                + ".";
        return "The server " + details.host + " did not accept a connection within " + time + ".";
    default: // FTP asks for the folder behind the login
        return accepted + "was not done with greeting and login within " + time + ".";
    }
}

kx::String inactivityText(const CFailureDetails& details, const kx::String& time)
{
    switch (details.phase) {
    case TransferPhase::Receiving:
        return "The server " + details.host + " has sent nothing more for " + time + ".";
    case TransferPhase::Sending:
        return "Nothing could be sent to the server " + details.host + wayOf(details) + " for " + time
            + ", and it has not answered.";
    default:
        return "The server " + details.host + " has not answered" + wayOf(details) + " for " + time + ".";
    }
}

kx::String totalText(const CFailureDetails& details, const kx::String& time)
{
    const auto doing = [&details]() -> kx::String {
        switch (details.phase) {
        case TransferPhase::NameLookup:
            return "the name was still being looked up";
        case TransferPhase::Encryption:
            return "the server accepted a connection" + wayOf(details) + ", but agreed on no encryption";
        case TransferPhase::Login:
            return "the server was not done with greeting and login";
        case TransferPhase::Sending:
            return "it was still being sent" + wayOf(details);
        case TransferPhase::Waiting:
            return "the server had not answered" + wayOf(details);
        case TransferPhase::Receiving:
            return "the answer was still coming";
        default:
            return details.proxy.isEmpty() ? "the server did not accept a connection"
                                           : "no connection was made" + wayOf(details);
        }
    };
    return "The transfer with " + details.host + " was not done within " + time + ": " + doing() + ".";
}

/// Whether so many microseconds are the limit: libcurl counts in milliseconds, rounded either way.
bool isReached(long long microseconds, long long limit) noexcept
{
    constexpr long long rounding = 2;
    return limit > 0 && microseconds / microsecondsOfAMillisecond + rounding >= limit;
}

bool isConnecting(TransferPhase phase) noexcept
{
    return phase == TransferPhase::NameLookup || phase == TransferPhase::Connect || phase == TransferPhase::Encryption;
}

} // namespace

void CTransferLimits::noticeNumber(CURLoption option, long long value) noexcept
{
    switch (option) {
    case CURLOPT_CONNECTTIMEOUT:
        m_connect = value * millisecondsOfASecond;
        break;
    case CURLOPT_CONNECTTIMEOUT_MS:
        m_connect = value;
        break;
    case CURLOPT_LOW_SPEED_TIME:
        m_inactivity = value * millisecondsOfASecond;
        break;
    case CURLOPT_TIMEOUT:
        m_total = m_told = value * millisecondsOfASecond;
        break;
    case CURLOPT_TIMEOUT_MS:
        m_total = m_told = value;
        break;
    default:
        break;
    }
}

void CTransferLimits::forgetOptions() noexcept
{
    const auto until = m_until;
    *this = CTransferLimits();
    m_until = until;
}

std::optional<long long> CTransferLimits::begin(Clock::time_point now) noexcept
{
    constexpr long long longest = std::numeric_limits<int>::max(); // that libcurl takes
    m_left = 0;
    if (m_until) {
        const auto left = std::chrono::floor<std::chrono::milliseconds>(*m_until - now);
        m_left = std::clamp<long long>(left.count(), 1, longest); // 0 would be no limit
    }
    const long long total = getTotal();
    return std::exchange(m_told, total) == total ? std::nullopt : std::optional(total);
}

long long CTransferLimits::getTotal() const noexcept
{
    return m_total == 0 || m_left == 0 ? std::max(m_total, m_left) : std::min(m_total, m_left);
}

long long CTransferLimits::getLongestSilence() const noexcept
{
    constexpr long long longestConnect = 300'000; // libcurl's own
    return m_inactivity == 0 ? 0 : m_inactivity + (m_connect == 0 ? longestConnect : m_connect);
}

TransferLimit CTransferLimits::findReached(const CTransferRecord& record, TransferPhase phase) const noexcept
{
    const bool isBefore = !record.hasRequestBegun();
    // First, because libcurl then says goodbye, and waits once more, which it does for no other limit.
    if (isBefore && isReached(record.getSilentMicroseconds(), m_inactivity))
        return TransferLimit::Inactivity;
    if (isReached(record.getTotalMicroseconds(), getTotal()))
        return TransferLimit::Total;
    if (isBefore && isReached(record.getHopMicroseconds(), m_connect))
        return TransferLimit::Connect;
    return m_inactivity > 0 && !isConnecting(phase) ? TransferLimit::Inactivity : TransferLimit::None;
}

kx::String CTransferLimits::describe(const CFailureDetails& details) const
{
    switch (details.limit) {
    case TransferLimit::Connect:
        return connectText(details, durationText(m_connect));
    case TransferLimit::Inactivity:
        return inactivityText(details, durationText(m_inactivity));
    case TransferLimit::Total:
        return totalText(details, durationText(getTotal()));
    default:
        return kx::String();
    }
}

} // namespace norla
