#pragma once

#include "kx/base/P.h"
#include "norla/pool/CEventDescriptor.h"

#include <atomic>
#include <mutex>
#include <thread>

namespace norla {

class CTransfer;
class CTransferWork;

/// What others ask of a pool's thread. Asking takes no memory and never fails: each transfer brings its own slip of
/// paper. Any thread, also when the pool's thread has gone. What a child process asks is nobody's: the thread is its
/// parent's.
class CLoopInbox {
public:
    /// What may be asked for one transfer, several at once.
    enum Asked : unsigned int {
        ToStart = 1,
        ToCancel = 2,
        ToWithdraw = 4, ///< to cancel it without telling the request's owner
        ToFail = 8,     ///< with what a callback has thrown
        ToLook = 16,    ///< how far it is
    };

    /// Guarded by the inbox.
    struct CSlip {
        unsigned int asked = 0; // 0: not in the inbox
        kx::P<CTransfer> transfer;
        CTransferWork* next = nullptr;
    };

    /// @throws kx::CError when the system has no descriptor to give
    CLoopInbox();
    CLoopInbox(const CLoopInbox&) = delete;
    CLoopInbox& operator=(const CLoopInbox&) = delete;

    /// The thread that takes everything out before it waits again: what it asks itself needs no signal.
    void setOwner(std::thread::id owner) noexcept { m_owner = owner; }

    void ask(CTransferWork& work, Asked what) noexcept;
    void askToStop() noexcept;

    /// Takes out who has waited longest. @return null when nobody waits, with nothing asked
    kx::P<CTransfer> take(unsigned int& asked) noexcept;

    bool isStopAsked() const noexcept;

    /// Whether nobody has asked anything since take() gave nothing: cheap enough to be looked at between any two steps.
    bool isEmpty() const noexcept { return !m_hasMail.load(std::memory_order_relaxed); }

    /// Whether who asks is the thread.
    bool isOwner() const noexcept { return std::this_thread::get_id() == m_owner; }

    /// Whether the thread is one of this process, and not of its parent.
    bool isOfThisProcess() const noexcept;

    /// For the thread, when a stop is asked: nothing is taken in any more, nor kept.
    /// @return false when something waits, which is to be taken out before
    bool close() noexcept;

    /// Readable while something waits.
    int getDescriptor() const noexcept { return m_event.get(); }

private:
    void signal() noexcept;

    const unsigned int m_process;
    CEventDescriptor m_event;
    mutable std::mutex m_mutex; // guards what follows, and the slips
    CTransferWork* m_first = nullptr;
    CTransferWork* m_last = nullptr;
    bool m_isStopAsked = false;
    bool m_isClosed = false;
    bool m_isSignalled = false;
    std::atomic<bool> m_hasMail{false};
    std::atomic<std::thread::id> m_owner;
};

} // namespace norla
