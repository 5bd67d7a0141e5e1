#pragma once

#include "norla/core/CTransferInfo.h"
#include "sela/CTLSSession.h"

#include <curl/curl.h>

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace norla {

class CEasyHandle;

/// What is to be known of a transfer behind its end: libcurl's figures, which stay with its handle, and beside them
/// what has to be asked while the connection lives. Sets no option and leaves libcurl's error text alone. Used by the
/// thread of the transfer, and after its end by whoever asks.
class CTransferRecord {
public:
    /// @param handle outlives this object
    explicit CTransferRecord(const CEasyHandle& handle) noexcept;
    CTransferRecord(const CTransferRecord&) = delete;
    CTransferRecord& operator=(const CTransferRecord&) = delete;

    /// There is no transfer to tell of.
    void forget() noexcept;

    /// libcurl is about to start the transfer.
    void begin() noexcept;

    /// A header or reply line, as it came.
    /// @param isHTTP whether the transfer is one of HTTP: its header fields are of no interest here
    void noticeLine(std::string_view line, bool isHTTP) noexcept;

    /// The transfer has ended, with whatever result. @throws std::bad_alloc
    void end();

    CTransferInfo getInfo() const;

    /// How far the transfer has come, or had come at its end.
    TransferPhase getPhase() const;

    /// Whether the server of the last hop is connected and ready, and the request (of FTP and mail the body) was begun.
    bool hasRequestBegun() const noexcept;

    /// Whether an FTP or mail server has said anything.
    bool hasReplies() const noexcept { return m_replies.areThere; }

    /// Since the last hop has begun, redirects and rounds of a login left out; and since the transfer has.
    long long getHopMicroseconds() const noexcept;
    long long getTotalMicroseconds() const noexcept;

    /// Since the last reply of an FTP or mail server; 0 before the first.
    long long getSilentMicroseconds() const noexcept;

    /// Whether the last thing that an FTP or mail server said was a refusal.
    bool isRefused() const noexcept { return m_replies.isRefused; }

    /// Whether the last refusal of a mail server came behind its consent to the sender and before the message.
    bool isRecipientRefused() const noexcept { return m_replies.isRecipientRefused; }

    /// Whether a mail server has agreed to take the message.
    bool hasMailDataBegun() const noexcept { return m_replies.hasDataBegun; }

    /// Whether a server has answered by HTTP, be it with a redirect.
    bool hasHTTPAnswer() const noexcept { return m_hasAnswer; }

    /// Whether the answer has ended within its header fields, which libcurl takes for an empty one.
    bool isHeadCutOff() const noexcept { return m_isHeadOpen; }

    /// Whether the last hop went over a connection that was open before.
    bool isConnectionReused() const noexcept;

    /// In lower case, of the last hop; empty before a transfer.
    std::string getScheme() const;

    /// What was sent first, which redirects may have changed: of HTTP the method, also where the options alone tell it,
    /// of others what libcurl compares with it, or a command that was set in place of it. Empty before a transfer has
    /// ended.
    const std::string& getFirstMethod() const noexcept { return m_method; }

    /// Whether it is one that may be sent again (RFC 9110 section 9.2.2).
    bool hasIdempotentMethod() const noexcept;

    /// "address:port" of the last connection's other end; empty when unknown.
    kx::String getRemoteAddress() const;

    /// The port of it; 0 when unknown.
    long getRemotePort() const noexcept;

    /// The address that was or is fetched, as libcurl has it: with a login, if it has one. Empty before a transfer.
    std::string getURL() const;

private:
    using Clock = std::chrono::steady_clock;
    enum class State { None, Running, Ended };

    // libcurl adds up what the hops of a transfer take: how far the last one is, the difference to those before tells.
    struct CMoments {
        curl_off_t hop = 0; // when it began, 0: the first one
        curl_off_t lookup = 0;
        curl_off_t encryption = 0;
        curl_off_t request = 0;
        long connections = 0;
    };

    // Of FTP and mail, where libcurl counts the connection for commands again with each other one.
    struct CReplies {
        bool areThere = false;
        long connections = 0; // that were made before the first of them
        curl_off_t connect = 0;
        curl_off_t encryption = 0;
        int greetings = 0;
        int agreements = 0;
        bool areAfterLogin = false;
        bool startTLS = false;
        bool hasDataBegun = false; // of a mail
        bool isRefused = false;
        bool isRecipientRefused = false;
        Clock::time_point last;
    };

    CMoments askMoments() const noexcept;
    void noticeStatusLine(std::string_view line) noexcept;
    void noticeReplyLine(std::string_view line) noexcept;
    void noticeStatus(std::string_view status, bool isLastLine) noexcept;
    void noticeTLS() noexcept;
    TransferPhase phaseBeforeRequest(const CMoments& now) const;
    TransferPhase phaseAfterRequest() const;
    CTransferInfo::CTimes getTimes() const;
    std::optional<CTransferInfo::CTLS> getTLS() const;
    kx::String getProtocol() const;
    int getRedirects() const noexcept;
    void noticeMethod() noexcept;

    const CEasyHandle& m_handle;
    State m_state = State::None;
    CMoments m_answered;      // when the last answer of HTTP began
    bool m_hasAnswer = false; // whether there was one
    bool m_isRedirect = false;
    bool m_isHeadOpen = false; // a status line has come, and not the empty line behind the fields
    int m_redirects = 0;       // that were followed and answered
    CReplies m_replies;
    sela::CTLSSession m_tls;
    std::string m_url; // at the end
    std::string m_method;
    Clock::time_point m_end;
};

} // namespace norla
