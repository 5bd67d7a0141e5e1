#include "norla/core/CNetRequest.h"

#include "kx/base/CStdExceptionError.h"
#include "kx/log/log.h"
#include "kx/threads/CMutexLock.h"
#include "norla/core/CCURLError.h"
#include "norla/core/CNetRequestRooms.h"
#include "norla/core/CSigPipeBlock.h"
#include "norla/core/httpSuccess.h"
#include "norla/http/serverMessage.h"

#include <algorithm>
#include <sys/socket.h>

namespace norla {

namespace {

// For what is said beside a failure, which itself must be told whatever happens.
template <typename TRead>
kx::String emptyIfItFails(TRead read) noexcept
{
    try {
        return read();
    } catch (const std::exception&) {
        return kx::String();
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
    m_rooms->customHeaders = nullptr;
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
        prepareAsync(CURLE_OK);
    }
    rooms.url = CRequestURL();
    rooms.handle.reset();
    rooms.sockets.forgetOptions();
    rooms.demands.forgetOptions();
    rooms.sending.forgetOptions();
    rooms.customHeaders = nullptr;
    rooms.ftpPreCommands = nullptr;
    rooms.ftpPostCommands = nullptr;
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
    if (m_rooms->customHeaders)
        setCustomHTTPHeaders(m_rooms->customHeaders.get());
    m_rooms->callbackError.forget();
    m_rooms->sending.begin();
    m_rooms->response.begin();
    m_rooms->response.beginBody();
    m_rooms->sending.rewind();
}

void CNetRequest::setDefaultOptions()
{
    CEasyHandle& handle = m_rooms->handle;
    handle.useErrorBuffer();
    handle.set(CURLOPT_WRITEFUNCTION, &CNetRequest::writeCallback);
    setOptionPtr(CURLOPT_WRITEDATA, this);
    handle.set(CURLOPT_READFUNCTION, &CNetRequest::readCallback);
    setOptionPtr(CURLOPT_READDATA, this);
    handle.set(CURLOPT_SEEKFUNCTION, &CNetRequest::seekCallback);
    setOptionPtr(CURLOPT_SEEKDATA, this);
    handle.set(CURLOPT_HEADERFUNCTION, &CNetRequest::headerCallback);
    setOptionPtr(CURLOPT_HEADERDATA, this);
    setOptionInt(CURLOPT_FOLLOWLOCATION, 1);
    setOptionInt(CURLOPT_NOSIGNAL, 1); // transfers run on worker threads
    setConnectTimeout(kx::CTimeSpan::fromSeconds(30));
    setOptionInt(CURLOPT_LOW_SPEED_LIMIT, 1);
    setOptionInt(CURLOPT_LOW_SPEED_TIME, 30);
}

void CNetRequest::perform()
{
    m_rooms->run.requireIdle("CNetRequest::perform");
    resetForPerform();
    m_rooms->handle.clearError();
    try {
        m_rooms->demands.begin(m_rooms->url, isManaged());
        performOnce();
    } catch (const kx::CError& error) {
        tellDoneAfterFailure(m_rooms->doneListener.get(), error);
        throw;
    }
    tellDone(m_rooms->doneListener.get(), nullptr);
}

void CNetRequest::performOnce()
{
    CURLcode result = runTransfer();
    if (beginSecondAttempt())
        result = runTransfer();
    noticeEnd(result);
    m_rooms->callbackError.throwIt();
    // Taken now, because asking for the response code clears the error buffer.
    if (result != CURLE_OK) {
        const kx::String message = getErrorMessage();
        throwError(result, getResponseCodeDomain(), getResponseCode(), message);
    }
    if (!m_rooms->url.isHTTP())
        return;
    const int status = getResponseCode();
    if (!isHTTPSuccess(status))
        throwError(CURLE_HTTP_RETURNED_ERROR, "http", status, "");
}

CURLcode CNetRequest::runTransfer()
{
    m_rooms->sockets.useOwn();
    const CSigPipeBlock block;
    const CRunState::CPerforming performing(m_rooms->run);
    const CURLcode result = curl_easy_perform(getEasyHandle());
    dropConnectionAfter(result);
    return result;
}

// What a mail server says too late would be taken for its answer to the next mail.
void CNetRequest::dropConnectionAfter(CURLcode result) noexcept
{
    if (result != CURLE_OPERATION_TIMEDOUT || m_rooms->url.isHTTP() || !m_rooms->sending.hasRecipients())
        return;
    curl_socket_t socket = CURL_SOCKET_BAD;
    if (m_rooms->handle.ask(CURLINFO_ACTIVESOCKET, socket) && socket != CURL_SOCKET_BAD)
        shutdown(socket, SHUT_RDWR); // fails where the server was faster
}

bool CNetRequest::beginSecondAttempt()
{
    if (!m_rooms->demands.canBeginAgain())
        return false;
    return m_rooms->callbackError.keepFrom([this] {
        beginAttempt();
        m_rooms->demands.beginAgain();
        m_rooms->handle.clearError();
    });
}

// What libcurl does not say of it, or keeps for the next transfer.
void CNetRequest::noticeEnd(CURLcode result)
{
    CRooms& rooms = *m_rooms;
    if (rooms.demands.wasRefused())
        rooms.callbackError.keep(CCURLError(CURLE_USE_SSL_FAILED,
            "the connection is not encrypted although TLS is demanded", getResponseCodeDomain(), 0, ""));
    if (result == CURLE_SEND_FAIL_REWIND)
        rooms.sending.noticeFailedRewind();
    // Without recipients libcurl says HELP in place of sending the mail, and is content when the server answers.
    if (result == CURLE_OK && rooms.url.isMail() && rooms.sending.isUnsentMail())
        rooms.callbackError.keep(
            CCURLError(CURLE_SEND_ERROR, "the message has no recipients and was not sent", "smtp", 0, ""));
}

// The listener may reset the request, and with it drop the request's reference to the listener.
void CNetRequest::tellDone(IDoneListener* listener, const kx::CError* error)
{
    const kx::P<IDoneListener> kept(listener);
    if (kept)
        kept->onNetRequestDone(this, error);
}

// The failure's error is the one that the caller must get, whatever the listener does.
void CNetRequest::tellDoneAfterFailure(IDoneListener* listener, const std::exception& error) noexcept
{
    try {
        const auto* const known = dynamic_cast<const kx::CError*>(&error);
        tellDone(listener, known ? known : kx::CStdExceptionError::exceptionToError(error).get());
    } catch (const std::exception& listenerError) {
        kx::logErrorQuietly(listenerError, "A done listener has thrown after a failed transfer (ignored).");
    }
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
        emptyIfItFails([&] { return response.getRefusal(); }));
}

kx::String CNetRequest::getServerErrorMessageFromResponseData(
    const unsigned char* data, int size, const HeaderMap& headers)
{
    return emptyIfItFails([&] {
        return serverMessage({reinterpret_cast<const char*>(data), static_cast<size_t>(std::max(size, 0))}, headers);
    });
}

size_t CNetRequest::writeCallback(char* data, size_t size, size_t count, void* request) noexcept
{
    CRooms& rooms = *static_cast<CNetRequest*>(request)->m_rooms;
    const size_t total = size * count;
    const bool taken = rooms.callbackError.keepFrom([&rooms, data, total] {
        rooms.response.takeBody(reinterpret_cast<const unsigned char*>(data), static_cast<int>(total), rooms.url,
            rooms.sending.getMethod());
    });
    if (taken)
        return total;
    return total == 0 ? 1 : 0; // anything but the total makes libcurl stop
}

size_t CNetRequest::readCallback(char* buffer, size_t size, size_t count, void* request) noexcept
{
    CRooms& rooms = *static_cast<CNetRequest*>(request)->m_rooms;
    size_t delivered = CURL_READFUNC_ABORT;
    rooms.callbackError.keepFrom(
        [&] { delivered = rooms.sending.read(buffer, static_cast<int>(size * count), rooms.response.getHeaderMap()); });
    return delivered;
}

int CNetRequest::seekCallback(void* request, curl_off_t offset, int origin) noexcept
{
    CRooms& rooms = *static_cast<CNetRequest*>(request)->m_rooms;
    bool found = false;
    rooms.callbackError.keepFrom([&] { found = rooms.sending.seek(offset, origin); });
    return found ? CURL_SEEKFUNC_OK : CURL_SEEKFUNC_FAIL;
}

size_t CNetRequest::headerCallback(char* data, size_t size, size_t count, void* request) noexcept
{
    CRooms& rooms = *static_cast<CNetRequest*>(request)->m_rooms;
    const size_t length = size * count;
    try {
        rooms.response.takeLine({data, length}, rooms.url);
    } catch (const std::exception& error) {
        // What a log handler throws comes out of the transfer; the line itself never ends it.
        rooms.callbackError.keepFrom(
            [&error] { kx::logWarning(error, "Exception during CNetRequest header parsing (ignored).", ""); });
    }
    return length;
}

} // namespace norla
