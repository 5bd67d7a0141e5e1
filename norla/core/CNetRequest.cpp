#include "norla/core/CNetRequest.h"

#include "kx/threads/CMutexLock.h"
#include "norla/core/CCURLError.h"
#include "norla/core/CNetRequestRooms.h"
#include "norla/core/doneListeners.h"
#include "norla/core/httpSuccess.h"
#include "norla/http/serverMessage.h"

#include <algorithm>

namespace norla {

namespace {

// For what is said beside a failure, which itself must be told whatever happens.
template <typename TRead>
auto emptyIfItFails(TRead read) noexcept
{
    try {
        return read();
    } catch (const std::exception&) {
        return decltype(read())();
    }
}

} // namespace

CNetRequest::CNetRequest()
    : m_rooms(std::make_unique<CRooms>())
{
    setDefaultOptions();
}

CNetRequest::~CNetRequest()
{
    m_rooms->headers.forgetOptions();
    m_rooms->ftpPreCommands = nullptr;
    m_rooms->ftpPostCommands = nullptr;
    m_rooms->sockets.stopReading();
}

void CNetRequest::reset()
{
    CRooms& rooms = *m_rooms;
    rooms.run.requireIdle("CNetRequest::reset");
    rooms.sending.forgetSource();
    rooms.doneListener = nullptr;
    rooms.response.setDefaultSink();
    rooms.response.setServerInfoToUpdate(nullptr);
    {
        const kx::CMutexLock lock(rooms.outcome.getMutex());
        beginAttempt();
        rooms.outcome.begin(CURLE_OK);
    }
    rooms.url = CRequestURL();
    rooms.handle.reset();
    rooms.forgetOptions();
    rooms.keptObjects.clear();
    resetForPerform();
    setDefaultOptions();
}

void CNetRequest::resetForPerform()
{
    m_rooms->run.requireIdle("CNetRequest::resetForPerform");
    beginAttempt();
}

void CNetRequest::beginAttempt()
{
    m_rooms->beginAttempt();
}

void CNetRequest::setDefaultOptions()
{
    CEasyHandle& handle = m_rooms->handle;
    handle.useErrorBuffer();
    handle.set(CURLOPT_WRITEFUNCTION, &CRooms::write);
    setOptionPtr(CURLOPT_WRITEDATA, m_rooms.get());
    handle.set(CURLOPT_READFUNCTION, &CRooms::read);
    setOptionPtr(CURLOPT_READDATA, m_rooms.get());
    handle.set(CURLOPT_SEEKFUNCTION, &CRooms::seek);
    setOptionPtr(CURLOPT_SEEKDATA, m_rooms.get());
    handle.set(CURLOPT_HEADERFUNCTION, &CRooms::takeHeader);
    setOptionPtr(CURLOPT_HEADERDATA, m_rooms.get());
    setOptionInt(CURLOPT_FOLLOWLOCATION, 1);
    setOptionInt(CURLOPT_NOSIGNAL, 1); // transfers run on worker threads
    setConnectTimeout(kx::CTimeSpan::fromSeconds(30));
    setOptionInt(CURLOPT_LOW_SPEED_LIMIT, 1);
    setOptionInt(CURLOPT_LOW_SPEED_TIME, 30);
}

void CNetRequest::perform()
{
    m_rooms->run.requireIdle("CNetRequest::perform");
    m_rooms->run.requireNotQueued("CNetRequest::perform");
    resetForPerform();
    m_rooms->handle.clearError();
    try {
        m_rooms->begin();
        performOnce();
    } catch (const kx::CError& error) {
        tellDoneAfterFailure(*this, m_rooms->doneListener.get(), error);
        throw;
    }
    try {
        tellDone(*this, m_rooms->doneListener.get(), nullptr);
    } catch (const std::exception& error) {
        // None of the transfer's, which has succeeded. The listener may have handed the request on.
        if (m_rooms->run.isFree())
            m_rooms->callbackError.keep(error);
        throw;
    }
}

void CNetRequest::performOnce()
{
    CURLcode result = m_rooms->perform();
    if (beginSecondAttempt())
        result = m_rooms->perform();
    m_rooms->noticeEnd(result);
    m_rooms->callbackError.throwIt();
    // Taken now, because asking for the response code clears the error buffer.
    if (result != CURLE_OK) {
        const kx::String message = m_rooms->failureText(result);
        throwError(result, getResponseCodeDomain(), getResponseCode(), message);
    }
    if (!m_rooms->url.isHTTP())
        return;
    const int status = getResponseCode();
    if (!isHTTPSuccess(status))
        throwError(CURLE_HTTP_RETURNED_ERROR, "http", status, "");
}

bool CNetRequest::beginSecondAttempt()
{
    if (!m_rooms->demands.canBeginAgain())
        return false;
    return m_rooms->callbackError.keepFrom([this] {
        beginAttempt();
        m_rooms->demands.beginAgain();
        m_rooms->record.begin();
        m_rooms->handle.clearError();
    });
}

kx::String CNetRequest::getErrorMessage()
{
    return m_rooms->handle.getErrorMessage();
}

void CNetRequest::throwError(
    CURLcode code, const kx::String& responseCodeDomain, int responseCode, const kx::String& message)
{
    const CResponse& response = m_rooms->response;
    throw CCURLError(code, message.isEmpty() ? getErrorMessage() : message, responseCodeDomain, responseCode,
        emptyIfItFails([&] { return response.getServerMessage(responseCodeDomain, responseCode); }),
        emptyIfItFails([&] { return response.getRefusal(); }),
        emptyIfItFails([&] { return m_rooms->failureDetails(code); }));
}

kx::String CNetRequest::getServerErrorMessageFromResponseData(
    const unsigned char* data, int size, const HeaderMap& headers)
{
    return emptyIfItFails([&] {
        return serverMessage({reinterpret_cast<const char*>(data), static_cast<size_t>(std::max(size, 0))}, headers);
    });
}

} // namespace norla
