#pragma once

#include "norla/core/CFailureDetails.h"
#include "norla/core/CNetRequest.h"
#include "norla/core/CTransferProgress.h"

namespace norla {

class COpenSockets;
class IStallWatcher;
struct CRepeatability;

/// A request as those see it who drive its transfer, with libcurl's multi interface or more than once. Made for a
/// moment. What is not said otherwise is for who has claimed the request (CNetRequest::claim()).
class CManagedRequest {
public:
    explicit CManagedRequest(CNetRequest& request) noexcept
        : m_request(request)
    {
    }

    /// What the request is of, as it was set.
    const kx::String& getURL() const noexcept;

    /// When nobody has claimed it. @param functionName for the error @throws kx::CError when its transfer is running,
    /// or waits for its start. Any thread.
    void requireFree(const char* functionName) const;

    /// When the request begins to wait for its start in the background, and when it does so no longer. Until then it is
    /// not performed. Any thread.
    void enterQueue() noexcept;
    void leaveQueue() noexcept;

    /// When libcurl is about to take the request. @param sockets of the multi handle
    /// @throws CCURLError if libcurl refuses
    void enter(COpenSockets& sockets);

    /// The same where it is only told what happens to sockets (curl_multi_socket_action(3)).
    void enterEvents(COpenSockets& sockets, IStallWatcher& watcher);

    /// Until the request is reset an answer that breaks off in its header is an error, where libcurl sees an empty one.
    void requireWholeHeader() noexcept;

    /// Whether the application opens its sockets itself (CURLOPT_OPENSOCKETFUNCTION), so that nobody learns of their
    /// end.
    bool opensSockets() const noexcept;

    /// With the result, before libcurl lets go of a request whose transfer has ended.
    void dropConnectionAfter(CURLcode result) noexcept;

    /// Before and after libcurl lets go of a request whose transfer has not ended. It would end the mail that it is
    /// sending as if it were whole, and wait for the server's answer. Over SSH it would close the file, and
    /// wait for the answer to that.
    void beginWithdrawal();
    void endWithdrawal();

    /// When libcurl has ended the transfer, before setAsyncInfo(true, result). When this answers true, the transfer was
    /// ended before anything of it was sent, because TLS is demanded and the connection, an old one, has none: the
    /// request is prepared for one more attempt on a new connection, which is to be started.
    bool beginSecondAttempt();

    /// Of the transfer that has failed.
    CRepeatability getRepeatability() const;

    /// @return false when the body cannot be sent anew, or the answer not taken
    [[nodiscard]] bool rewind() noexcept;

    /// Beside what is set, all transfers that begin from now on have ended within that time, taken together; a reset
    /// changes nothing of that. @param left a millisecond at least counts for each; infinite: no such limit any more
    void limitTransfers(const kx::CTimeSpan& left) noexcept;

    /// Without a byte of the body, from the start of the transfer on, in milliseconds: what the request allows for a
    /// connection and for the inactivity behind it, one after the other. 0: for ever.
    long long getLongestSilence() const noexcept;

    /// A transfer is to come: the request is not done until tellEnd().
    void expect();

    /// The transfer ends with this error, unless there is an earlier one already.
    void fail(const std::exception& error) noexcept;

    /// The same with one that says what the transfer was about.
    /// @param limit which one was reached; None: the program has cancelled it
    /// @param text for the error's message; of a limit a whole sentence, which is all that there is to explain
    void fail(TransferLimit limit, const kx::String& text) noexcept;

    /// The same with one of the limit Total. @param within what ends the sentence, such as "2 seconds"
    void failOverdue(const kx::String& within);

    /// Behind a transfer that was cancelled for want of time, and not because the program wanted none: it may be made
    /// once more.
    void blameTime() noexcept;

    /// Of the current attempt, or the last one.
    CTransferProgress getProgress() const noexcept;

    /// An attempt has ended, and how is recorded. Nobody is told.
    /// @return the error; null after a success
    /// @throws CCURLError or std::bad_alloc when it cannot be recorded
    kx::P<kx::CError> endAttempt(CURLcode result);

    /// All attempts have ended: sets the done signal, and calls the listener. What the listener throws is logged.
    /// @param failure null after a success
    void tellEnd(const kx::CError* failure) noexcept;

private:
    CNetRequest& m_request;
};

} // namespace norla
