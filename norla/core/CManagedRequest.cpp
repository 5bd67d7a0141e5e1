#include "norla/core/CManagedRequest.h"

#include "kx/log/log.h"
#include "kx/threads/CMutexLock.h"
#include "norla/core/CCURLError.h"
#include "norla/core/CNetRequestRooms.h"
#include "norla/core/doneListeners.h"

namespace norla {

const kx::String& CManagedRequest::getURL() const noexcept
{
    return m_request.m_rooms->url.toString();
}

void CManagedRequest::requireFree(const char* functionName) const
{
    m_request.m_rooms->run.requireIdle(functionName);
    m_request.m_rooms->run.requireNotQueued(functionName);
}

void CManagedRequest::enterQueue() noexcept
{
    m_request.m_rooms->run.enterQueue();
}

void CManagedRequest::leaveQueue() noexcept
{
    m_request.m_rooms->run.leaveQueue();
}

void CManagedRequest::enter(COpenSockets& sockets)
{
    m_request.m_rooms->stallWatcher = nullptr;
    m_request.m_rooms->sockets.use(sockets);
}

void CManagedRequest::enterEvents(COpenSockets& sockets, IStallWatcher& watcher)
{
    enter(sockets);
    CNetRequest::CRooms& rooms = *m_request.m_rooms;
    rooms.stallWatcher = &watcher;
    if (rooms.url.isMail())
        rooms.progress.use(&CNetRequest::CRooms::goOn, &rooms);
}

void CManagedRequest::requireWholeHeader() noexcept
{
    m_request.m_rooms->wantsWholeHeader = true;
}

bool CManagedRequest::opensSockets() const noexcept
{
    return m_request.m_rooms->sockets.areApplications();
}

void CManagedRequest::dropConnectionAfter(CURLcode result) noexcept
{
    m_request.m_rooms->dropConnectionAfter(result);
}

void CManagedRequest::beginWithdrawal()
{
    CNetRequest::CRooms& rooms = *m_request.m_rooms;
    if (rooms.url.isSSH())
        rooms.sockets.hangUp();
    try {
        rooms.sending.hideRecipients();
    } catch (const std::exception&) {
        rooms.sockets.hangUp(); // or libcurl would wait for the server
        throw;
    }
}

void CManagedRequest::endWithdrawal()
{
    m_request.m_rooms->sending.showRecipients();
}

bool CManagedRequest::beginSecondAttempt()
{
    return m_request.beginSecondAttempt();
}

void CManagedRequest::expect()
{
    CNetRequest::CRooms& rooms = *m_request.m_rooms;
    const kx::CMutexLock lock(rooms.outcome.getMutex());
    rooms.outcome.begin(CURLE_OK);
    rooms.callbackError.forget();
    rooms.record.forget();
    rooms.response.begin();
}

void CManagedRequest::fail(const std::exception& error) noexcept
{
    CNetRequest::CRooms& rooms = *m_request.m_rooms;
    if (!rooms.callbackError.isThere())
        rooms.callbackError.keep(error);
}

void CManagedRequest::fail(TransferLimit limit, const kx::String& text) noexcept
{
    CNetRequest::CRooms& rooms = *m_request.m_rooms;
    const CURLcode result = limit == TransferLimit::None ? CURLE_ABORTED_BY_CALLBACK : CURLE_OPERATION_TIMEDOUT;
    if (rooms.callbackError.isThere())
        return;
    rooms.isOverdue = limit != TransferLimit::None;
    rooms.callbackError.keepFrom([&] {
        CFailureDetails details = rooms.failureDetails(result);
        details.limit = limit;
        if (limit != TransferLimit::None)
            details.limitText = text;
        throw CCURLError(result, text, "", 0, "", "", details);
    });
}

void CManagedRequest::failOverdue(const kx::String& within)
{
    const kx::String host = m_request.m_rooms->failureDetails(CURLE_OPERATION_TIMEDOUT).host;
    fail(TransferLimit::Total,
        "The transfer" + (host.isEmpty() ? kx::String() : " with " + host) + " was not done within " + within + ".");
}

void CManagedRequest::blameTime() noexcept
{
    m_request.m_rooms->isOverdue = true;
}

long long CManagedRequest::getLongestSilence() const noexcept
{
    return m_request.m_rooms->deadlines.getLongestSilence();
}

CTransferProgress CManagedRequest::getProgress() const noexcept
{
    const CEasyHandle& handle = m_request.m_rooms->handle;
    CTransferProgress progress;
    curl_off_t size = 0;
    if (handle.ask(CURLINFO_SIZE_DOWNLOAD_T, size))
        progress.received = size;
    if (handle.ask(CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, size) && size >= 0)
        progress.toReceive = size;
    if (handle.ask(CURLINFO_SIZE_UPLOAD_T, size))
        progress.sent = size;
    if (handle.ask(CURLINFO_CONTENT_LENGTH_UPLOAD_T, size) && size >= 0)
        progress.toSend = size;
    return progress;
}

kx::P<kx::CError> CManagedRequest::endAttempt(CURLcode result)
{
    const kx::CMutexLock lock(m_request.m_rooms->outcome.getMutex());
    m_request.m_rooms->recordOutcome(result);
    return m_request.asyncFailure();
}

void CManagedRequest::tellEnd(const kx::CError* failure) noexcept
{
    try {
        kx::P<CNetRequest::IDoneListener> listener;
        {
            CNetRequest::CRooms& rooms = *m_request.m_rooms;
            const kx::CMutexLock lock(rooms.outcome.getMutex());
            const CAsyncOutcome::CSetAtEnd setAtEnd(rooms.outcome);
            listener = rooms.doneListener;
        }
        tellDone(m_request, listener.get(), failure);
    } catch (const std::exception& error) {
        kx::logErrorQuietly(error, "A done listener has thrown (ignored).");
    }
}

} // namespace norla
