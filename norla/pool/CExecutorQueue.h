#pragma once

#include "kx/base/CBase.h"
#include "norla/pool/IExecutor.h"

#include <memory>

namespace norla {

/// Tasks that wait until somebody runs them: the owner of a main loop watches the descriptor (poll, epoll, GLib, Qt)
/// and calls runPending() when it is readable, so that callbacks come on the thread of that loop.
class KX_EXPORT CExecutorQueue : public kx::CBase, public virtual IExecutor {
public:
    /// @throws kx::CError when the system has no descriptor to give
    CExecutorQueue();
    CExecutorQueue(const CExecutorQueue&) = delete;
    CExecutorQueue& operator=(const CExecutorQueue&) = delete;

    /// Tasks that have not run are destroyed.
    ~CExecutorQueue() override;

    /// Any thread.
    void execute(std::function<void()> task) override;

    /// Readable while tasks wait. Not to be read or closed; stays the same as long as the queue lives.
    int getDescriptor() const noexcept;

    /// Runs the tasks that wait now, in the order in which they came; what they add waits for the next call. One thread
    /// at a time. When a task throws, the others still wait. A task may call it too (a dialog whose main loop runs
    /// within it), which runs the others, and may let the queue go, which destroys them.
    /// @return how many have run, without those that a task has run in this way
    int runPending();

private:
    struct CTasks;
    const std::shared_ptr<CTasks> m_tasks;
};

} // namespace norla
