#include "norla/core/CNetRequest.h"

#include "kx/base/CInvalidArgError.h"
#include "kx/base/CStdExceptionError.h"
#include "kx/log/log.h"
#include "kx/streams/CBufferStream.h"
#include "kx/text/CStringFormat.h"
#include "kx/text/numbers.h"
#include "kx/threads/CMutexLock.h"
#include "norla/core/CCURLError.h"
#include "norla/core/CGlobalInit.h"
#include "norla/core/CNetHeaders.h"
#include "norla/core/CNetStringList.h"
#include "norla/core/COpenSockets.h"
#include "norla/core/CSigPipeBlock.h"
#include "norla/core/CTLSDemand.h"
#include "norla/core/optionChecks.h"
#include "norla/core/refusal.h"
#include "norla/http/serverMessage.h"
#include "norla/http/util.h"
#include "norla/proxy/CProxySettings.h"
#include "norla/proxy/proxyLogin.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <sys/socket.h>
#include <type_traits>
#include <utility>
#include <vector>

namespace norla {

namespace {

// Far more than CURL_ERROR_SIZE, on purpose.
constexpr size_t errorBufferSize = 10011;

struct CSchemeRow {
    const char* prefix;
    const char* domain;
};
constexpr auto schemes = std::to_array<CSchemeRow>({
    {"http:", "http"},
    {"https:", "http"},
    {"ftp:", "ftp"},
    {"ftps:", "ftp"},
    {"sftp:", "ftp"},
    {"smtp:", "smtp"},
    {"smtps:", "smtp"},
});

kx::String domainOfURL(const kx::String& url)
{
    const kx::String scheme = url.substr(0, url.find(L':') + 1).toLower();
    const auto row = std::find_if(schemes.begin(), schemes.end(),
        [&scheme](const CSchemeRow& candidate) { return scheme == kx::String::fromLatin1(candidate.prefix); });
    return kx::String::fromLatin1(row == schemes.end() ? "" : row->domain);
}

int clampedToInt(long long value) noexcept
{
    return static_cast<int>(
        std::clamp<long long>(value, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
}

constexpr bool isSuccess(int httpStatus) noexcept
{
    return httpStatus >= 200 && httpStatus <= 299;
}

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

class CTrueMeanwhile {
public:
    explicit CTrueMeanwhile(std::atomic<bool>& flag)
        : m_flag(flag)
    {
        m_flag = true;
    }
    CTrueMeanwhile(const CTrueMeanwhile&) = delete;
    CTrueMeanwhile& operator=(const CTrueMeanwhile&) = delete;
    ~CTrueMeanwhile() { m_flag = false; }

private:
    std::atomic<bool>& m_flag;
};

class CSetAtEnd {
public:
    explicit CSetAtEnd(kx::CSignal& signal)
        : m_signal(signal)
    {
    }
    CSetAtEnd(const CSetAtEnd&) = delete;
    CSetAtEnd& operator=(const CSetAtEnd&) = delete;
    ~CSetAtEnd() { m_signal.set(); }

private:
    kx::CSignal& m_signal;
};

// The range as libcurl and HTTP write it: both ends inclusive, the second left out for "up to the end".
kx::String rangeText(long long start, long long length)
{
    if (length == -1)
        return kx::CStringFormat("%lld-", start);
    long long end = 0;
    if (__builtin_add_overflow(start, length, &end) || __builtin_sub_overflow(end, 1, &end))
        throw kx::CInvalidArgError(
            kx::CStringFormat("the range from %lld on with a length of %lld is beyond 64 bits", start, length),
            "CNetRequest::setRange");
    return kx::CStringFormat("%lld-%lld", start, end);
}

} // namespace

void CNetRequest::CEasyCleanup::operator()(CURL* handle) const noexcept
{
    const CSigPipeBlock block; // a TLS connection says goodbye here
    curl_easy_cleanup(handle);
}

CNetRequest::CNetRequest()
    : m_ownSockets(std::make_unique<COpenSockets>())
{
    CGlobalInit::get();
    m_asyncDoneSignal = kx::newObj<kx::CSignal>();
    m_easyHandle.reset(curl_easy_init());
    if (!m_easyHandle)
        throw kx::CError("Error creating curl easy handle.");
    m_tlsDemand = std::make_unique<CTLSDemand>(m_easyHandle.get());
    m_defaultReceiveBuffer = kx::newObj<Buffer>();
    m_defaultReceiveStream = kx::newObj<kx::CBufferStream>(m_defaultReceiveBuffer);
    m_defaultReceiveSink = kx::newObj<CStreamDataSink>(m_defaultReceiveStream.get());
    m_receiveSink = m_defaultReceiveSink;
    m_responseInfo = kx::newObj<CNetStringList>();
    m_errorBuffer.setSize(errorBufferSize);
    m_errorBuffer.getData()[0] = 0;
    setDefaultOptions();
}

CNetRequest::~CNetRequest()
{
    // The handle goes while everything that its callbacks use is still there.
    m_customHeaders = nullptr;
    m_ftpPreCommands = nullptr;
    m_ftpPostCommands = nullptr;
    m_ownSockets->stopReading();
    m_easyHandle.reset();
}

void CNetRequest::reset()
{
    requireNotRunning("CNetRequest::reset");
    m_sendDataHolder = nullptr;
    m_sendDataSource = nullptr;
    m_doneListener = nullptr;
    m_receiveSink = m_defaultReceiveSink;
    m_headerAssembler.setServerInfoToUpdate(nullptr);
    {
        const kx::CMutexLock lock(m_asyncMutex);
        prepareAsync(CURLE_OK);
    }
    m_url = kx::String();
    m_isHTTP = false;
    m_isMail = false;
    m_errorBuffer.getData()[0] = 0;
    if (m_hasCookies)
        setOption(CURLOPT_COOKIELIST, "ALL"); // which libcurl would keep
    curl_easy_reset(m_easyHandle.get());
    m_usedSockets = nullptr;
    m_opensSockets = false;
    m_closesSockets = false;
    m_tlsDemand->forgetOptions();
    m_hasFreshConnectBySelf = false;
    m_httpMethod = kx::String();
    m_upload = false;
    m_sendDataSize = -1;
    m_customHeaders = nullptr;
    m_ftpPreCommands = nullptr;
    m_ftpPostCommands = nullptr;
    m_keptObjects.clear();
    m_proxyLogins.clear();
    m_sshDemands.clear();
    m_copiedBody.reset();
    m_isSizeOfOwnBody = false;
    m_recipients = nullptr;
    resetForPerform();
    setDefaultOptions();
}

// A transfer that is reset while it runs would end as a success with half an answer.
void CNetRequest::requireNotRunning(const char* functionName) const
{
    if (m_isPerforming || m_isManaged)
        throw kx::CError(kx::String::fromLatin1(functionName) + " was called while the request's transfer is running.");
}

void CNetRequest::resetForPerform()
{
    requireNotRunning("CNetRequest::resetForPerform");
    beginAttempt();
}

void CNetRequest::beginAttempt()
{
    if (m_customHeaders)
        setCustomHTTPHeaders(m_customHeaders.get());
    m_headerAssembler.reset();
    m_statusLine = kx::String();
    m_responseCode = -1;
    m_callbackError = nullptr;
    m_sendDataWasRead = false;
    m_sendPosition = 0;
    m_responseInfo = kx::newObj<CNetStringList>();
    m_replies = nullptr;
    m_defaultReceiveStream->seek(0);
    m_defaultReceiveBuffer->setSize(0);
    if (const kx::P<IDataSink> sink = m_receiveSink) // which may put another one in its place
        sink->begin();
    const kx::P<IDataSource> source = m_sendDataSource; // which may put another one in its place
    if (source && source->getPosition() != 0)
        source->seek(0);
}

void CNetRequest::setDefaultOptions()
{
    setOption(CURLOPT_ERRORBUFFER, m_errorBuffer.getData());
    setOption(CURLOPT_WRITEFUNCTION, &CNetRequest::writeCallback);
    setOptionPtr(CURLOPT_WRITEDATA, this);
    setOption(CURLOPT_READFUNCTION, &CNetRequest::readCallback);
    setOptionPtr(CURLOPT_READDATA, this);
    setOption(CURLOPT_SEEKFUNCTION, &CNetRequest::seekCallback);
    setOptionPtr(CURLOPT_SEEKDATA, this);
    setOption(CURLOPT_HEADERFUNCTION, &CNetRequest::headerCallback);
    setOptionPtr(CURLOPT_HEADERDATA, this);
    setOptionInt(CURLOPT_FOLLOWLOCATION, 1);
    setOptionInt(CURLOPT_NOSIGNAL, 1); // transfers run on worker threads
    setConnectTimeout(kx::CTimeSpan::fromSeconds(30));
    setOptionInt(CURLOPT_LOW_SPEED_LIMIT, 1);
    setOptionInt(CURLOPT_LOW_SPEED_TIME, 30);
}

// What keeps a transfer from waiting where no time limit counts. Set once for many transfers.
void CNetRequest::useSockets(COpenSockets& sockets)
{
    if (m_usedSockets == &sockets)
        return;
    setOptionInt(CURLOPT_QUICK_EXIT, 1); // a name lookup that hangs is left to itself
    if (!m_opensSockets) {
        setOption(CURLOPT_OPENSOCKETFUNCTION, &COpenSockets::onOpen);
        setOption(CURLOPT_OPENSOCKETDATA, static_cast<void*>(&sockets));
    }
    if (!m_closesSockets) { // connections outlive requests: none may go on with the sockets of another cache
        const bool notes = !m_opensSockets;
        setOption(CURLOPT_CLOSESOCKETFUNCTION, notes ? &COpenSockets::onClose : nullptr);
        setOption(CURLOPT_CLOSESOCKETDATA, static_cast<void*>(notes ? &sockets : nullptr));
    }
    m_usedSockets = &sockets;
}

void CNetRequest::perform()
{
    requireNotRunning("CNetRequest::perform");
    resetForPerform();
    m_errorBuffer.getData()[0] = 0;
    try {
        beginEncryptionWatch();
        performOnce();
    } catch (const kx::CError& error) {
        tellDoneAfterFailure(m_doneListener.get(), error);
        throw;
    }
    tellDone(m_doneListener.get(), nullptr);
}

void CNetRequest::performOnce()
{
    CURLcode result = runTransfer();
    if (beginSecondAttempt())
        result = runTransfer();
    noticePlainConnection();
    noticeFailedRewind(result);
    noticeUnsentMail(result);
    if (m_callbackError)
        m_callbackError->throwClone();
    // Taken now, because asking for the response code clears the error buffer.
    if (result != CURLE_OK) {
        const kx::String message = getErrorMessage();
        throwError(result, getResponseCodeDomain(), getResponseCode(), message);
    }
    if (!m_isHTTP)
        return;
    const int status = getResponseCode();
    if (!isSuccess(status))
        throwError(CURLE_HTTP_RETURNED_ERROR, "http", status, "");
}

// What a mail server says too late would be taken for its answer to the next mail.
void CNetRequest::dropConnectionAfter(CURLcode result) noexcept
{
    curl_socket_t socket = CURL_SOCKET_BAD;
    if (result == CURLE_OPERATION_TIMEDOUT && !m_isHTTP && m_recipients
        && curl_easy_getinfo(m_easyHandle.get(), CURLINFO_ACTIVESOCKET, &socket) == CURLE_OK
        && socket != CURL_SOCKET_BAD)
        shutdown(socket, SHUT_RDWR); // fails where the server was faster
}

CURLcode CNetRequest::runTransfer()
{
    useSockets(*m_ownSockets);
    const CSigPipeBlock block;
    const CTrueMeanwhile performing(m_isPerforming);
    m_hasOwnConnections = true;
    const CURLcode result = curl_easy_perform(m_easyHandle.get());
    dropConnectionAfter(result);
    return result;
}

// Only for who demands TLS, so that everybody else's options stay what they were.
void CNetRequest::beginEncryptionWatch()
{
    m_tlsDemand->begin();
    const bool isFresh = needsNewSSHConnection();
    if (m_hasFreshConnectBySelf || isFresh) // the first: of the last transfer
        setFreshConnectBySelf(isFresh);
    if (!m_tlsDemand->isMade())
        return;
    setOption(CURLOPT_PREREQFUNCTION, &CTLSDemand::callback);
    setOption(CURLOPT_PREREQDATA, m_tlsDemand.get());
}

// libcurl does not ask who the server is where it has a connection to it already, made by whomever and believing whatever.
bool CNetRequest::needsNewSSHConnection()
{
    const kx::String scheme = m_url.substr(0, m_url.find(L':')).toLower();
    if (scheme != "sftp" && scheme != "scp")
        return false;
    if (m_isManaged)
        return !m_sshDemands.empty();
    m_hasOtherSSHConnections = m_hasOtherSSHConnections || (m_ownSSHDemands && *m_ownSSHDemands != m_sshDemands);
    m_ownSSHDemands = m_sshDemands;
    return m_hasOtherSSHConnections;
}

// Nothing of the transfer was sent or received before.
bool CNetRequest::beginSecondAttempt()
{
    if (m_hasFreshConnectBySelf || !m_tlsDemand->canConnectionHelp())
        return false;
    return storingErrors([this] {
        beginAttempt();
        setFreshConnectBySelf(true);
        m_tlsDemand->begin();
        m_errorBuffer.getData()[0] = 0;
    });
}

void CNetRequest::setFreshConnectBySelf(bool fresh)
{
    setOption(CURLOPT_FRESH_CONNECT, static_cast<long>(fresh || m_tlsDemand->isFreshConnectSet()));
    m_hasFreshConnectBySelf = fresh;
}

void CNetRequest::noticePlainConnection()
{
    if (m_tlsDemand->wasRefused() && !m_callbackError)
        m_callbackError = CCURLError(CURLE_USE_SSL_FAILED, "the connection is not encrypted although TLS is demanded",
            getResponseCodeDomain(), 0, "")
                              .clone();
}

// It stays in the easy handle, over a reset too.
void CNetRequest::noticeFailedRewind(CURLcode result)
{
    m_hasRewindPending = m_hasRewindPending || result == CURLE_SEND_FAIL_REWIND;
}

// Without recipients libcurl says HELP in place of sending the mail, and is content when the server answers.
void CNetRequest::noticeUnsentMail(CURLcode result)
{
    if (result == CURLE_OK && m_upload && !m_recipients && !m_sendDataWasRead && !m_callbackError
        && getResponseCodeDomain() == "smtp")
        m_callbackError
            = CCURLError(CURLE_SEND_ERROR, "the message has no recipients and was not sent", "smtp", 0, "").clone();
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

template <typename TValue>
void CNetRequest::setOption(CURLoption option, TValue value)
{
    // libcurl reads its variadic argument as one of these and checks nothing.
    static_assert(std::is_same_v<TValue, long> || std::is_same_v<TValue, curl_off_t> || std::is_pointer_v<TValue>);
    m_errorBuffer.getData()[0] = 0;
    const CURLcode result = curl_easy_setopt(m_easyHandle.get(), option, value);
    if (result != CURLE_OK)
        throwError(result, "", -1, "");
}

void CNetRequest::setOptionInt(CURLoption option, int value)
{
    requireOptionTakes(option, OptionValue::number, "CNetRequest::setOptionInt");
    if (option == CURLOPT_POSTFIELDSIZE)
        requireWithinCopiedBody(value);
    setOption(option, static_cast<long>(value));
    m_tlsDemand->noticeNumber(option, value);
}

void CNetRequest::setOptionInt64(CURLoption option, long long value)
{
    requireOptionTakes(option, OptionValue::number, "CNetRequest::setOptionInt64");
    if (option == CURLOPT_POSTFIELDSIZE_LARGE)
        requireWithinCopiedBody(value);
    setOption(option, static_cast<curl_off_t>(value));
    m_tlsDemand->noticeNumber(option, value);
}

// libcurl would send what lies behind its copy.
void CNetRequest::requireWithinCopiedBody(long long size) const
{
    if (m_copiedBody && size > static_cast<long long>(m_copiedBody->size()))
        throw kx::CInvalidArgError("the size " + kx::toString(size) + " is more than the "
                + kx::toString(static_cast<long long>(m_copiedBody->size()))
                + " bytes of the body set by CURLOPT_POSTFIELDS",
            "CNetRequest::setOptionInt64");
}

void CNetRequest::setOptionPtr(CURLoption option, void* value)
{
    requireOptionTakes(option, OptionValue::pointer, "CNetRequest::setOptionPtr");
    const bool isBody = option == CURLOPT_POSTFIELDS || option == CURLOPT_COPYPOSTFIELDS;
    if (isBody)
        forgetSizeOfOwnBody(); // before libcurl copies as much
    setOption(option, value);
    if (option == CURLOPT_MAIL_RCPT)
        m_recipients = value;
    noticeSocketFunction(option, value != nullptr);
    m_tlsDemand->noticePointer(option, value);
}

void CNetRequest::noticeSocketFunction(CURLoption option, bool isSet)
{
    if (option == CURLOPT_OPENSOCKETFUNCTION)
        m_opensSockets = isSet;
    else if (option == CURLOPT_CLOSESOCKETFUNCTION)
        m_closesSockets = isSet;
    else
        return;
    m_usedSockets = nullptr;
}

void CNetRequest::setOptionString(CURLoption option, const kx::String& value)
{
    if (option == CURLOPT_URL) {
        setURL(value);
        return;
    }
    setOptionBytes(option, value.toUTF8());
    if (option == CURLOPT_PROXY || option == CURLOPT_PRE_PROXY)
        m_proxyLogins[option] = proxyLoginOf(value);
}

void CNetRequest::setOptionBytes(CURLoption option, const std::string& bytes)
{
    requireOptionTakes(option, OptionValue::text, "CNetRequest::setOptionString");
    requireOptionText(option, bytes, "CNetRequest::setOptionString");
    if (option == CURLOPT_SSH_KNOWNHOSTS || option == CURLOPT_SSH_HOST_PUBLIC_KEY_MD5
        || option == CURLOPT_SSH_HOST_PUBLIC_KEY_SHA256)
        m_sshDemands[option] = bytes;
    m_hasCookies
        = m_hasCookies || option == CURLOPT_COOKIEFILE || option == CURLOPT_COOKIEJAR || option == CURLOPT_COOKIELIST;
    if (option == CURLOPT_POSTFIELDS || option == CURLOPT_COPYPOSTFIELDS)
        setCopiedBody(bytes);
    else
        setOption(option, bytes.c_str());
}

// CURLOPT_POSTFIELDS is the one text that libcurl does not copy. It copies as many bytes as it was told of before, and drops its
// copy when it is told of more later.
void CNetRequest::setCopiedBody(const std::string& bytes)
{
    const auto size = static_cast<long long>(bytes.size());
    setOption(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(size));
    setOption(CURLOPT_COPYPOSTFIELDS, bytes.c_str());
    m_copiedBody = bytes;
    m_sendDataSize = size;
    m_isSizeOfOwnBody = true;
}

// A size that this object has set belongs to the body that it was set with.
void CNetRequest::forgetSizeOfOwnBody()
{
    if (m_copiedBody) {
        m_copiedBody.reset();
        setOption(CURLOPT_POSTFIELDS, static_cast<void*>(nullptr));
        setOption(CURLOPT_POSTFIELDSIZE_LARGE, curl_off_t{-1});
        if (!m_httpMethod.isEmpty())
            setHTTPMethod(m_httpMethod); // the body's option has made it a POST
    }
    if (m_isSizeOfOwnBody)
        setSendDataSize(-1);
}

void CNetRequest::setURL(const kx::String& url)
{
    setOptionBytes(CURLOPT_URL, url.toUTF8());
    m_url = url;
    const kx::String domain = domainOfURL(url);
    m_isHTTP = domain == "http";
    m_isMail = domain == "smtp";
}

void CNetRequest::setHTTPMethod(const kx::String& method)
{
    requireOptionText(CURLOPT_CUSTOMREQUEST, method.toUTF8(), "CNetRequest::setHTTPMethod");
    constexpr std::array standardMethods = {"", "GET", "PUT", "POST", "HEAD"};
    const bool isStandard = std::any_of(standardMethods.begin(), standardMethods.end(),
        [&method](const char* standard) { return method == kx::String::fromLatin1(standard); });
    if (isStandard)
        setOptionPtr(CURLOPT_CUSTOMREQUEST, nullptr);
    switchOffOtherMethods(method);
    if (isStandard)
        switchOnMethod(method);
    else
        setOptionString(CURLOPT_CUSTOMREQUEST, method);
    m_httpMethod = method;
}

// All of these fall back to GET inside libcurl, so that they must come before the method's own option.
void CNetRequest::switchOffOtherMethods(const kx::String& method)
{
    if (method != "GET")
        setOptionInt(CURLOPT_HTTPGET, 0);
    if (method != "HEAD")
        setOptionInt(CURLOPT_NOBODY, 0);
    if (method != "PUT")
        setUpload(false);
    if (method == "POST")
        return;
    setOptionInt(CURLOPT_POST, 0);
    setOptionInt64(CURLOPT_POSTFIELDSIZE_LARGE, 0);
}

void CNetRequest::switchOnMethod(const kx::String& method)
{
    if (method == "PUT") {
        setUpload(true);
    } else if (method == "POST") {
        setOptionInt(CURLOPT_POST, 1);
        if (m_copiedBody)
            setCopiedBody(std::string(*m_copiedBody));
        else
            setOptionInt64(CURLOPT_POSTFIELDSIZE_LARGE, m_sendDataSize);
    } else if (method == "GET") {
        setOptionInt(CURLOPT_HTTPGET, 1);
    } else if (method == "HEAD") {
        setOptionInt(CURLOPT_NOBODY, 1);
    }
}

void CNetRequest::setUpload(bool upload)
{
    setOptionInt(CURLOPT_UPLOAD, upload);
    m_upload = upload;
}

void CNetRequest::setVerbose(bool verbose)
{
    setOptionInt(CURLOPT_VERBOSE, verbose);
}

void CNetRequest::setSSLVerifyPeer(bool verify)
{
    setOptionInt(CURLOPT_SSL_VERIFYPEER, verify);
}

void CNetRequest::setFollowRedirects(bool follow)
{
    setOptionInt(CURLOPT_FOLLOWLOCATION, follow);
}

void CNetRequest::setKeepPostOnRedirect(bool keep)
{
    setOptionInt(CURLOPT_POSTREDIR, keep ? CURL_REDIR_POST_ALL : 0);
}

void CNetRequest::setHTTPAuthMethods(unsigned int mask)
{
    setOption(CURLOPT_HTTPAUTH, static_cast<long>(mask)); // the highest bit is in use: an int would not hold it
}

void CNetRequest::setFTPUseSSL(int useSSL)
{
    setOptionInt(CURLOPT_USE_SSL, useSSL);
}

void CNetRequest::setFTPFileMethod(int method)
{
    setOptionInt(CURLOPT_FTP_FILEMETHOD, method);
}

void CNetRequest::setFTPCreateMissingDirs(int create)
{
    setOptionInt(CURLOPT_FTP_CREATE_MISSING_DIRS, create);
}

void CNetRequest::setConnectTimeout(const kx::CTimeSpan& limit)
{
    setTimeout(CURLOPT_CONNECTTIMEOUT_MS, limit);
}

void CNetRequest::setFullRequestTimeout(const kx::CTimeSpan& limit)
{
    setTimeout(CURLOPT_TIMEOUT_MS, limit);
}

void CNetRequest::setTimeout(CURLoption option, const kx::CTimeSpan& limit)
{
    setOptionInt(option, limit.isInfinite() ? 0 : clampedToInt(limit.getMicroseconds() / 1000));
}

void CNetRequest::setLowSpeedLimit(int bytesPerSecond, const kx::CTimeSpan& time)
{
    constexpr long long second = 1'000'000;
    const long long microseconds = time.getMicroseconds();
    setOptionInt(CURLOPT_LOW_SPEED_LIMIT, bytesPerSecond);
    setOptionInt(CURLOPT_LOW_SPEED_TIME, clampedToInt(microseconds / second + (microseconds % second > 0 ? 1 : 0)));
}

void CNetRequest::setUserName(const kx::String& name)
{
    setOptionString(CURLOPT_USERNAME, name);
}

void CNetRequest::setUserPassword(const kx::String& password)
{
    setOptionString(CURLOPT_PASSWORD, password);
}

void CNetRequest::setProxy(const kx::String& proxy)
{
    setOptionString(CURLOPT_PROXY, proxy);
}

void CNetRequest::setProxyForCurrentURLFromUserSettings()
{
    setProxy(CProxySettings::getUserSettings()->getProxyForURL(m_url));
}

void CNetRequest::setRootCertBundlePath(const Path& path)
{
    setOptionBytes(CURLOPT_CAINFO, path.toNormalized(true, Path()).toBytes());
}

void CNetRequest::setSSHKnownHostsPath(const Path& path)
{
    setOptionBytes(CURLOPT_SSH_KNOWNHOSTS, path.toBytes());
}

void CNetRequest::setRange(long long start, long long length)
{
    setOptionString(CURLOPT_RANGE, rangeText(start, length));
}

// In the three list setters the old list is dropped last: libcurl holds on to it until it has taken the new one.
void CNetRequest::setCustomHTTPHeaders(CNetHeaders* headers)
{
    setOption(CURLOPT_HTTPHEADER, headers ? headers->getCurlList() : nullptr);
    m_customHeaders = headers;
}

void CNetRequest::setFTPCustomPreCommands(CNetStringList* commands)
{
    setOption(CURLOPT_PREQUOTE, commands ? commands->getCurlList() : nullptr);
    m_ftpPreCommands = commands;
}

void CNetRequest::setFTPCustomPostCommands(CNetStringList* commands)
{
    setOption(CURLOPT_POSTQUOTE, commands ? commands->getCurlList() : nullptr);
    m_ftpPostCommands = commands;
}

void CNetRequest::setFTPListOverrideCommand(const kx::String& command)
{
    if (command.isEmpty())
        setOptionPtr(CURLOPT_CUSTOMREQUEST, nullptr);
    else
        setOptionString(CURLOPT_CUSTOMREQUEST, command);
}

void CNetRequest::setServerInfoToUpdate(CServerInfo* serverInfo)
{
    m_headerAssembler.setServerInfoToUpdate(serverInfo);
}

void CNetRequest::setDoneListener(IDoneListener* listener)
{
    m_doneListener = listener;
}

void CNetRequest::keepObject(kx::IBase* object)
{
    if (object)
        m_keptObjects.emplace_back(object);
}

void CNetRequest::setReceiveDataSink(IDataSink* sink)
{
    m_receiveSink = sink;
}

void CNetRequest::setReceiveDataStream(kx::IOutStream* stream)
{
    m_receiveSink = kx::newObj<CStreamDataSink>(stream);
}

void CNetRequest::setDefaultReceiveDataStream()
{
    m_receiveSink = m_defaultReceiveSink;
}

void CNetRequest::setSendDataSource(IDataSource* source)
{
    forgetSizeOfOwnBody();
    useSource(source);
}

void CNetRequest::useSource(IDataSource* source)
{
    m_sendDataSource = source;
    m_sendDataHolder = nullptr;
}

// In place of what there was, with its size.
void CNetRequest::useBody(kx::IInStream* stream, long long size)
{
    if (m_copiedBody)
        forgetSizeOfOwnBody();
    useSource(kx::newObj<CStreamDataSource>(stream).get());
    setSendDataSize(size);
    m_isSizeOfOwnBody = true;
}

void CNetRequest::setSendDataStream(kx::IInStream* stream)
{
    setSendDataSource(kx::newObj<CStreamDataSource>(stream).get());
}

void CNetRequest::setSendDataBuffer(const Buffer* buffer)
{
    if (!buffer)
        throw kx::CInvalidArgError("buffer is null", "CNetRequest::setSendDataBuffer");
    useBody(kx::newObj<kx::CBufferStream>(*buffer).get(), static_cast<long long>(buffer->getSize()));
}

void CNetRequest::setSendDataAsUTF8(const kx::String& text)
{
    const std::string bytes = text.toUTF8();
    const auto buffer = kx::newObj<Buffer>();
    buffer->append(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
    useBody(kx::newObj<kx::CBufferStream>(buffer).get(), static_cast<long long>(buffer->getSize()));
    m_sendDataHolder = buffer;
}

void CNetRequest::setSendDataSize(long long size)
{
    setOptionInt64(CURLOPT_INFILESIZE_LARGE, size);
    if (m_httpMethod == "POST")
        setOptionInt64(CURLOPT_POSTFIELDSIZE_LARGE, size);
    m_sendDataSize = size;
    m_isSizeOfOwnBody = false;
}

kx::String CNetRequest::getHTTPMethod() const
{
    return m_httpMethod.isEmpty() ? "GET" : m_httpMethod;
}

kx::P<CNetHeaders> CNetRequest::getCustomHTTPHeaders()
{
    return m_customHeaders;
}

template <typename TValue>
TValue CNetRequest::getInfo(CURLINFO info)
{
    TValue value{};
    m_errorBuffer.getData()[0] = 0;
    const CURLcode result = curl_easy_getinfo(m_easyHandle.get(), info, &value);
    if (result != CURLE_OK)
        throwError(result, "", -1, "");
    return value;
}

int CNetRequest::getInfoLong(CURLINFO info)
{
    if ((info & CURLINFO_TYPEMASK) != CURLINFO_LONG)
        throwError(CURLE_UNKNOWN_OPTION, "", -1, "");
    return static_cast<int>(getInfo<long>(info));
}

double CNetRequest::getInfoDouble(CURLINFO info)
{
    if ((info & CURLINFO_TYPEMASK) != CURLINFO_DOUBLE)
        throwError(CURLE_UNKNOWN_OPTION, "", -1, "");
    return getInfo<double>(info);
}

kx::String CNetRequest::getInfoString(CURLINFO info)
{
    // Of the last two libcurl gives the application's own pointer, and one into a connection that may be gone.
    if ((info & CURLINFO_TYPEMASK) != CURLINFO_STRING || info == CURLINFO_PRIVATE || info == CURLINFO_FTP_ENTRY_PATH)
        throwError(CURLE_UNKNOWN_OPTION, "", -1, "");
    const char* const text = getInfo<const char*>(info);
    return text ? kx::String::fromUTF8(text) : kx::String();
}

int CNetRequest::getResponseCode()
{
    return getInfoLong(CURLINFO_RESPONSE_CODE);
}

// libcurl marks these values as deprecated; their replacements are of another type.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

double CNetRequest::getDownloadedBytes()
{
    return getInfoDouble(CURLINFO_SIZE_DOWNLOAD);
}

double CNetRequest::getDownloadSize()
{
    return getInfoDouble(CURLINFO_CONTENT_LENGTH_DOWNLOAD);
}

double CNetRequest::getAvgDownloadSpeed()
{
    return getInfoDouble(CURLINFO_SPEED_DOWNLOAD);
}

double CNetRequest::getUploadedBytes()
{
    return getInfoDouble(CURLINFO_SIZE_UPLOAD);
}

double CNetRequest::getUploadSize()
{
    return getInfoDouble(CURLINFO_CONTENT_LENGTH_UPLOAD);
}

double CNetRequest::getAvgUploadSpeed()
{
    return getInfoDouble(CURLINFO_SPEED_UPLOAD);
}

#pragma GCC diagnostic pop

kx::String CNetRequest::getResponseCodeDomain() const
{
    return domainOfURL(m_url);
}

kx::String CNetRequest::urlEscape(const kx::String& text)
{
    const std::string bytes = text.toUTF8();
    const bool fits = bytes.size() <= static_cast<size_t>(std::numeric_limits<int>::max());
    const std::unique_ptr<char, decltype(&curl_free)> escaped(
        fits ? curl_easy_escape(m_easyHandle.get(), bytes.data(), static_cast<int>(bytes.size())) : nullptr, curl_free);
    if (!escaped)
        throw kx::CError("Error URL-escaping a string.");
    return kx::String::fromUTF8(escaped.get());
}

kx::String CNetRequest::getErrorMessage()
{
    try {
        std::vector<kx::String> logins;
        for (const auto& [option, login] : m_proxyLogins)
            logins.push_back(login);
        return withoutProxyLogins(kx::String::fromUTF8(m_errorBuffer.getData()), std::move(logins));
    } catch (const kx::CError& error) {
        kx::logError(
            error, "A CURL function has failed, but the CURL error buffer does not contain valid UTF8 data.", "");
        return kx::String();
    }
}

void CNetRequest::throwError(
    CURLcode code, const kx::String& responseCodeDomain, int responseCode, const kx::String& message)
{
    throw CCURLError(code, message.isEmpty() ? getErrorMessage() : message, responseCodeDomain, responseCode,
        emptyIfItFails([&] { return getServerMessage(responseCodeDomain, responseCode); }),
        emptyIfItFails([&] { return m_replies ? lastRefusal(*m_replies) : kx::String(); }));
}

kx::String CNetRequest::getServerMessage(const kx::String& responseCodeDomain, int responseCode)
{
    if (responseCodeDomain == "smtp" && responseCode >= 1)
        return getLastResponseLine();
    if (responseCodeDomain != "http" || m_defaultReceiveBuffer->getSize() == 0)
        return kx::String();
    const auto size = clampedToInt(static_cast<long long>(m_defaultReceiveBuffer->getSize()));
    return getServerErrorMessageFromResponseData(m_defaultReceiveBuffer->getData(), size, getResponseHeaderMap());
}

kx::String CNetRequest::getLastResponseLine()
{
    kx::String last;
    for (const auto line = m_responseInfo->createIterator(); line->next();)
        last = line->getCurrent();
    return last;
}

kx::String CNetRequest::getServerErrorMessageFromResponseData(
    const unsigned char* data, int size, const HeaderMap& headers)
{
    return emptyIfItFails([&] {
        return serverMessage({reinterpret_cast<const char*>(data), static_cast<size_t>(std::max(size, 0))}, headers);
    });
}

void CNetRequest::setAsyncInfo(bool done, CURLcode result)
{
    if (!done) {
        const kx::CMutexLock lock(m_asyncMutex);
        beginEncryptionWatch();
        prepareAsync(result);
        return;
    }
    kx::P<IDoneListener> listener;
    kx::P<kx::CError> failure;
    try {
        const kx::CMutexLock lock(m_asyncMutex);
        // Whoever waits may use the request the moment the signal is set: that comes last, whatever is thrown here.
        const CSetAtEnd setAtEnd(*m_asyncDoneSignal);
        listener = m_doneListener;
        recordAsyncResult(result);
        if (listener)
            failure = asyncFailure();
    } catch (const std::exception& error) {
        tellDoneAfterFailure(listener.get(), error);
        throw;
    }
    tellDone(listener.get(), failure.get());
}

void CNetRequest::prepareAsync(CURLcode result)
{
    beginAttempt();
    m_asyncDoneSignal->reset();
    m_asyncResult = result;
    m_asyncErrorMessage = kx::String();
    m_errorBuffer.getData()[0] = 0;
}

void CNetRequest::recordAsyncResult(CURLcode result)
{
    // Until the outcome is known, so that an end which cannot be recorded is never taken for a success.
    m_asyncResult = result != CURLE_OK ? result : CURLE_ABORTED_BY_CALLBACK;
    noticePlainConnection();
    noticeFailedRewind(result);
    noticeUnsentMail(result);
    CURLcode outcome = result;
    if (result == CURLE_OK && m_url.startsWith("http") && !isSuccess(getResponseCode()))
        outcome = CURLE_HTTP_RETURNED_ERROR;
    m_asyncErrorMessage = outcome != CURLE_OK ? getErrorMessage() : kx::String();
    m_asyncResult = m_callbackError && outcome == CURLE_OK ? CURLE_ABORTED_BY_CALLBACK : outcome;
}

void CNetRequest::throwAsyncFailure()
{
    if (m_callbackError)
        m_callbackError->throwClone();
    if (m_asyncResult != CURLE_OK)
        throwError(m_asyncResult, getResponseCodeDomain(), getResponseCode(), m_asyncErrorMessage);
}

kx::P<kx::CError> CNetRequest::asyncFailure()
{
    try {
        throwAsyncFailure();
    } catch (const kx::CError& error) {
        return error.clone();
    }
    return nullptr;
}

void CNetRequest::enterManager(COpenSockets& sockets)
{
    if (m_hasOwnConnections)
        m_ownSockets->stopReading(); // newer libcurls close these connections now
    useSockets(sockets);
}

bool CNetRequest::claim() noexcept
{
    return !m_isPerforming && !m_isManaged.exchange(true);
}

// Without recipients libcurl has no mail to end.
void CNetRequest::beginWithdrawal()
{
    if (m_recipients)
        setOption(CURLOPT_MAIL_RCPT, static_cast<void*>(nullptr));
}

void CNetRequest::endWithdrawal()
{
    if (m_recipients)
        setOption(CURLOPT_MAIL_RCPT, m_recipients);
}

void CNetRequest::leaveManager() noexcept
{
    m_isManaged = false;
}

void CNetRequest::checkAsyncResult()
{
    const kx::CMutexLock lock(m_asyncMutex);
    if (m_asyncDoneSignal->isSet())
        throwAsyncFailure();
}

bool CNetRequest::isAsyncDone()
{
    return m_asyncDoneSignal->isSet();
}

bool CNetRequest::waitAsyncDone(int timeoutMs)
{
    return m_asyncDoneSignal->wait(timeoutMs);
}

template <typename TAction>
bool CNetRequest::storingErrors(TAction action) noexcept
{
    try {
        action();
        return true;
    } catch (const std::exception& error) {
        if (!m_callbackError)
            keepCallbackError(error);
        return false;
    }
}

void CNetRequest::keepCallbackError(const std::exception& error) noexcept
{
    try {
        m_callbackError = kx::CStdExceptionError::exceptionToError(error);
    } catch (const std::exception&) {
        m_callbackError = m_outOfMemory;
    }
}

size_t CNetRequest::writeCallback(char* data, size_t size, size_t count, void* request) noexcept
{
    return static_cast<CNetRequest*>(request)->writeHandler(data, size, count);
}

size_t CNetRequest::readCallback(char* buffer, size_t size, size_t count, void* request) noexcept
{
    return static_cast<CNetRequest*>(request)->readHandler(buffer, size, count);
}

int CNetRequest::seekCallback(void* request, curl_off_t offset, int origin) noexcept
{
    return static_cast<CNetRequest*>(request)->seekHandler(offset, origin);
}

size_t CNetRequest::headerCallback(char* data, size_t size, size_t count, void* request) noexcept
{
    return static_cast<CNetRequest*>(request)->headerHandler(data, static_cast<int>(size * count));
}

size_t CNetRequest::writeHandler(char* data, size_t size, size_t count) noexcept
{
    const size_t total = size * count;
    const kx::P<IDataSink> sink = m_receiveSink; // which may put another one in its place
    if (!sink)
        return total;
    const bool taken = storingErrors([this, &sink, data, total] {
        updateResponseCode();
        sink->write(reinterpret_cast<const unsigned char*>(data), static_cast<int>(total), m_responseCode,
            getResponseHeaderMap());
    });
    if (taken)
        return total;
    return total == 0 ? 1 : 0; // anything but the total makes libcurl stop
}

void CNetRequest::updateResponseCode()
{
    if (m_responseCode != -1 || !m_isHTTP)
        return;
    try {
        m_responseCode = getStatusCodeFromHTTPStatusLine(m_statusLine);
    } catch (const kx::CError& error) {
        // The text really ends without a closing quote.
        kx::logError(error,
            "Error parsing HTTP status line - ignoring (statusLine: '" + m_statusLine + "', method: '" + getHTTPMethod()
                + "', URL: '" + m_url + ")",
            "");
        m_responseCode = 0;
    }
}

size_t CNetRequest::readHandler(char* buffer, size_t size, size_t count) noexcept
{
    m_sendDataWasRead = true;
    const kx::P<IDataSource> source = m_sendDataSource; // which may put another one in its place
    if (!source)
        return 0;
    size_t delivered = CURL_READFUNC_ABORT;
    storingErrors([&] { delivered = readSource(*source, buffer, static_cast<int>(size * count)); });
    return delivered;
}

// libcurl 7.88 sends what is more than the size that it was told, as the beginning of another request, and waits for what is less.
size_t CNetRequest::readSource(IDataSource& source, char* buffer, int size)
{
    const long long left = m_sendDataSize == -1 ? size : m_sendDataSize - m_sendPosition;
    if (left <= 0)
        return 0;
    const int count = source.read(reinterpret_cast<unsigned char*>(buffer),
        static_cast<int>(std::min<long long>(size, left)), getResponseHeaderMap());
    if (count == 0 && m_sendDataSize != -1)
        throw kx::CError("The data to be sent have ended " + kx::toString(left) + " bytes before their size of "
            + kx::toString(m_sendDataSize) + ".");
    m_sendPosition += count;
    return static_cast<size_t>(count);
}

int CNetRequest::seekHandler(long long offset, int origin) noexcept
{
    // From libcurl 8 on a rewind that has failed is asked for again at the start of the next transfer, whatever that sends: it
    // begins at 0 anyway.
    if (std::exchange(m_hasRewindPending, false) && !m_sendDataWasRead && origin == SEEK_SET && offset == 0)
        return CURL_SEEKFUNC_OK;
    const kx::P<IDataSource> source = m_sendDataSource;
    if (!source)
        return CURL_SEEKFUNC_FAIL;
    bool found = false;
    storingErrors([&] {
        found = seekSource(*source, offset, origin);
        if (found && m_sendDataSize != -1)
            m_sendPosition = source->getPosition();
    });
    return found ? CURL_SEEKFUNC_OK : CURL_SEEKFUNC_FAIL;
}

bool CNetRequest::seekSource(IDataSource& source, long long offset, int origin)
{
    if (origin == SEEK_SET) {
        source.seek(offset);
        return true;
    }
    if (origin == SEEK_CUR) {
        source.seek(source.getPosition() + offset);
        return true;
    }
    if (origin != SEEK_END || source.getLength() == -1)
        return false;
    source.seek(source.getLength() + offset);
    return true;
}

size_t CNetRequest::headerHandler(const char* data, int length) noexcept
{
    try {
        handleHeaderLine({data, static_cast<size_t>(length)});
    } catch (const std::exception& error) {
        // What a log handler throws comes out of the transfer; the line itself never ends it.
        storingErrors(
            [&error] { kx::logWarning(error, "Exception during CNetRequest header parsing (ignored).", ""); });
    }
    return static_cast<size_t>(length);
}

// What a mail server says is shown to people, in whatever encoding it says it.
void CNetRequest::keepReply(std::string_view bytes)
{
    std::string line(bytes.substr(0, bytes.find_last_not_of("\r\n") + 1));
    std::replace_if(
        line.begin(), line.end(), [](char byte) { return static_cast<unsigned char>(byte) < ' ' || byte == 127; }, '?');
    if (!m_replies)
        m_replies = kx::newObj<CNetStringList>();
    try {
        m_replies->add(kx::String::fromUTF8(line));
    } catch (const kx::CError&) {
        m_replies->add(kx::String::fromLatin1(line));
    }
}

void CNetRequest::handleHeaderLine(std::string_view bytes)
{
    if (m_isMail)
        keepReply(bytes);
    const kx::String line = kx::String::fromUTF8(bytes);
    if (m_isHTTP && line.toWide().starts_with(L"HTTP/")) {
        // An interim response, a redirect or a proxy's answer came before: only the last response counts.
        if (!m_statusLine.isEmpty())
            m_headerAssembler.reset();
        m_statusLine = line.trim();
    } else if (m_isHTTP) {
        m_headerAssembler.handleHeaderLine(line);
    }
    m_responseInfo->addUTF8(bytes);
}

CNetRequest::CStreamDataSink::CStreamDataSink(kx::IOutStream* stream)
    : m_stream(stream)
{
    if (!stream)
        throw kx::CInvalidArgError("stream is null", "CNetRequest::CStreamDataSink::CStreamDataSink");
}

CNetRequest::CStreamDataSink::~CStreamDataSink() = default;

int CNetRequest::CStreamDataSink::write(const unsigned char* data, int size, int, const HeaderMap&)
{
    return m_stream->write(data, size);
}

CNetRequest::CStreamDataSource::CStreamDataSource(kx::IInStream* stream)
    : m_stream(stream)
{
    if (!stream)
        throw kx::CInvalidArgError("stream is null", "CNetRequest::CStreamDataSource::CStreamDataSource");
}

CNetRequest::CStreamDataSource::~CStreamDataSource() = default;

int CNetRequest::CStreamDataSource::read(unsigned char* buffer, int size, const HeaderMap&)
{
    return m_stream->read(buffer, size);
}

long long CNetRequest::CStreamDataSource::getLength()
{
    return m_stream->getLength();
}

void CNetRequest::CStreamDataSource::seek(long long position)
{
    m_stream->seek(position);
}

long long CNetRequest::CStreamDataSource::getPosition()
{
    return m_stream->getPosition();
}

} // namespace norla
