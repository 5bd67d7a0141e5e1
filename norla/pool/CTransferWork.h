#pragma once

#include "kx/threads/CSignal.h"
#include "norla/core/CNetRequest.h"
#include "norla/core/CRetries.h"
#include "norla/pool/CLoopInbox.h"
#include "norla/pool/CTransfer.h"
#include "norla/pool/TTimerQueue.h"
#include "norla/pool/TTransferQueue.h"

#include <atomic>
#include <mutex>

namespace norla {

/// What a pool knows of one transfer. Each part says who may touch it.
class CTransferWork {
public:
    using CMoment = TTimerQueue<CTransferWork>::CMoment;
    using CPlace = TTransferQueue<CTransferWork*>::CPlace;

    /// @param executor for the callbacks; null: the pool's thread
    static kx::P<CTransfer> make(CNetRequest& request, const CTransfer::Options& options, kx::P<IExecutor> executor,
        std::shared_ptr<CLoopInbox> inbox);
    static CTransferWork& of(const CTransfer& transfer) noexcept { return *transfer.m_work; }

    CTransferWork(CNetRequest& request, const CTransfer::Options& options, kx::P<IExecutor> executor,
        std::shared_ptr<CLoopInbox> inbox);
    CTransferWork(const CTransferWork&) = delete;
    CTransferWork& operator=(const CTransferWork&) = delete;
    ~CTransferWork();

    // Any thread.

    const kx::P<CNetRequest> request;
    const std::shared_ptr<CLoopInbox> inbox; // of the thread that does it

    CTransfer& getTransfer() const noexcept { return *m_transfer; }
    const CTransfer::Options& getOptions() const noexcept { return m_options; } ///< without the callbacks
    bool hasRetries() const noexcept { return m_options.retries.attempts > 1; }
    TransferState getState() const noexcept { return m_state; }
    bool isDone() const noexcept { return m_done.isSet(); }
    bool wait(int timeoutMs) const;
    kx::P<kx::CError> getError() const;
    CTransferProgress getProgress();
    kx::TArray<CAttempt> getAttempts() const;

    // The inbox's, with its lock held.

    CLoopInbox::CSlip slip;

    // The schedule's, with its lock held.

    CPlace place;
    bool isWaiting = false;
    bool isRunning = false; // it has room, from the moment that its start is decided

    // The pool's thread's.

    CRetries retries;
    bool hasBegun = false;
    bool isInMulti = false;
    bool isWithdrawn = false; // the request's owner is not told
    std::optional<CMoment> timer;
    std::optional<CMoment> end;        // of all attempts
    std::optional<CMoment> attemptEnd; // of the current one
    std::optional<CMoment> nextAttempt;
    std::optional<CMoment> nextProgress;

    kx::P<kx::CError> lastError; // what the attempt before has ended with

    /// When something is to be done next, by the four above.
    std::optional<CMoment> getNextMoment() const noexcept;

    void setState(TransferState state) noexcept { m_state = state; }
    bool wantsProgress() const noexcept { return m_hasOnProgress || m_isProgressAsked; }
    void setProgress(const CTransferProgress& progress);
    void setAttempts();

    /// Tells how far it is, unless the executor has not told the last one yet.
    void tellProgress();

    /// What onProgress has thrown; null: nothing.
    kx::P<kx::CError> getCallbackError() const;

    /// It has ended: tells who waits.
    /// @param error null after a success
    void setEnd(TransferState state, kx::P<kx::CError> error);

    /// Calls the callbacks that tell the end.
    void tellEnd() noexcept;

private:
    struct CCallbacks {
        std::function<void(const CTransferProgress&)> onProgress;
        std::function<void(CTransfer&)> onDone;
    };

    void callOnProgress();
    void callOnDone() noexcept;

    CTransfer* m_transfer = nullptr; // lives longer
    CTransfer::Options m_options;
    const bool m_hasOnProgress;
    const bool m_hasOnDone;
    kx::P<IExecutor> m_executor; // until the end, or else one that runs nothing would stay for what waits in it
    std::atomic<TransferState> m_state{TransferState::Queued};
    std::atomic<bool> m_isProgressAsked{false};
    std::atomic<bool> m_isProgressTold{true};
    kx::CSignal m_done;
    mutable std::mutex m_mutex;              // guards what follows
    std::shared_ptr<CCallbacks> m_callbacks; // until the end is told
    CTransferProgress m_progress;
    kx::P<kx::CError> m_error;
    kx::P<kx::CError> m_callbackError; // what onProgress has thrown
    kx::TArray<CAttempt> m_attempts;
};

} // namespace norla
