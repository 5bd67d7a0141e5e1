#pragma once

#include "kx/time/CTimeSpan.h"
#include "norla/core/CFailureDetails.h"

#include <curl/curl.h>

#include <chrono>
#include <optional>

namespace norla {

class CTransferRecord;

/// Which limits of time a request has set, and which of them has ended a transfer: libcurl says it in words alone. Used
/// by the thread of the transfer.
class CTransferLimits {
public:
    using Clock = std::chrono::steady_clock;

    /// What was set; other options than those of time limits are ignored.
    void noticeNumber(CURLoption option, long long value) noexcept;

    /// Beside what was set, all transfers that begin from now on have ended by then, also behind forgetOptions().
    /// @param until empty: no such limit any more
    void limitUntil(std::optional<Clock::time_point> until) noexcept { m_until = until; }

    /// A transfer begins.
    /// @return the limit of the whole transfer that libcurl is to be told, in milliseconds, 0 for none; empty when it
    /// knows
    std::optional<long long> begin(Clock::time_point now = Clock::now()) noexcept;

    /// How long a connection may take, and nothing may move behind it, one after the other: milliseconds, 0 for ever.
    long long getLongestSilence() const noexcept;

    /// The handle's options are what they were at first (curl_easy_reset()).
    void forgetOptions() noexcept;

    /// Errors are to say which limit it was, in words of their own.
    void speak() noexcept { m_speaks = true; }
    bool doesSpeak() const noexcept { return m_speaks; }

    /// Of a transfer that was ended by a time limit, and of whose server nothing says that it was the one to end it.
    /// @param phase not of a transfer that has not begun
    TransferLimit findReached(const CTransferRecord& record, TransferPhase phase) const noexcept;

    /// A whole sentence about the details' limit. Empty for None.
    /// @param details with limit, phase, host and proxy
    kx::String describe(const CFailureDetails& details) const;

private:
    long long getTotal() const noexcept;

    long long m_connect = 0; // each in milliseconds, 0 for none
    long long m_inactivity = 0;
    long long m_total = 0;
    std::optional<Clock::time_point> m_until;
    long long m_left = 0; // until then, for the current transfer
    long long m_told = 0; // what libcurl has
    bool m_speaks = false;
};

} // namespace norla
