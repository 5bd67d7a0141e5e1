#include "norla/pool/CLoopInbox.h"

#include "kx/threads/processGeneration.h"
#include "norla/pool/CTransferWork.h"

#include <utility>

namespace norla {

CLoopInbox::CLoopInbox()
    : m_process(kx::processGeneration())
{
}

void CLoopInbox::ask(CTransferWork& work, Asked what) noexcept
{
    if (!isOfThisProcess())
        return;
    const std::lock_guard lock(m_mutex);
    if (m_isClosed)
        return;
    CSlip& slip = work.slip;
    const bool waits = slip.asked != 0;
    slip.asked |= what;
    if (waits)
        return;
    slip.transfer = &work.getTransfer();
    slip.next = nullptr;
    (m_first ? m_last->slip.next : m_first) = &work;
    m_last = &work;
    m_hasMail = true;
    if (!isOwner())
        signal();
}

void CLoopInbox::signal() noexcept
{
    if (!std::exchange(m_isSignalled, true))
        m_event.signal();
}

void CLoopInbox::askToStop() noexcept
{
    const std::lock_guard lock(m_mutex);
    m_isStopAsked = true;
    m_hasMail = true;
    signal();
}

kx::P<CTransfer> CLoopInbox::take(unsigned int& asked) noexcept
{
    const std::lock_guard lock(m_mutex);
    asked = 0;
    if (!m_first) {
        m_hasMail = false;
        if (std::exchange(m_isSignalled, false))
            m_event.clear();
        return nullptr;
    }
    CSlip& slip = m_first->slip;
    m_first = slip.next;
    asked = std::exchange(slip.asked, 0U);
    return std::exchange(slip.transfer, nullptr);
}

bool CLoopInbox::isOfThisProcess() const noexcept
{
    return m_process == kx::processGeneration();
}

bool CLoopInbox::isStopAsked() const noexcept
{
    const std::lock_guard lock(m_mutex);
    return m_isStopAsked;
}

// What would lie here for ever would keep its transfer.
bool CLoopInbox::close() noexcept
{
    const std::lock_guard lock(m_mutex);
    m_isClosed = !m_first;
    return m_isClosed;
}

} // namespace norla
