#include "norla/pool/CExecutorQueue.h"

#include "norla/pool/CEventDescriptor.h"

#include <deque>
#include <mutex>
#include <utility>

namespace norla {

struct CExecutorQueue::CTasks {
    std::mutex mutex; // guards the tasks, and the descriptor's state with them
    std::deque<std::function<void()>> waiting;
    CEventDescriptor event;

    size_t count()
    {
        const std::lock_guard lock(mutex);
        return waiting.size();
    }

    /// @return whether there was one
    bool takeFirst(std::function<void()>& task)
    {
        const std::lock_guard lock(mutex);
        if (waiting.empty())
            return false;
        task = std::move(waiting.front());
        waiting.pop_front();
        if (waiting.empty())
            event.clear();
        return true;
    }

    void discard()
    {
        std::deque<std::function<void()>> discarded; // which may hold what asks for the lock when it goes
        const std::lock_guard lock(mutex);
        discarded.swap(waiting);
    }
};

CExecutorQueue::CExecutorQueue()
    : m_tasks(std::make_shared<CTasks>())
{
}

CExecutorQueue::~CExecutorQueue()
{
    m_tasks->discard();
}

void CExecutorQueue::execute(std::function<void()> task)
{
    const std::lock_guard lock(m_tasks->mutex);
    m_tasks->waiting.push_back(std::move(task));
    if (m_tasks->waiting.size() == 1)
        m_tasks->event.signal();
}

int CExecutorQueue::getDescriptor() const noexcept
{
    return m_tasks->event.get();
}

// A task may run others by itself, and may let the queue go.
int CExecutorQueue::runPending()
{
    const std::shared_ptr<CTasks> tasks = m_tasks;
    const size_t count = tasks->count();
    int run = 0;
    for (std::function<void()> task; static_cast<size_t>(run) < count && tasks->takeFirst(task); task = nullptr) {
        ++run;
        task();
    }
    return run;
}

} // namespace norla
