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

    std::function<void()> takeFirst()
    {
        const std::lock_guard lock(mutex);
        std::function<void()> task = std::move(waiting.front());
        waiting.pop_front();
        if (waiting.empty())
            event.clear();
        return task;
    }
};

CExecutorQueue::CExecutorQueue()
    : m_tasks(std::make_unique<CTasks>())
{
}

CExecutorQueue::~CExecutorQueue() = default;

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

int CExecutorQueue::runPending()
{
    size_t count = 0;
    {
        const std::lock_guard lock(m_tasks->mutex);
        count = m_tasks->waiting.size();
    }
    for (size_t run = 0; run < count; ++run)
        m_tasks->takeFirst()();
    return static_cast<int>(count);
}

} // namespace norla
