#pragma once

#include "kx/base/CBase.h"
#include "kx/base/CError.h"
#include "kx/base/P.h"
#include "kx/containers/TBuffer.h"
#include "kx/containers/TMap.h"
#include "kx/files/TPathImpl.h"
#include "kx/streams/IInStream.h"
#include "kx/streams/IOutStream.h"
#include "kx/text/String.h"
#include "kx/threads/CSignal.h"
#include "kx/time/CTimeSpan.h"
#include "norla/core/CStreamDataSink.h"
#include "norla/core/CStreamDataSource.h"

#include <curl/curl.h>

#include <memory>
#include <string>

namespace norla {

class CCookieJar;
class CFormData;
class CNetHeaders;
class CNetStringList;
class CServerInfo;
struct CAcceptEncoding;
struct CDeadlines;
struct CSSHOptions;
struct CSafeDefaults;
struct CTLSOptions;
struct CTransferInfo;

/// One transfer: a libcurl easy handle and everything that belongs to it. Made for many transfers, one after the other,
/// which then share connections: set options, perform(), read the answer. Options stay until reset().
///
/// Used by one thread at a time; isAsyncDone(), waitAsyncDone(), getAsyncDoneSignal() and checkAsyncResult() may be
/// called from any thread while a manager drives the transfer. Sinks, sources and listeners are called on the thread
/// that does.
///
/// Connections stay open for the next transfer until the request goes, which waits for no server: goodbyes are said
/// (FTP, SMTP), but their answers are not waited for. A request keeps five connections; the goodbye of one more, which
/// libcurl says within a transfer, may take until that transfer's low speed limit.
class KX_EXPORT CNetRequest : public kx::CBase {
public:
    class IDoneListener;
    using IDataSink = norla::IDataSink;
    using IDataSource = norla::IDataSource;
    using CStreamDataSink = norla::CStreamDataSink;
    using CStreamDataSource = norla::CStreamDataSource;

    using HeaderMap = kx::TMap<kx::String, kx::String>;
    using Buffer = kx::TBuffer<unsigned char>;
    using Path = kx::TPathImpl<kx::CUnixPathTraits>;

    /// @throws kx::CError "Error creating curl easy handle."; as CGlobalInit::get()
    CNetRequest();
    CNetRequest(const CNetRequest&) = delete;
    CNetRequest& operator=(const CNetRequest&) = delete;
    ~CNetRequest() override;

    /// Back to a new request, keeping libcurl's open connections, DNS and TLS session caches, but no cookies.
    /// @throws kx::CError in a callback of its own transfer, and while a manager has it; nothing has changed then
    void reset();

    /// What every transfer starts with: applies the custom headers again, forgets the last answer, empties the default
    /// receive buffer, lets the sink begin and rewinds the body to be sent. @throws as reset(); what the sink and the
    /// source throw
    void resetForPerform();

    /// The options of a new request: errors and data come to this object, redirects are followed, 30 seconds to
    /// connect, and the end of a transfer that moves nothing for 30 seconds.
    void setDefaultOptions();

    /// What a program of today wants of every transfer, beside the options of a new request: redirects that lead
    /// nowhere else, secrets that stay with their host, TLS and SSH servers that prove who they are, and no more memory
    /// than was meant. The value says what, and switches it off piece by piece. Stays until reset().
    ///
    /// What is set by a value, here and below, needs the value's own header: "norla/core/CSafeDefaults.h" and so on.
    /// Fields are named in the order in which they stand there.
    void setSafeDefaults();
    void setSafeDefaults(const CSafeDefaults& defaults);

    /// How the two sides of a TLS or SSH connection prove who they are. Replaces what was set so before: what the value
    /// leaves out is as in a new value. When it throws, nothing has changed, unless it was libcurl that refused.
    /// @throws kx::CError naming the file that cannot be used, and why; kx::CInvalidArgError naming what is of the
    /// wrong form; never naming a password
    void setTLSOptions(const CTLSOptions& options);
    void setSSHOptions(const CSSHOptions& options);

    /// How long may be waited for what; errors then say for what, and how long.
    void setDeadlines(const CDeadlines& deadlines);

    /// Sent to the URL's host as "Authorization: Bearer", not to another one where it redirects to, and as SASL's
    /// OAUTHBEARER to mail servers, which want setUserName() too: the token alone, without "Bearer". Goes before
    /// setHTTPAuthMethods(), whichever comes first. Empty for none, and the methods set by that again.
    /// @throws kx::CInvalidArgError when it holds anything but the characters of RFC 6750, section 2.1
    void setBearerToken(const kx::String& token);

    /// Where cookies come from and go to, in place of those that the request has by itself. Null for none; a reference
    /// is kept until reset(), which leaves the jar as it is.
    void setCookieJar(CCookieJar* jar);

