#pragma once

#include "kx/base/CError.h"
#include "kx/time/CTimeSpan.h"

#include <functional>
#include <optional>

namespace norla {

/// After which failures a transfer is tried again, how often, and how long is waited before:
/// `performWithRetries(*request, {.attempts = 5, .budget = kx::CTimeSpan::fromSeconds(60)})`. A value; fields are named
/// in the order in which they stand here.
///
/// A failed attempt is followed by another one when its error may be gone the next time (isTransient), when asking
/// twice does no harm (repeatUnsafe), and when all can begin anew: the body to be sent at its start, and the sink, if
/// it has taken something, as IDataSink::canBeginAgain() says.
struct CRetryPolicy {
    /// All in all, with the first one; 1 or less: one. Not counted is an attempt in place of one that an open
    /// connection has swallowed: the server closed it in the moment in which it was used again, and has answered
    /// nothing. There is one such for each attempt at most; most of those of HTTP/1.1 libcurl makes by itself.
    int attempts = 3;

    /// Before the second attempt, and the pause that no later one exceeds. Negative: none. The longest may be infinite.
    kx::CTimeSpan firstPause = kx::CTimeSpan::fromMilliseconds(500);
    kx::CTimeSpan longestPause = kx::CTimeSpan::fromSeconds(30);

    /// Each pause is so many times the one before; 1 or less: they are all as long as the first.
    double growth = 2;

    /// Whether a pause is a random one between zero and what the above says, so that not all clients of a server that
    /// was down come back in the same moment.
    bool jitter = true;

    /// For all attempts and pauses together, from the start of the first attempt. Where a pause would not end within
    /// it, the last error is the end at once; an attempt that would go on beyond it ends with a time-out. Zero and the
    /// infinite span: no such limit; negative: nothing is left from the start.
    kx::CTimeSpan budget = {};

    /// A server that answers 429 or 503 may say how long it wants to be left alone ("Retry-After"): no pause is shorter
    /// than that. Where it says more than this, its error is the end. Infinite: whatever it says.
    kx::CTimeSpan longestRetryAfter = kx::CTimeSpan::fromSeconds(60);

    /// Whether also that is repeated which may do its work twice. Otherwise it is only: of HTTP the methods GET, HEAD,
    /// PUT, DELETE, OPTIONS and TRACE (RFC 9110 section 9.2.2); of FTP and SSH what fetches, lists or stores one file,
    /// but nothing that appends and nothing with further commands; a mail of which the server has not begun to take the
    /// data.
    bool repeatUnsafe = false;

    /// The same number gives the same pauses. Empty: random ones.
    std::optional<unsigned> seed = {};

    /// Whether an error may be gone the next time. Empty: what norla::isTransient() says, and false for what a sink, a
    /// source or another callback has thrown. Called on the thread of the transfer; what it throws ends the attempts.
    std::function<bool(const kx::CError&)> isTransient = {};

    /// One attempt, whatever comes.
    static CRetryPolicy none()
    {
        CRetryPolicy policy;
        policy.attempts = 1;
        return policy;
    }
};

} // namespace norla
