#pragma once

#include "kx/base/CBase.h"
#include "kx/base/CError.h"
#include "kx/base/P.h"
#include "kx/containers/TArray.h"
#include "kx/time/CTimeSpan.h"
#include "norla/core/CAttempt.h"
#include "norla/core/CRetryPolicy.h"
#include "norla/core/CTransferProgress.h"
#include "norla/pool/IExecutor.h"

#include <functional>
#include <memory>

namespace norla {

class CNetRequest;
class CTransferWork;

/// Where a transfer of a pool is. Succeeded, Failed and Cancelled are ends: one of them comes, and stays.
enum class TransferState {
    Queued,  ///< waits for room
    Running, ///< an attempt of it does
    Pausing, ///< an attempt has failed, and another one will be made
    Succeeded,
    Failed,
    Cancelled, ///< by cancel(), or with its pool
};

/// One start of a request in a CTransferPool, from start() to its one end. Any thread may use any operation, also
/// within callbacks, and also after the pool has gone. Nobody needs to keep it: the pool does until the end.
class KX_EXPORT CTransfer : public kx::CBase {
public:
    struct Options;

    CTransfer(const CTransfer&) = delete;
    CTransfer& operator=(const CTransfer&) = delete;
    ~CTransfer() override;

    /// Ends it, whatever it does, with an error of the kind Cancelled, and returns at once; does nothing after its end.
    /// The end is told as any other, once the pool's thread gets to it: at once as a rule, or behind what it is at just
    /// then, such as to read the root certificates for a TLS connection (15 to 50 ms), a callback, or a goodbye that
    /// libcurl waits for (docs/known-limits.md).
    void cancel();

    /// Blocks until its end is there, at most that many milliseconds: 0 only looks, a negative number waits without
    /// limit. Callbacks may still be under way then.
    /// @return whether it has ended
    /// @throws kx::CError on the pool's thread, where callbacks run without an executor, and in a child process (fork),
    /// before the end: nobody would bring it about
    bool wait(int timeoutMs = -1) const;

    bool isDone() const noexcept;
    TransferState getState() const noexcept;

    /// Throws a copy of the error with which it ended; does nothing after a success, and before the end.
    void check() const;

    /// Null after a success, and before the end.
    kx::P<kx::CError> getError() const;

    /// While it runs it may be up to 100 ms old; before the first question, and without Options::onProgress, it is that
    /// of the attempt's beginning.
    CTransferProgress getProgress() const;

    /// Those that have ended, the first one first. Recorded where Options::retries allows more than one; of a single
    /// one the request tells (CNetRequest::getTransferInfo()).
    kx::TArray<CAttempt> getAttempts() const;

    /// What was given to start(): not to be touched before the end.
    CNetRequest& getRequest() const noexcept;

private:
    friend class CTransferWork;
    explicit CTransfer(std::unique_ptr<CTransferWork> work) noexcept;

    const std::unique_ptr<CTransferWork> m_work;
};

/// How one start of a request goes. A value. Fields are named in the order in which they stand here.
struct CTransfer::Options {
    /// Greater ones are started before smaller ones.
    int priority = 0;

    /// Of each attempt, from its start: the queue does not count. Zero and the infinite span: no limit of its own,
    /// beside those of the request. Not negative. Behind an attempt that it ends there may be another one.
    kx::CTimeSpan attemptDeadline = {};

    /// The same of all attempts and the pauses between them, from the start of the first.
    kx::CTimeSpan deadline = {};

    /// After which failures it is tried again.
    CRetryPolicy retries = CRetryPolicy::none();

    /// Told at most every 100 ms while an attempt runs, also when nothing moves, and once more before onDone. A
    /// std::exception that it throws ends the transfer with that error, as Failed; thrown the last time it is logged.
    std::function<void(const CTransferProgress&)> onProgress = {};

    /// Told at the end, exactly once for each start, also of a transfer that was cancelled. A std::exception
    /// that it throws is logged.
    std::function<void(CTransfer&)> onDone = {};

    /// Where these two are called; null: where the pool's options say. A reference is kept until the end.
    kx::P<IExecutor> executor = {};
};

} // namespace norla
