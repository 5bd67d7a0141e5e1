#include "norla/core/performWithRetries.h"

#include "kx/threads/CThread.h"
#include "norla/core/CManagedRequest.h"
#include "norla/core/CNetRequest.h"
#include "norla/core/CRetries.h"

#include <algorithm>
#include <limits>

namespace norla {

namespace {

constexpr long long microsecondsInAMillisecond = 1000;

/// Of the transfers of a request, as long as the object lives; behind that there is none.
class CLimit {
public:
    explicit CLimit(CNetRequest& request)
        : m_request(request)
    {
    }
    CLimit(const CLimit&) = delete;
    CLimit& operator=(const CLimit&) = delete;
    ~CLimit() { set(kx::CTimeSpan::infinite()); }

    void set(const kx::CTimeSpan& left) noexcept { CManagedRequest(m_request).limitTransfers(left); }

private:
    CNetRequest& m_request;
};

void sleep(const kx::CTimeSpan& pause)
{
    const long long microseconds = pause.getMicroseconds();
    long long left = microseconds / microsecondsInAMillisecond
        + (microseconds % microsecondsInAMillisecond > 0 ? 1 : 0); // never less than a server has asked for
    while (left > 0) {
        const auto part = static_cast<int>(std::min<long long>(left, std::numeric_limits<int>::max()));
        kx::CThread::sleep(part);
        left -= part;
    }
}

/// @return how long to wait before the next attempt; empty after a success
/// @throws the error behind which there is none
std::optional<kx::CTimeSpan> attempt(
    CNetRequest& request, CRetries& retries, CLimit& limit, const std::function<void()>& perform)
{
    CManagedRequest(request).requireFree("norla::performWithRetries"); // or else its body would be rewound
    try {
        limit.set(retries.getTimeLeft());
        perform();
        return std::nullopt;
    } catch (const kx::CError& error) {
        const std::optional<kx::CTimeSpan> pause = retries.afterFailure(request, error);
        if (!pause)
            throw;
        return pause;
    }
}

} // namespace

kx::TArray<CAttempt> performWithRetries(CNetRequest& request, const CRetryPolicy& policy)
{
    return performWithRetries(request, policy, [&request] { request.perform(); });
}

kx::TArray<CAttempt> performWithRetries(
    CNetRequest& request, const CRetryPolicy& policy, const std::function<void()>& perform)
{
    CRetries retries(policy);
    CLimit limit(request);
    retries.start();
    while (const std::optional<kx::CTimeSpan> pause = attempt(request, retries, limit, perform))
        sleep(*pause);
    retries.afterSuccess(request);
    return retries.getAttempts();
}

} // namespace norla
