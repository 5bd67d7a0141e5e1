#include "norla/core/CRetries.h"

#include "norla/core/CCURLError.h"
#include "norla/core/CManagedRequest.h"
#include "norla/core/CNetRequest.h"
#include "norla/core/CRepeatability.h"
#include "norla/core/isTransient.h"
#include "norla/core/retryAfter.h"
#include "norla/http/util.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <utility>

namespace norla {

namespace {

constexpr long long forever = std::numeric_limits<long long>::max(); // in microseconds

/// Of a limit for which zero and infinite mean none.
long long limitOf(const kx::CTimeSpan& span) noexcept
{
    return span.isInfinite() || span == kx::CTimeSpan() ? forever : std::max(0LL, span.getMicroseconds());
}

long long lengthOf(const kx::CTimeSpan& span) noexcept
{
    return span.isInfinite() ? forever : std::max(0LL, span.getMicroseconds());
}

/// @param pauses that came before
long long pauseWithoutJitter(const CRetryPolicy& policy, size_t pauses) noexcept
{
    const long long first = lengthOf(policy.firstPause);
    if (first == 0)
        return 0; // which an infinite factor would make no number of
    const double growth = policy.growth > 1 ? policy.growth : 1;
    const double pause = static_cast<double>(first) * std::pow(growth, static_cast<double>(pauses));
    const long long longest = lengthOf(policy.longestPause);
    constexpr double largest = 9e18; // that is less than 2^63
    return std::min(longest, pause < largest ? static_cast<long long>(pause) : forever);
}

bool asksToWait(const kx::CError& error) noexcept
{
    constexpr int tooManyRequests = 429; // RFC 6585 section 4
    constexpr int serviceUnavailable = 503;
    try {
        const int status = getHTTPStatusCodeFromError(error);
        return status == tooManyRequests || status == serviceUnavailable;
    } catch (const std::exception&) {
        return false; // an error of somebody else's, whose property is no number
    }
}

/// Zero when the server does not say.
kx::CTimeSpan leastPauseAfter(const CNetRequest& request, const kx::CError& error)
{
    if (!asksToWait(error))
        return {};
    return getRetryAfter(request.getResponseHeaderMap(), kx::CTime::now()).value_or(kx::CTimeSpan());
}

} // namespace

CRetries::CRetries(const CRetryPolicy& policy)
    : m_policy(policy)
    , m_start(Clock::now())
{
    if (policy.seed)
        m_random = std::make_unique<kx::CMTRand>(*policy.seed);
}

void CRetries::start()
{
    m_attempts.clear();
    m_isReplaced = false;
    m_start = Clock::now();
}

std::optional<kx::CTimeSpan> CRetries::afterFailure(CNetRequest& request, const kx::CError& error)
{
    const CRepeatability repeatability = CManagedRequest(request).getRepeatability();
    if (!std::exchange(m_isReplaced, false) && wasSwallowed(repeatability, error)
        && CManagedRequest(request).rewind()) {
        m_isReplaced = true;
        return kx::CTimeSpan();
    }
    record(request, error.clone());
    const std::optional<kx::CTimeSpan> pause = pauseAfter(request, repeatability, error);
    m_attempts.back().pause = pause.value_or(kx::CTimeSpan());
    return pause;
}

void CRetries::afterSuccess(CNetRequest& request)
{
    m_isReplaced = false;
    record(request, nullptr);
}

// The server has closed an open connection in the moment in which it was used again. libcurl begins anew by itself, but
// not where it cannot send a body, with HTTP/2 mostly not, and with FTP and mail never. A stream of HTTP/2 that has no
// end is a partial file to it, also one without a beginning.
bool CRetries::wasSwallowed(const CRepeatability& repeatability, const kx::CError& error) const
{
    constexpr std::array results
        = {CURLE_GOT_NOTHING, CURLE_SEND_ERROR, CURLE_RECV_ERROR, CURLE_HTTP2, CURLE_PARTIAL_FILE};
    const bool isLost
        = error.getDomain() == "curl" && std::find(results.begin(), results.end(), error.getCode()) != results.end();
    return isLost && repeatability.isUnanswered && !repeatability.isOwnError && mayRepeat(repeatability)
        && isWithinBudget(kx::CTimeSpan());
}

bool CRetries::mayRepeat(const CRepeatability& repeatability) const noexcept
{
    return m_policy.repeatUnsafe || repeatability.isHarmless;
}

bool CRetries::mayGoAway(const CRepeatability& repeatability, const kx::CError& error) const
{
    return m_policy.isTransient ? m_policy.isTransient(error) : !repeatability.isOwnError && isTransient(error);
}

std::optional<kx::CTimeSpan> CRetries::pauseAfter(
    CNetRequest& request, const CRepeatability& repeatability, const kx::CError& error)
{
    const size_t attempts = static_cast<size_t>(std::max(1, m_policy.attempts));
    if (m_attempts.size() >= attempts || !mayRepeat(repeatability) || !mayGoAway(repeatability, error))
        return std::nullopt;
    const kx::CTimeSpan least = leastPauseAfter(request, error);
    if (least.getMicroseconds() > lengthOf(m_policy.longestRetryAfter))
        return std::nullopt;
    const kx::CTimeSpan pause
        = kx::CTimeSpan::fromMicroseconds(std::max(nextPause().getMicroseconds(), least.getMicroseconds()));
    return isWithinBudget(pause) && CManagedRequest(request).rewind() ? std::optional(pause) : std::nullopt;
}

kx::CTimeSpan CRetries::nextPause()
{
    const long long longest = pauseWithoutJitter(m_policy, m_attempts.size() - 1);
    if (!m_policy.jitter)
        return kx::CTimeSpan::fromMicroseconds(longest);
    // By the remainder and not by a distribution of the standard library, of which each has others.
    const unsigned long long random = m_random ? m_random->rand64() : kx::rand64();
    return kx::CTimeSpan::fromMicroseconds(
        static_cast<long long>(random % (static_cast<unsigned long long>(longest) + 1)));
}

bool CRetries::isWithinBudget(const kx::CTimeSpan& pause) const noexcept
{
    const kx::CTimeSpan left = getTimeLeft();
    return left.isInfinite() || pause.getMicroseconds() < left.getMicroseconds();
}

kx::CTimeSpan CRetries::getTimeLeft() const noexcept
{
    const long long budget = limitOf(m_policy.budget);
    if (budget == forever)
        return kx::CTimeSpan::infinite();
    const auto elapsed = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - m_start).count();
    return kx::CTimeSpan::fromMicroseconds(std::max(0LL, budget - static_cast<long long>(elapsed)));
}

void CRetries::record(CNetRequest& request, kx::P<kx::CError> error)
{
    CTransferInfo info = request.getTransferInfo();
    const long long began = kx::CTime::now().getMicroseconds() - info.times.total.getMicroseconds();
    m_attempts.push_back({kx::CTime(began), std::move(info), std::move(error), kx::CTimeSpan()});
}

} // namespace norla
