#include "examples/desktop/CMainLoopExecutor.h"

#include <chrono>
#include <deque>
#include <functional>
#include <mutex>
#include <utility>

struct CMainLoopExecutor::CTasks {
    std::mutex mutex;
    std::deque<std::function<void()>> waiting;
    bool isAttached = false; ///< whether the loop will ask for them

    /// @return none when none waits: then the loop asks no more
    std::function<void()> take()
    {
        const std::lock_guard lock(mutex);
        if (waiting.empty()) {
            isAttached = false;
            return {};
        }
        auto task = std::move(waiting.front());
        waiting.pop_front();
        return task;
    }
};

CMainLoopExecutor::CMainLoopExecutor(GMainContext* context)
    : m_context(g_main_context_ref(context ? context : g_main_context_default()))
    , m_tasks(std::make_shared<CTasks>())
{
}

CMainLoopExecutor::~CMainLoopExecutor()
{
    std::deque<std::function<void()>> left; // destroyed behind the lock: they may hold the last reference to anything
    {
        const std::lock_guard lock(m_tasks->mutex);
        left.swap(m_tasks->waiting);
    }
    g_main_context_unref(m_context);
}

void CMainLoopExecutor::execute(std::function<void()> task)
{
    {
        const std::lock_guard lock(m_tasks->mutex);
        m_tasks->waiting.push_back(std::move(task));
        if (std::exchange(m_tasks->isAttached, true))
            return;
    }
    GSource* const source = g_idle_source_new(); // its priority is behind that of drawing
    const auto release = [](void* tasks) { delete static_cast<std::shared_ptr<CTasks>*>(tasks); };
    g_source_set_callback(source, &runSome, new std::shared_ptr<CTasks>(m_tasks), release);
    g_source_attach(source, m_context);
    g_source_unref(source);
}

gboolean CMainLoopExecutor::runSome(void* tasks) noexcept
{
    constexpr std::chrono::milliseconds turn{5};
    const std::shared_ptr<CTasks> mine = *static_cast<std::shared_ptr<CTasks>*>(tasks);
    const auto end = std::chrono::steady_clock::now() + turn;
    do {
        const auto task = mine->take();
        if (!task)
            return G_SOURCE_REMOVE;
        task();
    } while (std::chrono::steady_clock::now() < end);
    return G_SOURCE_CONTINUE;
}
