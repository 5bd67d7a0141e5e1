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
    if (safety && safety->oneLineEach)
        lines.requireOneLineEach(headers.getCallersList());
    if (judgesByProtocol())
        url = CRequestURL(url.toString()); // what was spoken last says nothing of this transfer
    if (const auto limit = deadlines.begin())
        handle.setNumber(CURLOPT_TIMEOUT_MS, static_cast<long>(*limit));
    tls.begin();
    ssh.begin(url);
    keyPassword.begin(url);
    demands.begin(url, run.isManaged());
    if (demands.wantsToBeAsked() || redirects.wantsToBeAsked() || judgesByProtocol() || holdsCookies())
        prerequest.use(&CRooms::beforeRequest, this);
    if (holdsCookies())
        progress.use(&CRooms::goOn, this);
}

void CNetRequest::CRooms::beginAttempt()
{
    receiveLimits.begin();
    redirects.begin(url);
    form.begin();
    if (safety && sending.isSmallerThan(safety->expectFrom))
        headers.setLine("Expect", "");
    else if (safety)
        headers.removeLine("Expect");
    headers.begin();
    callbackError.forget();
    isOverdue = false;
    isHeaderLost = false;
    sending.begin();
    unpacking.begin();
    record.forget();
    response.begin();
    response.beginBody();
    sending.rewind();
}

void CNetRequest::CRooms::forgetOptions()
{
    cookieJar = nullptr;
    sockets.forgetOptions();
    demands.forgetOptions();
    prerequest.forgetOptions();
    progress.forgetOptions();
    tls.forgetOptions();
    ssh.forgetOptions();
    keyPassword.forgetOptions();
    deadlines.forgetOptions();
    proxy.forgetOptions();
    redirects.forgetOptions();
    lines.forgetOptions();
    sideEffects.forgetOptions();
    receiveLimits.set(0, 0);
    safety.reset();
    wantsWholeHeader = false;
    response.takeBareLineFeeds(false);
    sending.forgetOptions();
    token.forgetOptions();
    unpacking.forgetOptions();
    headers.forgetOptions();
    ftpPreCommands = nullptr;
    ftpPostCommands = nullptr;
}

CURLcode CNetRequest::CRooms::perform()
{
    stallWatcher = nullptr;
    sockets.useOwn();
    record.begin();
    const CSigPipeBlock block;
    const CRunState::CPerforming performing(run);
    const CURLcode result = curl_easy_perform(handle.get());
    CHeldCookies::release();
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
    noticeRefusedRedirect(result);
    if (result == CURLE_SEND_FAIL_REWIND)
        sending.noticeFailedRewind();
    // Without recipients libcurl says HELP in place of sending the mail, and is content when the server answers.
    if (result == CURLE_OK && url.isMail() && sending.isUnsentMail())
        callbackError.keep(CCURLError(CURLE_SEND_ERROR, "the message has no recipients and was not sent", "smtp", 0, "",
            "", failureDetails(CURLE_SEND_ERROR)));
    if (result == CURLE_OK && record.isHeadCutOff() && needsWholeHeader())
        keepCutOffHeader();
    if (result == CURLE_OK && !callbackError.isThere())
        callbackError.keepFrom([this] { endBody(); });
}

// Of what the server refuses a CFileSink takes nothing: its status is the error then.
bool CNetRequest::CRooms::needsWholeHeader() const noexcept
{
    return judgesByProtocol() || wantsWholeHeader || (response.hasFileSink() && successStatus());
}

void CNetRequest::CRooms::keepCutOffHeader()
{
    isHeaderLost = !callbackError.isThere();
    callbackError.keep(CCURLError(CURLE_PARTIAL_FILE, "the connection was closed within the header of the answer",
        url.getResponseCodeDomain(), 0, "", "", failureDetails(CURLE_PARTIAL_FILE)));
}

