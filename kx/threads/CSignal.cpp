#include "kx/threads/CSignal.h"

#include <chrono>

namespace kx {

CSignal::~CSignal() = default;

void CSignal::set()
{
    // Notified under the lock: whoever wakes may destroy the signal as soon as the lock is free.
    const std::lock_guard lock(m_mutex);
    m_set = true;
    m_changed.notify_all();
}

void CSignal::reset()
{
    const std::lock_guard lock(m_mutex);
    m_set = false;
}

bool CSignal::isSet() const
{
    const std::lock_guard lock(m_mutex);
    return m_set;
}

bool CSignal::wait(int timeoutMs) const
{
    std::unique_lock lock(m_mutex);
    const auto isSet = [this] { return m_set; };
    if (timeoutMs >= 0)
        return m_changed.wait_for(lock, std::chrono::milliseconds(timeoutMs), isSet);
    m_changed.wait(lock, isSet);
    return true;
}

} // namespace kx
