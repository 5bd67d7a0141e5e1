// A request whose transfer a manager drives.

#include "kx/base/CStdExceptionError.h"
#include "kx/log/log.h"
#include "kx/threads/CMutexLock.h"
#include "norla/core/CNetRequestRooms.h"
#include "norla/core/httpSuccess.h"

namespace norla {

void CNetRequest::setAsyncInfo(bool done, CURLcode result)
{
    if (!done) {
        const kx::CMutexLock lock(m_rooms->outcome.getMutex());
        m_rooms->demands.begin(m_rooms->url, isManaged());
        prepareAsync(result);
        return;
    }
    kx::P<IDoneListener> listener;
    kx::P<kx::CError> failure;
    try {
        const kx::CMutexLock lock(m_rooms->outcome.getMutex());
        // Whoever waits may use the request the moment the signal is set: that comes last, whatever is thrown here.
        const CAsyncOutcome::CSetAtEnd setAtEnd(m_rooms->outcome);
        listener = m_rooms->doneListener;
        recordAsyncResult(result);
        if (listener)
            failure = asyncFailure();
    } catch (const std::exception& error) {
        tellDoneAfterFailure(listener.get(), error);
        throw;
    }
    tellDone(listener.get(), failure.get());
}

void CNetRequest::prepareAsync(CURLcode result)
{
    beginAttempt();
    m_rooms->outcome.begin(result);
    m_rooms->handle.clearError();
}

void CNetRequest::recordAsyncResult(CURLcode result)
{
    CAsyncOutcome& outcome = m_rooms->outcome;
    // Until it is known, so that an end which cannot be recorded is never taken for a success.
    outcome.set(result != CURLE_OK ? result : CURLE_ABORTED_BY_CALLBACK, kx::String());
    noticeEnd(result);
    const bool isRefused
        = result == CURLE_OK && m_rooms->url.toString().startsWith("http") && !isHTTPSuccess(getResponseCode());
    if (isRefused || result != CURLE_OK)
        outcome.set(isRefused ? CURLE_HTTP_RETURNED_ERROR : result, getErrorMessage());
    else if (!m_rooms->callbackError.isThere())
        outcome.set(CURLE_OK, kx::String());
}

void CNetRequest::throwAsyncFailure()
{
    m_rooms->callbackError.throwIt();
    const CAsyncOutcome& outcome = m_rooms->outcome;
    if (outcome.getResult() != CURLE_OK)
        throwError(outcome.getResult(), getResponseCodeDomain(), getResponseCode(), outcome.getMessage());
}

kx::P<kx::CError> CNetRequest::asyncFailure()
{
    try {
        throwAsyncFailure();
    } catch (const kx::CError& error) {
        return error.clone();
    }
    return nullptr;
}

void CNetRequest::checkAsyncResult()
{
    const kx::CMutexLock lock(m_rooms->outcome.getMutex());
    if (isAsyncDone())
        throwAsyncFailure();
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

void CNetRequest::enterManager(COpenSockets& sockets)
{
    m_rooms->sockets.use(sockets);
}

void CNetRequest::leaveManager() noexcept
{
    m_rooms->run.leaveManager();
}

void CNetRequest::beginWithdrawal()
{
    m_rooms->sending.hideRecipients();
}

void CNetRequest::endWithdrawal()
{
    m_rooms->sending.showRecipients();
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
