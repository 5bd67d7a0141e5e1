#include "norla/pool/CTransferThread.h"

#include "kx/base/CError.h"
#include "kx/threads/processGeneration.h"
#include "norla/pool/CAllSignalsBlock.h"
#include "norla/pool/CTransferSchedule.h"

#include <chrono>
#include <pthread.h>
#include <system_error>
#include <utility>

namespace norla {

CTransferThread::CTransferThread(std::shared_ptr<CTransferSchedule> schedule, long idleConnections)
    : m_process(kx::processGeneration())
    , m_loop(std::make_shared<CTransferLoop>(std::move(schedule), idleConnections))
    , m_thread(run(m_loop, m_end))
    , m_id(m_thread->get_id())
{
}

std::unique_ptr<std::thread> CTransferThread::run(std::shared_ptr<CTransferLoop> loop, std::future<void>& end)
{
    std::promise<void> promise;
    end = promise.get_future();
    const CAllSignalsBlock block; // inherited
    try {
        return std::make_unique<std::thread>([loop = std::move(loop), promise = std::move(promise)]() mutable {
            pthread_setname_np(pthread_self(), "norla.pool");
            loop->run();
            loop.reset();
            promise.set_value();
        });
    } catch (const std::system_error& error) {
        throw kx::CError("The pool's thread cannot be started: " + kx::String::fromLatin1(error.what()) + ".");
    }
}

CTransferThread::~CTransferThread()
{
    askToStop();
    join();
    if (kx::processGeneration() != m_process) {
        static_cast<void>(m_thread.release());
        m_loop->forget();
    } else if (m_thread->joinable()) {
        m_thread->detach(); // the own one, whose last turn needs nobody
    }
}

void CTransferThread::askToStop() noexcept
{
    if (kx::processGeneration() == m_process)
        getInbox()->askToStop();
}

void CTransferThread::join() noexcept
{
    if (kx::processGeneration() != m_process || isCurrent())
        return;
    constexpr auto patience = std::chrono::milliseconds(20);
    const std::lock_guard lock(m_mutex);
    while (m_end.wait_for(patience) != std::future_status::ready)
        m_loop->endLongCalls();
    m_id = std::thread::id();
    if (m_thread->joinable())
        m_thread->join();
}

} // namespace norla