void CNetRequest::CRooms::endBody()
{
    const std::optional<int> status = successStatus();
    if (status && sending.getMethod() != "HEAD")
        response.endBody(*status);
}

std::optional<int> CNetRequest::CRooms::successStatus() const noexcept
{
    constexpr int otherProtocol = -1;
    if (!url.isHTTP())
        return otherProtocol;
    long status = 0;
    const bool isKnown = handle.ask(CURLINFO_RESPONSE_CODE, status);
    return isKnown && isHTTPSuccess(static_cast<int>(status)) ? std::optional(static_cast<int>(status)) : std::nullopt;
}

void CNetRequest::CRooms::recordOutcome(CURLcode result)
{
    // Until it is known, so that an end which cannot be recorded is never taken for a success.
    outcome.set(result != CURLE_OK ? result : CURLE_ABORTED_BY_CALLBACK, kx::String());
    record.end();
    noticeEnd(result);
    const bool isHTTP = judgesByProtocol() ? url.isHTTP() : url.toString().startsWith("http");
    const bool isRefused = result == CURLE_OK && isHTTP && !isHTTPSuccess(handle.getLong(CURLINFO_RESPONSE_CODE));
    if (isRefused || result != CURLE_OK)
        outcome.set(isRefused ? CURLE_HTTP_RETURNED_ERROR : result, failureText(result));
    else if (!callbackError.isThere())
        outcome.set(CURLE_OK, kx::String());
}

void CNetRequest::CRooms::noticeRefusedRedirect(CURLcode result)
{
    if (result == CURLE_OK || !redirects.wantsToBeAsked())
        return;
    const auto location = response.getHeaderMap().find("location");
    const kx::String refusal
        = redirects.getRefusal(result, location == response.getHeaderMap().end() ? kx::String() : location->second);
    if (refusal.isEmpty())
        return;
    long status = 0;
    handle.ask(CURLINFO_RESPONSE_CODE, status); // which leaves libcurl's own words in the buffer
    CFailureDetails details = failureDetails(result);
    details.limitText = "T" + refusal.substr(1) + "."; // "the redirect from ..."
    callbackError.keep(CCURLError(result, refusal, "http", static_cast<int>(status), "", "", details));
}

void CNetRequest::CRooms::noticeProtocol()
{
    const char* scheme = nullptr;
    if (judgesByProtocol() && handle.ask(CURLINFO_SCHEME, scheme) && scheme)
        url.setSpoken(kx::String::fromLatin1(scheme));
}

void CNetRequest::CRooms::requireNoExcess(const kx::String& excess) const
{
    requireNoExcess(excess, excess);
}

void CNetRequest::CRooms::requireNoExcess(const kx::String& excess, const kx::String& plainExcess) const
{
    if (excess.isEmpty())
        return;
    long status = 0;
    handle.ask(CURLINFO_RESPONSE_CODE, status);
    CFailureDetails details = failureDetails(CURLE_FILESIZE_EXCEEDED);
    const bool hasName = !details.path.isEmpty() && details.path != "/";
    details.limitText = "The answer of the server " + details.host
        + (hasName ? " about '" + details.path + "'" : kx::String()) + " is too large: " + plainExcess + ".";
    throw CCURLError(
        CURLE_FILESIZE_EXCEEDED, excess, url.getResponseCodeDomain(), static_cast<int>(status), "", "", details);
}

void CNetRequest::CRooms::requireRoomFor(size_t size) const
{
    curl_off_t announced = -1;
    if (!receiveLimits.isBodyLimited() || !response.hasDefaultSink()
        || !handle.ask(CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, announced))
        return;
    const size_t held = response.getDefaultBuffer()->getSize();
    const kx::String excess = receiveLimits.excessOfBody(held, size, announced);
    if (!excess.isEmpty())
        requireNoExcess(excess, receiveLimits.plainExcessOfBody(held, size, announced));
}

