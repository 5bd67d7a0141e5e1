#include "norla/pool/CTransferWork.h"

#include "kx/base/CError.h"
#include "kx/base/CStdExceptionError.h"
#include "kx/log/log.h"

#include <algorithm>
#include <utility>

namespace norla {

kx::P<CTransfer> CTransferWork::make(CNetRequest& request, const CTransfer::Options& options, kx::P<IExecutor> executor,
    std::shared_ptr<CLoopInbox> inbox)
{
    auto work = std::make_unique<CTransferWork>(request, options, std::move(executor), std::move(inbox));
    CTransferWork& its = *work;
    kx::P<CTransfer> transfer(new CTransfer(std::move(work)));
    its.m_transfer = transfer.get();
    return transfer;
}

CTransferWork::CTransferWork(CNetRequest& theRequest, const CTransfer::Options& theOptions, kx::P<IExecutor> executor,
    std::shared_ptr<CLoopInbox> theInbox)
    : request(&theRequest)
    , inbox(std::move(theInbox))
    , retries(theOptions.retries)
    , m_options(theOptions)
    , m_hasOnProgress(theOptions.onProgress)
    , m_hasOnDone(theOptions.onDone)
    , m_executor(std::move(executor))
    , m_callbacks(std::make_shared<CCallbacks>())
{
    m_options.executor = nullptr;
    m_callbacks->onProgress = std::exchange(m_options.onProgress, nullptr);
    m_callbacks->onDone = std::exchange(m_options.onDone, nullptr);
}

CTransferWork::~CTransferWork() = default;

bool CTransferWork::wait(int timeoutMs) const
{
    if (timeoutMs != 0 && !isDone()) {
        if (inbox->isOwner())
            throw kx::CError(
                "The end of a transfer cannot be waited for on the pool's own thread, which brings it about.");
        if (!inbox->isOfThisProcess())
            throw kx::CError(
                "The end of a transfer cannot be waited for in a child process, which has no thread of the pool.");
    }
    return m_done.wait(timeoutMs);
}

kx::P<kx::CError> CTransferWork::getError() const
{
    const std::lock_guard lock(m_mutex);
    return m_error;
}

// Whoever asks once will ask again. What is looked at anyway need not be asked for.
CTransferProgress CTransferWork::getProgress()
{
    if (!m_hasOnProgress && !m_isProgressAsked.exchange(true) && !isDone())
        inbox->ask(*this, CLoopInbox::ToLook);
    const std::lock_guard lock(m_mutex);
    return m_progress;
}

kx::TArray<CAttempt> CTransferWork::getAttempts() const
{
    const std::lock_guard lock(m_mutex);
    return m_attempts;
}

std::optional<CTransferWork::CMoment> CTransferWork::getNextMoment() const noexcept
{
    std::optional<CMoment> first;
    for (const std::optional<CMoment>& moment : {end, attemptEnd, nextAttempt, nextProgress}) {
        if (moment && (!first || *moment < *first))
            first = moment;
    }
    return first;
}

void CTransferWork::setProgress(const CTransferProgress& progress)
{
    const std::lock_guard lock(m_mutex);
    m_progress = progress;
}

void CTransferWork::setAttempts()
{
    if (!hasRetries())
        return;
    const kx::TArray<CAttempt>& attempts = retries.getAttempts();
    const std::lock_guard lock(m_mutex);
    m_attempts.insert(
        m_attempts.end(), attempts.begin() + static_cast<std::ptrdiff_t>(m_attempts.size()), attempts.end());
}

void CTransferWork::tellProgress()
{
    if (!m_hasOnProgress || !m_isProgressTold.exchange(false))
        return;
    try {
        if (m_executor)
            m_executor->execute([self = kx::P<CTransfer>(m_transfer)] { of(*self).callOnProgress(); });
        else
            callOnProgress();
    } catch (...) {
        m_isProgressTold = true; // the next one may get through
        throw;
    }
}

// An executor that takes no more, so that the end is told elsewhere, may still be within this.
void CTransferWork::callOnProgress()
{
    m_isProgressTold = true;
    if (isDone())
        return; // the end tells the last one
    try {
        CTransferProgress progress;
        std::shared_ptr<const CCallbacks> callbacks;
        {
            const std::lock_guard lock(m_mutex);
            progress = m_progress;
            callbacks = m_callbacks;
        }
        if (callbacks)
            callbacks->onProgress(progress);
    } catch (const std::exception& error) {
        {
            const std::lock_guard lock(m_mutex);
            if (!m_callbackError)
                m_callbackError = kx::CStdExceptionError::exceptionToError(error);
        }
        inbox->ask(*this, CLoopInbox::ToFail);
    }
}

kx::P<kx::CError> CTransferWork::getCallbackError() const
{
    const std::lock_guard lock(m_mutex);
    return m_callbackError;
}

void CTransferWork::setEnd(TransferState state, kx::P<kx::CError> error)
{
    {
        const std::lock_guard lock(m_mutex);
        m_error = std::move(error);
        if (!m_attempts.empty())
            m_attempts.back().pause = kx::CTimeSpan(); // which may have been meant to be longer than there was time
    }
    m_state = state;
    m_done.set();
}

void CTransferWork::tellEnd() noexcept
{
    const kx::P<IExecutor> executor = std::move(m_executor);
    if (!m_hasOnProgress && !m_hasOnDone)
        return;
    try {
        if (executor)
            executor->execute([self = kx::P<CTransfer>(m_transfer)] { of(*self).callOnDone(); });
        else
            callOnDone();
    } catch (const std::exception& error) {
        kx::logErrorQuietly(
            error, "An executor has not taken the end of a transfer, which is told on the pool's thread.");
        callOnDone();
    }
}

void CTransferWork::callOnDone() noexcept
{
    std::shared_ptr<const CCallbacks> callbacks; // they may hold what holds this
    {
        const std::lock_guard lock(m_mutex);
        callbacks = std::exchange(m_callbacks, nullptr);
    }
    if (!callbacks)
        return; // an executor has thrown, and has taken it all the same
    try {
        if (callbacks->onProgress)
            callbacks->onProgress(m_progress); // which does not change any more
    } catch (const std::exception& error) {
        kx::logErrorQuietly(error, "A transfer's onProgress has thrown at its end (ignored).");
    }
    try {
        if (callbacks->onDone)
            callbacks->onDone(*m_transfer);
    } catch (const std::exception& error) {
        kx::logErrorQuietly(error, "A transfer's onDone has thrown (ignored).");
    }
}

} // namespace norla
