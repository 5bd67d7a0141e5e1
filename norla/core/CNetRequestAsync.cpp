// A request whose transfer a manager drives.

#include "kx/threads/CMutexLock.h"
#include "norla/core/CNetRequestRooms.h"
#include "norla/core/doneListeners.h"

namespace norla {

void CNetRequest::setAsyncInfo(bool done, CURLcode result)
{
    if (!done) {
        const kx::CMutexLock lock(m_rooms->outcome.getMutex());
        m_rooms->begin();
        beginAttempt();
        m_rooms->outcome.begin(result);
        m_rooms->record.begin();
        m_rooms->handle.clearError();
        return;
    }
    kx::P<IDoneListener> listener;
    kx::P<kx::CError> failure;
    try {
        const kx::CMutexLock lock(m_rooms->outcome.getMutex());
        // Whoever waits may use the request the moment the signal is set: that comes last, whatever is thrown here.
        const CAsyncOutcome::CSetAtEnd setAtEnd(m_rooms->outcome);
        listener = m_rooms->doneListener;
        m_rooms->recordOutcome(result);
        if (listener)
            failure = asyncFailure();
    } catch (const std::exception& error) {
        tellDoneAfterFailure(*this, listener.get(), error);
        throw;
    }
    tellDone(*this, listener.get(), failure.get());
}

kx::P<kx::CError> CNetRequest::asyncFailure()
{
    const CAsyncOutcome& outcome = m_rooms->outcome;
    try {
        m_rooms->callbackError.throwIt();
        if (outcome.getResult() != CURLE_OK)
            throwError(outcome.getResult(), getResponseCodeDomain(), getResponseCode(), outcome.getMessage());
    } catch (const kx::CError& error) {
        return error.clone();
    }
    return nullptr;
}

void CNetRequest::checkAsyncResult()
{
    const kx::CMutexLock lock(m_rooms->outcome.getMutex());
    const kx::P<kx::CError> failure = isAsyncDone() ? asyncFailure() : nullptr;
    if (failure)
        failure->throwClone();
}

bool CNetRequest::isAsyncDone()
{
    return m_rooms->outcome.getDoneSignal()->isSet();
}

bool CNetRequest::waitAsyncDone(int timeoutMs)
{
    return m_rooms->outcome.getDoneSignal()->wait(timeoutMs);
}

kx::P<kx::CSignal> CNetRequest::getAsyncDoneSignal()
{
    return m_rooms->outcome.getDoneSignal();
}

CURL* CNetRequest::getEasyHandle() const noexcept
{
    return m_rooms->handle.get();
}

bool CNetRequest::claim() noexcept
{
    return m_rooms->run.claim();
}

void CNetRequest::leaveManager() noexcept
{
    m_rooms->run.leaveManager();
}

bool CNetRequest::isManaged() const noexcept
{
    return m_rooms->run.isManaged();
}

bool CNetRequest::hasOwnConnections() const noexcept
{
    return m_rooms->sockets.hasOwnConnections();
}

} // namespace norla