    /// Asks for a compressed answer and unpacks it; of one that grows beyond all measure it is an error
    /// (CURLE_FILESIZE_EXCEEDED). Replaces what was set before; goes with reset().
    /// @throws kx::CInvalidArgError naming an encoding that is none or that this libcurl cannot unpack; for a negative
    /// limit
    void setAcceptEncoding(const CAcceptEncoding& options);

    /// Sends a form as multipart/form-data, with POST, with the parts that it has when a transfer begins. Null for
    /// none, and the method that was set before; another body takes its place. A reference is kept until reset().
    void setFormData(CFormData* form);

    /// Runs the transfer and blocks until its end.
    ///
    /// When TLS is demanded (CURLOPT_USE_SSL of CURLUSESSL_CONTROL or more, set through this object) and libcurl has
    /// picked an old connection that has none, nothing is sent there: the transfer is started once more, on a new
    /// connection.
    /// @throws CCURLError when it fails or an HTTP response has a status outside 200 to 299; CURLE_USE_SSL_FAILED when
    /// TLS is demanded and the connection is not encrypted
    /// @throws kx::CError the error of a sink or source, when one threw, or of a log handler: it goes before libcurl's
    /// own; as reset(); while it waits for its start in the background (CAsyncNetRequestThread)
    void perform();

    /// Passes one option to libcurl, for those that have no setter here. All setters throw CCURLError if libcurl
    /// refuses. These four also throw kx::CInvalidArgError for an option that takes something else
    /// (curl_easy_option_by_id()): libcurl would take a number for the address of a text.
    void setOptionInt(CURLoption option, int value);
    void setOptionInt64(CURLoption option, long long value);
    void setOptionPtr(CURLoption option, void* value);
    /// libcurl keeps a copy in UTF-8, also of CURLOPT_POSTFIELDS, whose size is set with it.
    /// @throws kx::CInvalidArgError when the text holds a zero character, or a line end, which would begin another
    /// command or header field on its way to the server. URLs, envelope senders, bodies and names of files may hold
    /// one.
    void setOptionString(CURLoption option, const kx::String& value);

    /// The URL with its scheme, in lower case: without it libcurl guesses, and an HTTP status of 404 is no error.
    /// Blanks must be escaped already (libcurl refuses such a URL as malformed when it is performed); letters outside
    /// ASCII in path and query may stand as they are, libcurl sends them as %xx.
    void setURL(const kx::String& url);

    /// The HTTP method. "GET", "HEAD", "PUT" and "POST" are libcurl's own (case matters); others, such as "DELETE", are
    /// sent as they are, without a body. Empty: nothing special, a GET. For "POST" set the body first: its size is
    /// passed on here; where there is no body, setSendDataSize(0), or else an empty one is sent in chunks. A body
    /// alone makes no request send it: that takes "POST", "PUT" or setUpload(). For "PATCH" with a body set "POST", and
    /// setOptionString(CURLOPT_CUSTOMREQUEST, "PATCH") behind it.
    void setHTTPMethod(const kx::String& method);

    /// Sends a body: CURLOPT_UPLOAD (HTTP PUT, FTP STOR, a mail). A mail that cannot be sent because it has no
    /// recipients fails with CURLE_SEND_ERROR.
    void setUpload(bool upload);

    /// libcurl's own log on standard error, CURLOPT_VERBOSE. It shows credentials.
    void setVerbose(bool verbose);

    /// False accepts a server certificate of any issuer, but still only for the right host; CURLOPT_SSL_VERIFYPEER.
    void setSSLVerifyPeer(bool verify);

    void setFollowRedirects(bool follow);

    /// Whether a POST stays a POST when it is redirected by 301, 302 or 303; CURLOPT_POSTREDIR.
    void setKeepPostOnRedirect(bool keep);

    /// libcurl's CURLAUTH_ bits, of which the strongest that the server offers is used; CURLOPT_HTTPAUTH.
    void setHTTPAuthMethods(unsigned int mask);

    /// libcurl's curl_usessl values; CURLOPT_USE_SSL. CURLUSESSL_CONTROL and CURLUSESSL_ALL demand TLS of the
    /// connection for commands, also of an old one that libcurl would reuse: see perform().
    void setFTPUseSSL(int useSSL);

    /// libcurl's curl_ftpmethod values; CURLOPT_FTP_FILEMETHOD.
    void setFTPFileMethod(int method);

    /// libcurl's curl_ftpcreatedir values; CURLOPT_FTP_CREATE_MISSING_DIRS.
    void setFTPCreateMissingDirs(int create);

    /// Limits name lookup and connection; a lookup that hangs is left to itself. Sent to libcurl in whole milliseconds,
    /// rounded toward zero, at most about 24 days; zero and the infinite span mean libcurl's default of 300 seconds.
    /// Not negative.
    void setConnectTimeout(const kx::CTimeSpan& limit);

