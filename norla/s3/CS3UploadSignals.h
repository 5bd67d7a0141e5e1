#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

namespace norla {

/// What the thread of an upload waits for. Any thread.
class CS3UploadSignals {
public:
    using Clock = std::chrono::steady_clock;

    void tellEnd(int partNumber)
    {
        const std::lock_guard lock(m_mutex);
        m_ended.push_back(partNumber);
        m_changed.notify_all();
    }

    void cancel()
    {
        const std::lock_guard lock(m_mutex);
        m_isCancelled = true;
        m_changed.notify_all();
    }

    bool isCancelled() const
    {
        const std::lock_guard lock(m_mutex);
        return m_isCancelled;
    }

    /// Blocks until something is told, or until that moment.
    /// @return the parts that have ended since the last time
    std::vector<int> wait(const std::optional<Clock::time_point>& until)
    {
        std::unique_lock lock(m_mutex);
        const auto isTold = [this] { return m_isCancelled || !m_ended.empty(); };
        if (until)
            m_changed.wait_until(lock, *until, isTold);
        else
            m_changed.wait(lock, isTold);
        return std::exchange(m_ended, {});
    }

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<int> m_ended;
    bool m_isCancelled = false;
};

} // namespace norla
