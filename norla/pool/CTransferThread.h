#pragma once

#include "norla/pool/CTransferLoop.h"

#include <atomic>
#include <future>
#include <memory>
#include <mutex>
#include <thread>

namespace norla {

/// A loop with the thread that runs it. Any thread may stop it, the own one as well.
class CTransferThread {
public:
    /// @throws kx::CError when the system has no thread to give; as CTransferLoop
    CTransferThread(std::shared_ptr<CTransferSchedule> schedule, long idleConnections);
    CTransferThread(const CTransferThread&) = delete;
    CTransferThread& operator=(const CTransferThread&) = delete;

    /// In a child process all is left as it is.
    ~CTransferThread();

    const std::shared_ptr<CLoopInbox>& getInbox() const noexcept { return m_loop->getInbox(); }

    /// To end what it does, and then itself. Returns at once.
    void askToStop() noexcept;

    /// Waits until it has stopped, and for no server; its own thread, and one of a child process, does not.
    void join() noexcept;

    bool isCurrent() const noexcept { return m_id == std::this_thread::get_id(); }

private:
    static std::unique_ptr<std::thread> run(std::shared_ptr<CTransferLoop> loop, std::future<void>& end);

    const unsigned int m_process;
    std::shared_ptr<CTransferLoop> m_loop; // the thread has a reference of its own
    std::mutex m_mutex;                    // guards the thread's end
    std::future<void> m_end;               // the thread's work is done
    std::unique_ptr<std::thread> m_thread; // a child process leaves it: its number may be that of one of the child's
    std::atomic<std::thread::id> m_id;     // until the thread's work is done; then another one may get it
};

} // namespace norla