size_t CNetRequest::CRooms::write(char* data, size_t size, size_t count, void* rooms) noexcept
{
    auto& self = *static_cast<CRooms*>(rooms);
    const size_t total = size * count;
    const bool taken = self.callbackError.keepFrom([&self, data, total] {
        self.requireNoExcess(self.unpacking.take(total));
        self.requireRoomFor(total);
        self.response.takeBody(
            reinterpret_cast<const unsigned char*>(data), static_cast<int>(total), self.url, self.sending.getMethod());
    });
    if (taken)
        return total;
    return total == 0 ? 1 : 0; // anything but the total makes libcurl stop
}

size_t CNetRequest::CRooms::read(char* buffer, size_t size, size_t count, void* rooms) noexcept
{
    CHeldCookies::release(); // the head is written, and the body may take its time
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
    const bool isAllowed = self.callbackError.keepFrom([&self] {
        if (self.redirects.wantsToBeAsked())
            self.redirects.beforeRequest();
        self.noticeProtocol();
    });
    if (!isAllowed)
        return CURL_PREREQFUNC_ABORT;
    const int answer = self.prerequest.callApplications(peerIP, localIP, peerPort, localPort);
    if (answer == CURL_PREREQFUNC_OK && self.holdsCookies())
        self.cookieJar->hold();
    return answer;
}

int CNetRequest::CRooms::goOn(
    void* rooms, curl_off_t toDownload, curl_off_t downloaded, curl_off_t toUpload, curl_off_t uploaded) noexcept
{
    CHeldCookies::release();
    const auto& self = *static_cast<CRooms*>(rooms);
    if (self.isHeldUpByGoodbye())
        return 1;
    return self.progress.callApplications(toDownload, downloaded, toUpload, uploaded);
}

// Older versions of libcurl look up once a second there, and would wait for as long as a transfer may be silent. How
// the transfer ends is decided.
bool CNetRequest::CRooms::isHeldUpByGoodbye() const noexcept
{
    constexpr auto longestGoodbye = std::chrono::milliseconds(900);
    if (!stallWatcher || !record.isRefused())
        return false;
    const std::chrono::microseconds silence(record.getSilentMicroseconds());
    return silence >= longestGoodbye && silence <= stallWatcher->getCallDuration();
}

// When an FTP server has said where it waits for the data connection before libcurl has come to wait for that, older
// versions make none until something happens to the other one, which is the server's time-out.
bool CNetRequest::CRooms::lookAgainAfter(std::string_view reply) noexcept
{
    constexpr unsigned int firstThatLooks = 0x080e01; // or an earlier one of 8
    static const bool looksByItself = curl_version_info(CURLVERSION_NOW)->version_num >= firstThatLooks;
    if (!stallWatcher || looksByItself)
        return true;
    const bool mayStall = reply.starts_with("229 ") || reply.starts_with("227 ");
    if (mayStall)
        stallWatcher->setMayStall(handle.get(), true);
    else
        noticeStall(reply);
    return !mayStall || callbackError.keepFrom([this] { handle.lookAgain(); });
}

// With TLS libcurl waits for the data connection's handshake alone, which the server begins when it was asked for the
// file: replies to what is asked before that wake nobody.
void CNetRequest::CRooms::noticeStall(std::string_view reply) noexcept
{
    const char first = reply.empty() ? ' ' : reply.front();
    if (first == '1' || first == '4' || first == '5')
        stallWatcher->setMayStall(handle.get(), false);
}

size_t CNetRequest::CRooms::takeHeader(char* data, size_t size, size_t count, void* rooms) noexcept
{
    auto& self = *static_cast<CRooms*>(rooms);
    const size_t length = size * count;
    self.record.noticeLine({data, length}, self.url.isHTTP());
    if (!self.lookAgainAfter({data, length}) || !self.callbackError.keepFrom([&self, length] {
            self.requireNoExcess(self.receiveLimits.excessOfLine(length));
        }))
        return 0;
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
