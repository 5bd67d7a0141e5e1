#pragma once

#include "kx/containers/TList.h"
#include "norla/core/CAsyncOutcome.h"
#include "norla/core/CBearerToken.h"
#include "norla/core/CConnectionDemands.h"
#include "norla/core/CCookieJar.h"
#include "norla/core/CEasyHandle.h"
#include "norla/core/CFirstError.h"
#include "norla/core/CFormSending.h"
#include "norla/core/CHeldCookies.h"
#include "norla/core/CKeyPassword.h"
#include "norla/core/CNetRequest.h"
#include "norla/core/CNetStringList.h"
#include "norla/core/CPrerequest.h"
#include "norla/core/CProgressCalls.h"
#include "norla/core/CProxyRoute.h"
#include "norla/core/CReceiveLimits.h"
#include "norla/core/CRedirects.h"
#include "norla/core/CRequestURL.h"
#include "norla/core/CResponse.h"
#include "norla/core/CRunState.h"
#include "norla/core/CSSHTrust.h"
#include "norla/core/CSafeDefaults.h"
#include "norla/core/CSending.h"
#include "norla/core/CSentHeaders.h"
#include "norla/core/CSentLines.h"
#include "norla/core/CSideEffects.h"
#include "norla/core/CTLSTrust.h"
#include "norla/core/CTransferLimits.h"
#include "norla/core/CTransferRecord.h"
#include "norla/core/CTransferSockets.h"
#include "norla/core/CUnpackingLimits.h"
#include "norla/core/IStallWatcher.h"

#include <optional>
#include <string_view>

namespace norla {

/// What a transfer consists of: a room for each kind of knowledge, with the request as the one door; and what libcurl
/// and the end of a transfer ask of several of them at once.
struct CNetRequest::CRooms {
    CRunState run;
    CRequestURL url;
    CResponse response;
    CFirstError callbackError; // of the current transfer
    bool isOverdue = false;    // whoever drives it has ended it for want of time, which the error tells
    bool isHeaderLost = false; // the connection was, within the header of the answer, which the error tells
    CAsyncOutcome outcome;
    kx::P<IDoneListener> doneListener;
    kx::TList<kx::P<kx::IBase>> keptObjects;
    // libcurl's lists, which it does not copy
    kx::P<CNetStringList> ftpPreCommands;
    kx::P<CNetStringList> ftpPostCommands;
    kx::P<CCookieJar> cookieJar;
    CSentHeaders headers{handle};
    CSending sending{handle};
    CFormSending form{sending, headers};
    CBearerToken token{handle};
    CUnpackingLimits unpacking{handle};
    CConnectionDemands demands{handle};
    CPrerequest prerequest{handle};
    CProgressCalls progress{handle};
    CRedirects redirects{handle, headers};
    CReceiveLimits receiveLimits;
    CSentLines lines;
    CSideEffects sideEffects;
    std::optional<CSafeDefaults> safety; // as set, with what its lines are asked for here
    bool wantsWholeHeader = false;       // of the answer, also where `safety` does not ask for it
    CTransferSockets sockets{handle};
    CTLSTrust tls{handle};
    CSSHTrust ssh{handle, callbackError};
    CKeyPassword keyPassword{handle};
    CTransferRecord record{handle};
    CTransferLimits deadlines;
    IStallWatcher* stallWatcher = nullptr; // whoever drives the transfer by what happens to its sockets
    CProxyRoute proxy;
    CEasyHandle handle; // goes first, while everything that its callbacks use is still there

    /// A transfer begins: the options that depend on what it is, which connections it may go over, and who is asked
    /// about them.
    void begin();

    /// An attempt begins: what goes out, and what may be received.
    void beginAttempt();

    /// The options are those of a new request.
    void forgetOptions();

    /// An option was set.
    void noticeNumber(CURLoption option, long long value) noexcept;

    /// Runs the transfer on this thread.
    CURLcode perform();

    /// With the result, before anything is told: notices what libcurl does not say of it, or keeps for the next
    /// transfer.
    void noticeEnd(CURLcode result);

    /// How the transfer has ended that somebody else has driven.
    void recordOutcome(CURLcode result);

    void dropConnectionAfter(CURLcode result) noexcept;

    /// What libcurl says about a failure and what is known beside, or what the request says of its deadlines.
    kx::String failureText(CURLcode result) const;

    CFailureDetails failureDetails(CURLcode result) const;

    /// Whether the last answer was one.
    bool isRedirect() const;

    /// Whether a transfer over a proxy has not come further, as far as one can tell.
    /// @param proxyStatus as CFailureDetails has it
    bool isAtProxy(int proxyStatus) const;

    bool judgesByProtocol() const noexcept { return safety && safety->judgeByProtocol; }

    /// Whether libcurl waits in one call for a mail server that has refused something and does not answer the goodbye.
    bool isHeldUpByGoodbye() const noexcept;

    bool holdsCookies() const noexcept { return cookieJar && CHeldCookies::areNeeded(); }

    /// Does nothing for an empty text. The second one has the same for a person.
    /// @throws CCURLError CURLE_FILESIZE_EXCEEDED with it
    void requireNoExcess(const kx::String& excess) const;
    void requireNoExcess(const kx::String& excess, const kx::String& plainExcess) const;
    void requireRoomFor(size_t size) const;
    void noticeRefusedRedirect(CURLcode result);
    bool needsWholeHeader() const noexcept;
    void keepCutOffHeader();
    void endBody();

    /// As for IDataSink::end(); empty where the server has refused.
    std::optional<int> successStatus() const noexcept;
    void noticeProtocol();

    // false: it cannot, and the transfer might never go on
    [[nodiscard]] bool lookAgainAfter(std::string_view reply) noexcept;
    void noticeStall(std::string_view reply) noexcept;

    // libcurl's, each with the rooms as its data
    static size_t write(char* data, size_t size, size_t count, void* rooms) noexcept;
    static size_t read(char* buffer, size_t size, size_t count, void* rooms) noexcept;
    static int seek(void* rooms, curl_off_t offset, int origin) noexcept;
    static int beforeRequest(void* rooms, char* peerIP, char* localIP, int peerPort, int localPort) noexcept;
    static int goOn(
        void* rooms, curl_off_t toDownload, curl_off_t downloaded, curl_off_t toUpload, curl_off_t uploaded) noexcept;
    static size_t takeHeader(char* data, size_t size, size_t count, void* rooms) noexcept;
};

} // namespace norla