    /// Limits the whole transfer, from name lookup to last body byte. Converted as for setConnectTimeout(); zero and
    /// the infinite span mean no limit.
    void setFullRequestTimeout(const kx::CTimeSpan& limit);

    /// Ends a transfer that stays below that speed for that time, which is rounded up to whole seconds. Zero for either
    /// means no such limit. The infinite span is not understood: libcurl refuses it.
    void setLowSpeedLimit(int bytesPerSecond, const kx::CTimeSpan& time);

    void setUserName(const kx::String& name);
    void setUserPassword(const kx::String& password);

    /// "host:port" or "scheme://host:port"; empty means no proxy, whatever the environment says (CURLOPT_PROXY).
    void setProxy(const kx::String& proxy);

    /// The proxy that the user's settings (CProxySettings::getUserSettings()) give for the current URL.
    void setProxyForCurrentURLFromUserSettings();

    /// A file of PEM certificates, against which servers are verified; CURLOPT_CAINFO. libcurl gets the
    /// path's bytes. @throws kx::CInvalidArgError when the path holds a zero character
    void setRootCertBundlePath(const Path& path);

    /// A file of known SSH hosts, in the form of OpenSSH's known_hosts; CURLOPT_SSH_KNOWNHOSTS. An SFTP server that is
    /// not in it, or has another key there, is refused (CURLE_PEER_FAILED_VERIFICATION); a file that is missing knows
    /// no host. With a manager every transfer has a connection of its own then: libcurl does not ask again over one
    /// that is there. While none is set every server is believed to be the one that was meant, and gets the login.
    void setSSHKnownHostsPath(const Path& path);

    /// Asks for a part of the resource.
    /// @param start of the first byte, counted from 0
    /// @param length in bytes; -1 up to the end of the resource
    /// @throws kx::CInvalidArgError when start + length is beyond 64 bits
    void setRange(long long start, long long length);

    /// Headers added to the list later are sent too. Null for none; a reference is kept.
    void setCustomHTTPHeaders(CNetHeaders* headers);

    /// FTP commands sent before and after the transfer (CURLOPT_PREQUOTE, CURLOPT_POSTQUOTE). The lists must be filled
    /// when they are set. Null for none; references are kept.
    void setFTPCustomPreCommands(CNetStringList* commands);
    void setFTPCustomPostCommands(CNetStringList* commands);

    /// Replaces the command of an FTP listing, such as "MLSD"; empty for libcurl's own.
    void setFTPListOverrideCommand(const kx::String& command);

    /// The record that learns from the response headers of this request. Null for none; a reference is kept until
    /// reset().
    void setServerInfoToUpdate(CServerInfo* serverInfo);

    /// Told at the end of every transfer. Null for none; a reference is kept until reset(). In an asynchronous transfer
    /// the done signal is set just before: with a listener, others leave the request alone until the listener was
    /// called.
    void setDoneListener(IDoneListener* listener);

    /// Keeps the object alive until reset(), for what libcurl reads during the transfer. Null is ignored.
    void keepObject(kx::IBase* object);

    /// Where the response body goes. Null discards it; a reference is kept until reset().
    void setReceiveDataSink(IDataSink* sink);
    void setReceiveDataStream(kx::IOutStream* stream);

    /// The response body goes to the default receive buffer again.
    void setDefaultReceiveDataStream();

    /// Where the body to be sent comes from. Null for none; a reference is kept until reset(). Its size is unknown to
    /// libcurl unless setSendDataSize() tells it: HTTP then uses chunks.
    void setSendDataSource(IDataSource* source);
    void setSendDataStream(kx::IInStream* stream);

    /// As set, by whichever of these; null while none was.
    kx::P<IDataSource> getSendDataSource() const;

    /// Sends what the buffer holds; the caller keeps it alive and unchanged until the transfer has ended. Not null.
    void setSendDataBuffer(const Buffer* buffer);

    /// Sends a copy of the text in UTF-8. @throws kx::CError when it has no UTF-8 form
    void setSendDataAsUTF8(const kx::String& text);

    /// The size of the body in bytes; -1 when unknown. No more than that is sent, and a source that ends before is an
    /// error. A size that was set together with a body (setSendDataBuffer(), setSendDataAsUTF8()) is forgotten with it.
    void setSendDataSize(long long size);

    /// As set; empty in a new request.
    kx::String getURL() const;

    /// The method that is sent: "GET" while none was set.
    kx::String getHTTPMethod() const;

    /// Null when none were set.
    kx::P<CNetHeaders> getCustomHTTPHeaders();

    /// Lower-case header name to value, of the last response of the transfer.
    const HeaderMap& getResponseHeaderMap() const;

