#include "norla/pool/CTransfer.h"

#include "norla/pool/CTransferWork.h"

#include <utility>

namespace norla {

CTransfer::CTransfer(std::unique_ptr<CTransferWork> work) noexcept
    : m_work(std::move(work))
{
}

CTransfer::~CTransfer() = default;

void CTransfer::cancel()
{
    if (!m_work->isDone())
        m_work->inbox->ask(*m_work, CLoopInbox::ToCancel);
}

bool CTransfer::wait(int timeoutMs) const
{
    return m_work->wait(timeoutMs);
}

bool CTransfer::isDone() const noexcept
{
    return m_work->isDone();
}

TransferState CTransfer::getState() const noexcept
{
    return m_work->getState();
}

void CTransfer::check() const
{
    const kx::P<kx::CError> error = getError();
    if (error)
        error->throwClone();
}

kx::P<kx::CError> CTransfer::getError() const
{
    return m_work->getError();
}

CTransferProgress CTransfer::getProgress() const
{
    return m_work->getProgress();
}

kx::TArray<CAttempt> CTransfer::getAttempts() const
{
    return m_work->getAttempts();
}

CNetRequest& CTransfer::getRequest() const noexcept
{
    return *m_work->request;
}

} // namespace norla
