#include "norla/core/CNetRequestRooms.h"

#include "kx/log/log.h"
#include "norla/core/CCURLError.h"
#include "norla/core/CSigPipeBlock.h"
#include "norla/core/httpSuccess.h"

#include <sys/socket.h>

namespace norla {

// The options are set for who needs them, so that everybody else's stay what they were.
void CNetRequest::CRooms::begin()
{
    tls.begin();
    ssh.begin(url);
    keyPassword.begin(url);
    demands.begin(url, run.isManaged());
    if (demands.wantsToBeAsked())
        prerequest.use(&CRooms::beforeRequest, this);
}

CURLcode CNetRequest::CRooms::perform()
{
    sockets.useOwn();
    record.begin();
    const CSigPipeBlock block;
    const CRunState::CPerforming performing(run);
    const CURLcode result = curl_easy_perform(handle.get());
    dropConnectionAfter(result);
    record.end();
    return result;
}

// What a mail server says too late would be taken for its answer to the next mail.
void CNetRequest::CRooms::dropConnectionAfter(CURLcode result) noexcept
{
    if (result != CURLE_OPERATION_TIMEDOUT || url.isHTTP() || !sending.hasRecipients())
        return;
    curl_socket_t socket = CURL_SOCKET_BAD;
    if (handle.ask(CURLINFO_ACTIVESOCKET, socket) && socket != CURL_SOCKET_BAD)
        shutdown(socket, SHUT_RDWR); // fails where the server was faster
}

void CNetRequest::CRooms::noticeEnd(CURLcode result)
{
    if (demands.wasRefused())
        callbackError.keep(CCURLError(CURLE_USE_SSL_FAILED, "the connection is not encrypted although TLS is demanded",
            url.getResponseCodeDomain(), 0, "", "", failureDetails(CURLE_USE_SSL_FAILED)));
    if (result == CURLE_SEND_FAIL_REWIND)
        sending.noticeFailedRewind();
    // Without recipients libcurl says HELP in place of sending the mail, and is content when the server answers.
    if (result == CURLE_OK && url.isMail() && sending.isUnsentMail())
        callbackError.keep(CCURLError(CURLE_SEND_ERROR, "the message has no recipients and was not sent", "smtp", 0, "",
            "", failureDetails(CURLE_SEND_ERROR)));
}

void CNetRequest::CRooms::recordOutcome(CURLcode result)
{
    record.end();
    // Until it is known, so that an end which cannot be recorded is never taken for a success.
    outcome.set(result != CURLE_OK ? result : CURLE_ABORTED_BY_CALLBACK, kx::String());
    noticeEnd(result);
    const bool isRefused = result == CURLE_OK && url.toString().startsWith("http")
        && !isHTTPSuccess(handle.getLong(CURLINFO_RESPONSE_CODE));
    if (isRefused || result != CURLE_OK)
        outcome.set(isRefused ? CURLE_HTTP_RETURNED_ERROR : result, failureText(result));
    else if (!callbackError.isThere())
        outcome.set(CURLE_OK, kx::String());
}

size_t CNetRequest::CRooms::write(char* data, size_t size, size_t count, void* rooms) noexcept
{
    auto& self = *static_cast<CRooms*>(rooms);
    const size_t total = size * count;
    const bool taken = self.callbackError.keepFrom([&self, data, total] {
        self.unpacking.take(total);
        self.response.takeBody(
            reinterpret_cast<const unsigned char*>(data), static_cast<int>(total), self.url, self.sending.getMethod());
    });
    if (taken)
        return total;
    return total == 0 ? 1 : 0; // anything but the total makes libcurl stop
}

size_t CNetRequest::CRooms::read(char* buffer, size_t size, size_t count, void* rooms) noexcept
{
    auto& self = *static_cast<CRooms*>(rooms);
    size_t delivered = CURL_READFUNC_ABORT;
    self.callbackError.keepFrom(
        [&] { delivered = self.sending.read(buffer, static_cast<int>(size * count), self.response.getHeaderMap()); });
    return delivered;
}

int CNetRequest::CRooms::seek(void* rooms, curl_off_t offset, int origin) noexcept
{
    auto& self = *static_cast<CRooms*>(rooms);
    bool found = false;
    self.callbackError.keepFrom([&] { found = self.sending.seek(offset, origin); });
    return found ? CURL_SEEKFUNC_OK : CURL_SEEKFUNC_FAIL;
}

int CNetRequest::CRooms::beforeRequest(void* rooms, char* peerIP, char* localIP, int peerPort, int localPort) noexcept
{
    auto& self = *static_cast<CRooms*>(rooms);
    if (self.demands.refusesConnection())
        return CURL_PREREQFUNC_ABORT;
    return self.prerequest.callApplications(peerIP, localIP, peerPort, localPort);
}

size_t CNetRequest::CRooms::takeHeader(char* data, size_t size, size_t count, void* rooms) noexcept
{
    auto& self = *static_cast<CRooms*>(rooms);
    const size_t length = size * count;
    self.record.noticeLine({data, length}, self.url.isHTTP());
    try {
        self.response.takeLine({data, length}, self.url);
    } catch (const std::exception& error) {
        // What a log handler throws comes out of the transfer; the line itself never ends it.
        self.callbackError.keepFrom(
            [&error] { kx::logWarning(error, "Exception during CNetRequest header parsing (ignored).", ""); });
    }
    return length;
}

} // namespace norla