    /// Every header or reply line of the transfer with its line end, in order of arrival, of all protocols. Lines that
    /// are not UTF-8 are left out. The list is replaced, not changed, by the next transfer.
    CNetStringList* getResponseInfo() const;

    /// The response body, unless another sink was set.
    kx::P<Buffer> getDefaultReceiveBuffer() const;
    bool usesDefaultReceiveBuffer() const;

    /// What libcurl knows about the transfer. @throws CCURLError for a value of another type
    int getInfoLong(CURLINFO info);
    double getInfoDouble(CURLINFO info);

    /// Those that are a curl_off_t, such as CURLINFO_FILETIME_T. @throws as the above
    long long getInfoInt64(CURLINFO info);

    /// Such as CURLINFO_EFFECTIVE_URL, the address that was fetched after all redirects; empty when there is none.
    /// @throws also kx::CError when it is not UTF-8; CCURLError also for CURLINFO_PRIVATE and CURLINFO_FTP_ENTRY_PATH
    kx::String getInfoString(CURLINFO info);

    /// The last status that the server sent (HTTP, FTP, SMTP); 0 when there was none.
    int getResponseCode();

    /// Bytes of body, -1 for a size that is unknown, and bytes per second.
    double getDownloadedBytes();
    double getDownloadSize();
    double getAvgDownloadSpeed();
    double getUploadedBytes();
    double getUploadSize();
    double getAvgUploadSpeed();

    /// What has happened in the last transfer, as one value; also after a failure.
    CTransferInfo getTransferInfo() const;

    /// What the response code of this URL belongs to: "http", "ftp", "smtp", or empty for other schemes.
    kx::String getResponseCodeDomain() const;

    /// Every byte of the text's UTF-8 form outside letters, digits and "-._~" becomes %XX; so does "/".
    /// @throws kx::CError "Error URL-escaping a string."; when the text has no UTF-8 form
    kx::String urlEscape(const kx::String& text);

    /// What libcurl said about its last failure; empty when it said nothing.
    kx::String getErrorMessage();

    /// Throws a CCURLError with what is known about the failure: the message (libcurl's own when it is empty) and,
    /// after an answer, what the server said (the last reply line of a mail server, or the text of the body that an
    /// HTTP server sent into the default receive buffer). A mail server's last refusal, if there was one, is the
    /// error's getServerReply().
    [[noreturn]] void throwError(
        CURLcode code, const kx::String& responseCodeDomain, int responseCode, const kx::String& message);

    /// The text for a person in an error response: of HTML the text without tags, of anything else the body itself; at
    /// most its first 4096 bytes. Empty when they are not UTF-8.
    static kx::String getServerErrorMessageFromResponseData(
        const unsigned char* data, int size, const HeaderMap& headers);

    /// Throws the error with which the asynchronous transfer ended; does nothing after a success or while it runs.
    void checkAsyncResult();
    bool isAsyncDone();
    bool waitAsyncDone(int timeoutMs); ///< as kx::CSignal::wait()
    kx::P<kx::CSignal> getAsyncDoneSignal();

    // What follows, down to the private part, is for the asynchronous manager.

    /// With (false, CURLE_OK) when it takes the request, with (true, result) at the end. The second sets the done
    /// signal, as the last it does to this object, and then calls the listener.
    /// @throws for the first as resetForPerform(); for the second what the listener throws, and CCURLError or
    /// std::bad_alloc when the end cannot be recorded: the listener is told that error before, and checkAsyncResult()
    /// throws one
    void setAsyncInfo(bool done, CURLcode result);

    CURL* getEasyHandle() const noexcept; ///< owned by this object

    /// Before anything else, so that of several who want the request one gets it. Until leaveManager() it is neither
    /// performed nor reset. Any thread.
    /// @return false when it is running already
    [[nodiscard]] bool claim() noexcept;

    void leaveManager() noexcept;
    bool isManaged() const noexcept; ///< any thread

    /// Whether connections of earlier perform() calls may be open. Newer libcurls close them when a multi handle takes
    /// the request.
    bool hasOwnConnections() const noexcept;

private:
    friend class CManagedRequest;
    struct CRooms;

    void setOptionBytes(CURLoption option, const std::string& bytes);
    void setTimeout(CURLoption option, const kx::CTimeSpan& limit);
    void beginAttempt();
    void performOnce();
    bool beginSecondAttempt();
    kx::P<kx::CError> asyncFailure();

    const std::unique_ptr<CRooms> m_rooms;
};

/// Told when a transfer has ended.
class KX_EXPORT CNetRequest::IDoneListener : public virtual kx::IBase {
public:
    /// @param error null on success; valid during the call
    virtual void onNetRequestDone(CNetRequest* request, const kx::CError* error) = 0;
};

} // namespace norla
