#pragma once

#include "kx/containers/TArray.h"
#include "kx/random/CMTRand.h"
#include "kx/time/CTimeSpan.h"
#include "norla/core/CAttempt.h"
#include "norla/core/CRetryPolicy.h"

#include <chrono>
#include <memory>
#include <optional>

namespace norla {

class CNetRequest;
struct CRepeatability;

/// The attempts that one transfer takes, and whether there is another one. Neither performs nor waits: who drives the
/// request does, be it on a thread of its own or in an event loop. Used by one thread at a time.
class KX_EXPORT CRetries {
public:
    explicit CRetries(const CRetryPolicy& policy);

    /// The first attempt is about to begin: the budget counts from here. Forgets the attempts of an earlier transfer.
    void start();

    /// An attempt has ended with that error, and nobody has touched the request since. When there is to be another
    /// attempt, the source of its body is back at its start.
    /// @return how long to wait before the next attempt, which may be zero; empty: there is none, and the error is the
    /// end
    /// @throws what CRetryPolicy::isTransient throws; std::bad_alloc
    std::optional<kx::CTimeSpan> afterFailure(CNetRequest& request, const kx::CError& error);

    /// An attempt has succeeded.
    void afterSuccess(CNetRequest& request);

    /// Those that have ended, the first one first, without those that were made in place of another.
    const kx::TArray<CAttempt>& getAttempts() const noexcept { return m_attempts; }

    /// Whether the attempt that afterFailure() has just asked for is made in place of the one that has ended.
    bool isReplaced() const noexcept { return m_isReplaced; }

    /// What is left of the budget, never negative; infinite without one. To an attempt that begins now this is a limit
    /// of time.
    kx::CTimeSpan getTimeLeft() const noexcept;

private:
    using Clock = std::chrono::steady_clock;

    bool wasSwallowed(const CRepeatability& repeatability, const kx::CError& error) const;
    bool mayRepeat(const CRepeatability& repeatability) const noexcept;
    bool mayGoAway(const CRepeatability& repeatability, const kx::CError& error) const;
    std::optional<kx::CTimeSpan> pauseAfter(
        CNetRequest& request, const CRepeatability& repeatability, const kx::CError& error);
    kx::CTimeSpan nextPause();
    bool isWithinBudget(const kx::CTimeSpan& pause) const noexcept;
    void record(CNetRequest& request, kx::P<kx::CError> error);

    const CRetryPolicy m_policy;
    std::unique_ptr<kx::CMTRand> m_random; // null: the process's own
    Clock::time_point m_start;
    kx::TArray<CAttempt> m_attempts;
    bool m_isReplaced = false; // the attempt that is running was made in place of another
};

} // namespace norla
