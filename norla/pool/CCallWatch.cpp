#include "norla/pool/CCallWatch.h"

#include "norla/core/COpenSockets.h"

#include <utility>

namespace norla {

CCallWatch::CCall::CCall(CCallWatch& watch, COpenSockets& sockets) noexcept
    : m_watch(watch)
{
    watch.m_start = std::chrono::steady_clock::now();
    const std::lock_guard lock(m_watch.m_mutex);
    m_watch.m_sockets = &sockets;
    ++m_watch.m_count;
    if (m_watch.m_endsCalls)
        sockets.stopReading();
}

CCallWatch::CCall::~CCall()
{
    const std::lock_guard lock(m_watch.m_mutex);
    m_watch.m_sockets = nullptr;
}

void CCallWatch::endLongCalls() noexcept
{
    const std::lock_guard lock(m_mutex);
    if (!m_sockets || std::exchange(m_seen, m_count) != m_count)
        return;
    m_endsCalls = true;
    m_sockets->stopReading();
}

} // namespace norla
