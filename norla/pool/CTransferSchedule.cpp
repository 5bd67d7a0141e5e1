#include "norla/pool/CTransferSchedule.h"

#include "norla/core/CManagedRequest.h"
#include "norla/pool/CTransferLanes.h"
#include "norla/pool/CTransferWork.h"

#include <utility>

namespace norla {

CTransferSchedule::CTransferSchedule(int atOnce, int perHost)
    : m_queue(atOnce, perHost, CTransferLanes::width)
{
}

CTransferSchedule::~CTransferSchedule() = default;

void CTransferSchedule::add(CTransfer& transfer, const std::string& host)
{
    CTransferWork& work = CTransferWork::of(transfer);
    const std::lock_guard lock(m_mutex);
    if (m_isClosed)
        throw kx::CError("A transfer cannot be started: its pool was stopped.");
    const auto added = m_transfers.emplace(work.request.get(), &transfer).first;
    try {
        CManagedRequest(*work.request).expect(); // before anybody can end it
        work.place = m_queue.push(&work, host, work.getOptions().priority);
        work.isWaiting = true;
    } catch (...) {
        m_transfers.erase(added);
        throw;
    }
}

// Under the lock, so that whoever is told to start comes before whoever tells it to end.
void CTransferSchedule::startNext() noexcept
{
    const std::lock_guard lock(m_mutex);
    CTransferWork* work = nullptr;
    size_t lane = 0;
    while (m_queue.takeNext(work, lane)) {
        work->place.lane = lane;
        work->isWaiting = false;
        work->isRunning = true;
        work->inbox->ask(*work, CLoopInbox::ToStart);
    }
}

void CTransferSchedule::pause(CTransferWork& work)
{
    const std::lock_guard lock(m_mutex);
    leave(work);
}

void CTransferSchedule::addAgain(CTransferWork& work, const std::string& host)
{
    const std::lock_guard lock(m_mutex);
    work.place = m_queue.push(&work, host, work.getOptions().priority);
    work.isWaiting = true;
}

kx::P<CTransfer> CTransferSchedule::remove(CTransferWork& work) noexcept
{
    const std::lock_guard lock(m_mutex);
    leave(work);
    const auto found = m_transfers.find(work.request.get());
    kx::P<CTransfer> transfer = std::move(found->second);
    m_transfers.erase(found);
    return transfer;
}

void CTransferSchedule::leave(CTransferWork& work) noexcept
{
    if (std::exchange(work.isWaiting, false))
        m_queue.remove(work.place);
    if (std::exchange(work.isRunning, false))
        m_queue.finish(work.place);
}

kx::P<CTransfer> CTransferSchedule::find(const CNetRequest& request) const
{
    const std::lock_guard lock(m_mutex);
    const auto found = m_transfers.find(&request);
    return found == m_transfers.end() ? nullptr : found->second;
}

void CTransferSchedule::cancelAll() noexcept
{
    const std::lock_guard lock(m_mutex);
    for (const auto& [request, transfer] : m_transfers) {
        CTransferWork& work = CTransferWork::of(*transfer);
        work.inbox->ask(work, CLoopInbox::ToCancel);
    }
}

void CTransferSchedule::close()
{
    const std::lock_guard lock(m_mutex);
    m_isClosed = true;
}

} // namespace norla
