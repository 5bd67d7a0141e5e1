#include "norla/pool/await.h"

#include "kx/log/log.h"
#include "norla/core/CNetRequest.h"

#include <mutex>
#include <utility>

namespace norla {

/// What the awaiting side, which may go, and the callbacks of the transfer have in common. Any thread.
class CTransferAwaiter::CState {
public:
    explicit CState(std::coroutine_handle<> coroutine) noexcept
        : m_coroutine(coroutine)
    {
    }

    bool isAwaited() const
    {
        const std::lock_guard lock(m_mutex);
        return static_cast<bool>(m_coroutine);
    }

    /// It has been started, and may have gone on since.
    void setStarted(const kx::P<CTransfer>& transfer)
    {
        {
            const std::lock_guard lock(m_mutex);
            if (m_coroutine) {
                m_transfer = transfer;
                return;
            }
        }
        transfer->cancel(); // nobody awaits it, or it has ended
    }

    /// @return who is to go on; null when that one has gone
    std::coroutine_handle<> setEnded(CTransfer& transfer)
    {
        const std::lock_guard lock(m_mutex);
        m_transfer = &transfer;
        return std::exchange(m_coroutine, nullptr);
    }

    kx::P<CTransfer> getTransfer() const
    {
        const std::lock_guard lock(m_mutex);
        return m_transfer;
    }

    /// The awaiting side goes, before the end or behind it.
    void leave() noexcept
    {
        kx::P<CTransfer> transfer; // which holds this as long as its end has not been told
        {
            const std::lock_guard lock(m_mutex);
            transfer = std::exchange(m_transfer, nullptr);
            m_coroutine = nullptr;
        }
        if (transfer)
            transfer->cancel();
    }

private:
    mutable std::mutex m_mutex;
    std::coroutine_handle<> m_coroutine; // null: nobody waits any more
    kx::P<CTransfer> m_transfer;
};

namespace {

/// Logged as those are that nobody awaits.
void tellDone(const std::function<void(CTransfer&)>& onDone, CTransfer& transfer) noexcept
{
    try {
        if (onDone)
            onDone(transfer);
    } catch (const std::exception& error) {
        kx::logErrorQuietly(error, "A transfer's onDone has thrown (ignored).");
    }
}

} // namespace

CTransferAwaiter::CTransferAwaiter(CTransferPool& pool, CNetRequest* request, const CTransfer::Options& options)
    : m_pool(pool)
    , m_request(request)
    , m_options(options)
{
}

CTransferAwaiter::~CTransferAwaiter()
{
    if (m_state)
        m_state->leave();
}

// Once it is started, this object may have gone.
void CTransferAwaiter::await_suspend(std::coroutine_handle<> coroutine)
{
    const auto state = std::make_shared<CState>(coroutine);
    m_state = state;
    CTransfer::Options options = m_options;
    if (options.onProgress)
        options.onProgress = [state, onProgress = m_options.onProgress](const CTransferProgress& progress) {
            if (state->isAwaited())
                onProgress(progress);
        };
    options.onDone = [state, onDone = m_options.onDone](CTransfer& transfer) {
        if (state->isAwaited())
            tellDone(onDone, transfer);
        if (const auto awaiting = state->setEnded(transfer)) // unless onDone has destroyed it
            awaiting.resume();
    };
    state->setStarted(m_pool.start(m_request.get(), options));
}

kx::P<CTransfer> CTransferAwaiter::await_resume() const
{
    kx::P<CTransfer> transfer = m_state->getTransfer();
    transfer->check();
    return transfer;
}

CTransferAwaiter CTransferPool::run(CNetRequest* request)
{
    return CTransferAwaiter(*this, request, CTransfer::Options());
}

CTransferAwaiter CTransferPool::run(CNetRequest* request, const CTransfer::Options& options)
{
    return CTransferAwaiter(*this, request, options);
}

} // namespace norla
