#pragma once

#include "kx/base/CBase.h"
#include "kx/base/P.h"
#include "kx/text/String.h"
#include "kx/threads/CSignal.h"
#include "kx/threads/IRunnable.h"

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace kx {

/// A thread with a name that is asked to stop, never killed. Runs the runnable it was made with, or its own runImpl().
/// start(), stop(), signalStop(), isAlive() and getID() may be called from any thread.
///
/// The last reference must not go on the thread itself: its body would go on without its object. That ends the process,
/// with an entry in the log.
///
/// A derived class that overrides runImpl() calls stop(true) in its own destructor: when this class's destructor runs,
/// the override is gone already.
class KX_EXPORT CThread : public CBase {
public:
    using ID = std::thread::id;

    /// @param runnable the body; null to run runImpl() of a derived class
    /// @param stopAtEnd whether the destructor asks a running thread to stop; otherwise it waits for the body's own end
    explicit CThread(IRunnable* runnable = nullptr, bool stopAtEnd = true);
    CThread(const CThread&) = delete;
    CThread& operator=(const CThread&) = delete;
    ~CThread() override;

    /// Shown by debuggers, where the system cuts it to 15 bytes. Set before the start.
    void setName(const String& name);
    String getName() const;

    /// Starts the body on a new thread. A thread that has ended may be started again.
    /// @throws CError when it runs already or the system has no thread to give
    void start();

    /// Asks the body to end.
    /// @param wait also waits until it has ended, as do all who ask for it at the same time; called on the thread
    /// itself it never waits
    virtual void stop(bool wait);

    /// Makes checkContinue() false from now on, until the next start().
    virtual void signalStop();

    /// Whether the body is to go on. It asks this regularly.
    virtual bool checkContinue() const;

    /// Whether the body is running, true from start() on.
    bool isAlive() const;

    /// The thread's identifier, the default one while none was started.
    ID getID() const;

    static ID getCurrentID() noexcept;

    /// Blocks the calling thread for that many milliseconds.
    static void sleep(int milliseconds);

protected:
    /// The body; the default runs the runnable. What leaves it, of whatever type, ends the thread and is logged.
    virtual void runImpl();

    /// Called on the thread after the body has ended, also by an error.
    virtual void onRunFinished();

private:
    void runGuarded() noexcept;
    void joinIfStarted(const std::function<void()>& tell);
    [[noreturn]] void endAfterDestructionOnItself() const noexcept;

    const P<IRunnable> m_runnable;
    const bool m_stopAtEnd;
    mutable std::mutex m_mutex; // guards the name, the thread object, its start and its end
    std::condition_variable m_joined;
    bool m_isJoining = false; // somebody waits for the end of what was the thread object
    String m_name = "kx.thread";
    std::thread m_thread;
    ID m_id;
    std::atomic<bool> m_stopSignalled{false};
    std::atomic<bool> m_alive{false};
};

} // namespace kx
