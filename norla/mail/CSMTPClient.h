#pragma once

#include "kx/base/CBase.h"
#include "kx/base/P.h"
#include "kx/containers/TArray.h"
#include "kx/containers/TBuffer.h"
#include "kx/streams/IInStream.h"
#include "kx/text/String.h"
#include "kx/time/CTimeFields.h"
#include "norla/mail/CSMTPParams.h"

namespace norla {

class CNetRequest;

/// Sends mail to one server, with one login, over connections that its sends share. Made for many messages, one after
/// the other; whatever one of them meets, the next one starts afresh. The lists of recipients stay in memory as long as
/// the client. Used by one thread at a time.
///
/// The static operations prepare any request in the same way, for callers that run it themselves, such as with a
/// manager. They touch nothing else.
///
/// The server's certificate is not verified, which is deliberate, unless CSMTPParams::safeDefaults or tlsOptions ask
/// for it; the name in it has to be the host's in any case.
///
/// Addresses of the envelope are passed on unchanged, with or without angle brackets, and nothing in them is checked
/// but that no recipient is empty: a line end in one would be a command of its own. Whoever takes addresses from
/// outside refuses line ends and control characters in them before, or has CSMTPParams::safeDefaults, with which a line
/// end is an error. The same goes for the header fields of a message (CMimeMessage::getHeaders()), of which nothing is
/// checked in any case.
class KX_EXPORT CSMTPClient : public virtual kx::CBase {
public:
    using Buffer = kx::TBuffer<unsigned char>;

    /// Nothing is sent before the first operation.
    /// @param params copied
    /// @throws as doInitialRequestInit(); as CNetRequest::CNetRequest()
    explicit CSMTPClient(const CSMTPParams& params);
    CSMTPClient(const CSMTPClient&) = delete;
    CSMTPClient& operator=(const CSMTPClient&) = delete;
    ~CSMTPClient() override;

    /// Connects, secures the connection, logs in if there is a user name, and sends no mail. Blocks until that is done.
    /// A server that knows no logins is content with any. Each test has a connection of its own, which stays open as
    /// long as the client: libcurl neither shares nor drops such connections.
    /// @throws CCURLError when the server cannot be reached or refuses the login
    void testConnection();

    /// Sends a message and blocks until the server has taken it.
    /// @param from the sender of the envelope, passed on unchanged; empty for none ("<>"), which is what a bounce has
    /// @param recipients of the envelope, passed on unchanged, none of them empty; if the server refuses one of them,
    /// nobody gets the message
    /// @param message header block and body, as CMimeMessage::store() writes them; copied. Lines that begin with a dot
    /// need no care. Line ends are CRLF: a bare line feed and a bare carriage return are sent as CRLF, so that nothing
    /// in a message can pass for its end and a command behind it (RFC 5321 section 2.3.8). A message whose line ends
    /// are CRLF is sent byte for byte; others need a transfer encoding such as Base64 if every byte of them matters.
    /// @throws CCURLError when the transfer fails, the server refuses (with its reply as getServerReply(), its last
    /// line as "serverMessage"), or there are no recipients
    /// @throws kx::CInvalidArgError when a recipient is empty, before anything is touched, or an address holds a zero
    /// character; kx::CError when it has no UTF-8 form
    void sendMail(const kx::String& from, const kx::TArray<kx::String>& recipients, const Buffer& message);

    /// The text of a "Date" header field: "Sun, 15 Nov 2026 09:05:03 +0000".
    /// @throws as CTimeFields::getWeekDay() and getEnglishMonthAbbrev() for what is no date
    static kx::String getDateHeaderString(const kx::CTimeFields& time);

    /// Resets the request and sets what belongs to the server: URL, login, TLS, and the safe defaults, TLS options
    /// and time limits that are given.
    /// @throws CCURLError if libcurl refuses; kx::CInvalidArgError when a parameter holds a zero character, and for a
    /// time limit that is zero or negative, before anything is touched; as CNetRequest::setTLSOptions()
    static void doInitialRequestInit(CNetRequest& request, const CSMTPParams& params);

    /// Sets what belongs to one message, in place of the last one. The request keeps the list of recipients until its
    /// reset(), and the data until they are replaced.
    /// @param data the message as for sendMail(), its line ends included, read from its start during the transfer; not
    /// null
    /// @throws CCURLError if libcurl refuses; kx::CInvalidArgError for an empty recipient, before anything is touched,
    /// for null and for an address with a zero character; kx::CError for one without UTF-8 form
    static void initRequestForSendMail(
        CNetRequest& request, const kx::String& from, const kx::TArray<kx::String>& recipients, kx::IInStream* data);

    /// Makes of any request one that sends a message when it is performed, which the caller does.
    /// @throws as doInitialRequestInit() and initRequestForSendMail()
    static void makeSendMailRequest(CNetRequest& request, const CSMTPParams& params, const kx::String& from,
        const kx::TArray<kx::String>& recipients, kx::IInStream* data);

    /// Clears what belongs to one message: sender, recipients, data. What belongs to the server stays.
    /// @throws CCURLError if libcurl refuses
    static void resetOptions(CNetRequest& request);

    /// Performs the client's own request as it is prepared, and clears what belongs to a message, also after a failure.
    /// @throws as CNetRequest::perform(); after a success as resetOptions()
    void doPerform();

private:
    void resetOptionsAfterFailure() noexcept;

    const CSMTPParams m_params;
    const kx::P<CNetRequest> m_request;
};

} // namespace norla
