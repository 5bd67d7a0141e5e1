#include "norla/files/CFileSignals.h"

#include <algorithm>
#include <utility>

namespace norla {

void CFileSignals::begin()
{
    const std::lock_guard lock(m_mutex);
    if (m_state != FileState::Waiting)
        throw kx::CError("The transfer of a file runs once: another one is another object.");
    m_state = FileState::Running;
    m_rate.add(Clock::now(), 0);
}

void CFileSignals::succeed()
{
    const std::lock_guard lock(m_mutex);
    m_state = FileState::Succeeded;
}

void CFileSignals::fail(const kx::P<kx::CError>& error)
{
    const std::lock_guard lock(m_mutex);
    m_state = m_isCancelled ? FileState::Cancelled : FileState::Failed;
    m_error = error;
}

void CFileSignals::cancel()
{
    const std::lock_guard lock(m_mutex);
    m_isCancelled = true;
    m_changed.notify_all();
    if (m_wishListener)
        m_wishListener();
}

void CFileSignals::pause()
{
    const std::lock_guard lock(m_mutex);
    m_isPauseWanted = true;
    m_changed.notify_all();
    if (m_wishListener)
        m_wishListener();
}

void CFileSignals::resume()
{
    const std::lock_guard lock(m_mutex);
    m_isPauseWanted = false;
    m_changed.notify_all();
}

void CFileSignals::setWishListener(std::function<void()> listener)
{
    const std::lock_guard lock(m_mutex);
    m_wishListener = std::move(listener);
    if (m_wishListener && (m_isCancelled || m_isPauseWanted))
        m_wishListener();
}

void CFileSignals::tellEnd(int connection)
{
    {
        const std::lock_guard lock(m_mutex);
        m_ended.push_back(connection);
    }
    m_changed.notify_all(); // who wakes up finds the lock free
}

CFileSignals::Clock::time_point CFileSignals::momentAfter(const kx::CTimeSpan& span)
{
    constexpr long long longestSpan = 1'000'000'000'000'000; // thirty years; a clock's nanoseconds end some time later
    const long long microseconds
        = span.isInfinite() ? longestSpan : std::clamp(span.getMicroseconds(), 0LL, longestSpan);
    return Clock::now() + std::chrono::microseconds(microseconds);
}

FileState CFileSignals::getState() const
{
    const std::lock_guard lock(m_mutex);
    return m_state;
}

kx::P<kx::CError> CFileSignals::getError() const
{
    const std::lock_guard lock(m_mutex);
    return m_error;
}

bool CFileSignals::isCancelled() const
{
    const std::lock_guard lock(m_mutex);
    return m_isCancelled;
}

bool CFileSignals::isPauseWanted() const
{
    const std::lock_guard lock(m_mutex);
    return m_isPauseWanted;
}

void CFileSignals::setState(FileState state)
{
    const std::lock_guard lock(m_mutex);
    m_state = state;
}

std::vector<int> CFileSignals::wait(Clock::time_point until, bool minds)
{
    std::unique_lock lock(m_mutex);
    m_changed.wait_until(
        lock, until, [this, minds] { return m_isCancelled || (minds && m_isPauseWanted) || !m_ended.empty(); });
    return std::exchange(m_ended, {});
}

void CFileSignals::waitForResume()
{
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [this] { return m_isCancelled || !m_isPauseWanted; });
    m_rate.forget(); // the pause was no slow transfer
    m_rate.add(Clock::now(), m_done);
}

void CFileSignals::setStart(long long done)
{
    const std::lock_guard lock(m_mutex);
    m_done = done;
    m_rate.forget();
    m_rate.add(Clock::now(), done);
}

void CFileSignals::setProgress(long long done, std::optional<long long> total)
{
    const std::lock_guard lock(m_mutex);
    m_moved += std::max(0LL, done - m_done);
    m_done = done;
    m_total = total;
    m_rate.add(Clock::now(), done);
}

CFileProgress CFileSignals::getProgress() const
{
    const std::lock_guard lock(m_mutex);
    CFileProgress progress{.done = m_done, .total = m_total, .moved = m_moved, .secondsLeft = {}};
    if (m_state != FileState::Running)
        return progress;
    progress.bytesPerSecond = m_rate.bytesPerSecond(Clock::now());
    if (m_total && progress.bytesPerSecond > 0)
        progress.secondsLeft = static_cast<double>(*m_total - m_done) / progress.bytesPerSecond;
    return progress;
}

} // namespace norla
