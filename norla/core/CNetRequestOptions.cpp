// What a request passes on to libcurl.

#include "kx/base/CInvalidArgError.h"
#include "kx/text/CStringFormat.h"
#include "norla/core/CCURLError.h"
#include "norla/core/CNetRequestRooms.h"
#include "norla/core/optionChecks.h"
#include "norla/proxy/CProxySettings.h"

#include <algorithm>
#include <limits>

namespace norla {

namespace {

int clampedToInt(long long value) noexcept
{
    return static_cast<int>(
        std::clamp<long long>(value, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
}

/// Whether libcurl sends what the option is set to. @param option which takes a text or an address
constexpr bool isBody(CURLoption option) noexcept
{
    return option == CURLOPT_POSTFIELDS || option == CURLOPT_COPYPOSTFIELDS || option == CURLOPT_MIMEPOST;
}

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

void CNetRequest::setOptionInt(CURLoption option, int value)
{
    requireOptionTakes(option, OptionValue::number, "CNetRequest::setOptionInt");
    if (option == CURLOPT_POSTFIELDSIZE)
        m_rooms->sending.requireWithinCopiedBody(value);
    if (option == CURLOPT_HTTPAUTH)
        m_rooms->token.setMethods(value);
    else
        m_rooms->handle.set(option, static_cast<long>(value));
    m_rooms->noticeNumber(option, value);
}

void CNetRequest::setOptionInt64(CURLoption option, long long value)
{
    requireOptionTakes(option, OptionValue::number, "CNetRequest::setOptionInt64");
    if (option == CURLOPT_POSTFIELDSIZE_LARGE)
        m_rooms->sending.requireWithinCopiedBody(value);
    if (option == CURLOPT_HTTPAUTH)
        m_rooms->token.setMethods(static_cast<long>(value));
    else
        m_rooms->handle.set(option, static_cast<curl_off_t>(value));
    m_rooms->noticeNumber(option, value);
}

void CNetRequest::CRooms::noticeNumber(CURLoption option, long long value) noexcept
{
    unpacking.noticeNumber(option, value);
    demands.noticeNumber(option, value);
    deadlines.noticeNumber(option, value);
    proxy.noticeNumber(option, value);
    ssh.noticeNumber(option, value);
    tls.noticeNumber(option, value);
    redirects.noticeNumber(option, value);
    progress.noticeNumber(option, value);
    sideEffects.noticeNumber(option, value);
}

void CNetRequest::setOptionPtr(CURLoption option, void* value)
{
    requireOptionTakes(option, OptionValue::pointer, "CNetRequest::setOptionPtr");
    if (isBody(option) && value)
        m_rooms->form.giveWay();
    if (option == CURLOPT_POSTFIELDS || option == CURLOPT_COPYPOSTFIELDS)
        m_rooms->sending.forgetSizeOfOwnBody(); // before libcurl copies as much
    m_rooms->handle.set(option, value);
    if (option == CURLOPT_MAIL_RCPT)
        m_rooms->sending.noticeRecipients(value);
    m_rooms->headers.noticePointer(option, value);
    m_rooms->demands.noticePointer(option, value);
    m_rooms->ssh.noticePointer(option, value);
    m_rooms->sockets.noticePointer(option, value);
    m_rooms->prerequest.noticePointer(option, value);
    m_rooms->progress.noticePointer(option, value);
    m_rooms->tls.noticePointer(option, value);
    m_rooms->redirects.noticePointer(option, value);
    m_rooms->lines.noticePointer(option, value);
    m_rooms->sideEffects.noticePointer(option, value != nullptr);
}

void CNetRequest::setOptionString(CURLoption option, const kx::String& value)
{
    if (option == CURLOPT_URL)
        setURL(value);
    else
        setOptionBytes(option, value.toUTF8());
}

void CNetRequest::setOptionBytes(CURLoption option, const std::string& bytes)
{
    requireOptionTakes(option, OptionValue::text, "CNetRequest::setOptionString");
    requireOptionText(option, bytes, "CNetRequest::setOptionString");
    if (isBody(option))
        m_rooms->form.giveWay();
    if (option == CURLOPT_POSTFIELDS || option == CURLOPT_COPYPOSTFIELDS)
        m_rooms->sending.setCopiedBody(bytes);
    else
        m_rooms->handle.setText(option, bytes);
    m_rooms->demands.noticeText(option, bytes);
    m_rooms->ssh.noticeText(option, bytes);
    m_rooms->lines.noticeText(option, bytes);
    m_rooms->redirects.noticeText(option, bytes);
    m_rooms->proxy.noticeText(option, bytes);
}

void CNetRequest::setURL(const kx::String& url)
{
    setOptionBytes(CURLOPT_URL, url.toUTF8());
    m_rooms->url = CRequestURL(url);
}

void CNetRequest::setHTTPMethod(const kx::String& method)
{
    requireOptionText(CURLOPT_CUSTOMREQUEST, method.toUTF8(), "CNetRequest::setHTTPMethod");
    m_rooms->sending.setMethod(method);
}

void CNetRequest::setUpload(bool upload)
{
    m_rooms->sending.setUpload(upload);
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
    m_rooms->token.setMethods(static_cast<long>(mask)); // the highest bit is in use: an int would not hold it
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
    setProxy(CProxySettings::getUserSettings()->getProxyForURL(getURL()));
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

void CNetRequest::setCustomHTTPHeaders(CNetHeaders* headers)
{
    m_rooms->headers.setCallers(headers);
}

// In the two list setters the old list is dropped last: libcurl holds on to it until it has taken the new one.
void CNetRequest::setFTPCustomPreCommands(CNetStringList* commands)
{
    curl_slist* const list = commands ? commands->getCurlList() : nullptr;
    m_rooms->handle.set(CURLOPT_PREQUOTE, list);
    m_rooms->lines.noticePointer(CURLOPT_PREQUOTE, list);
    m_rooms->ftpPreCommands = commands;
    m_rooms->sideEffects.noticePointer(CURLOPT_PREQUOTE, commands && !commands->isEmpty());
}

void CNetRequest::setFTPCustomPostCommands(CNetStringList* commands)
{
    curl_slist* const list = commands ? commands->getCurlList() : nullptr;
    m_rooms->handle.set(CURLOPT_POSTQUOTE, list);
    m_rooms->lines.noticePointer(CURLOPT_POSTQUOTE, list);
    m_rooms->ftpPostCommands = commands;
    m_rooms->sideEffects.noticePointer(CURLOPT_POSTQUOTE, commands && !commands->isEmpty());
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
    m_rooms->response.setServerInfoToUpdate(serverInfo);
}

void CNetRequest::setDoneListener(IDoneListener* listener)
{
    m_rooms->doneListener = listener;
}

void CNetRequest::keepObject(kx::IBase* object)
{
    if (object)
        m_rooms->keptObjects.emplace_back(object);
}

void CNetRequest::setReceiveDataSink(IDataSink* sink)
{
    m_rooms->response.setSink(sink);
}

void CNetRequest::setReceiveDataStream(kx::IOutStream* stream)
{
    m_rooms->response.setSink(kx::newObj<CStreamDataSink>(stream).get());
}

void CNetRequest::setDefaultReceiveDataStream()
{
    m_rooms->response.setDefaultSink();
}

void CNetRequest::setSendDataSource(IDataSource* source)
{
    m_rooms->sending.setSource(source);
}

kx::P<CNetRequest::IDataSource> CNetRequest::getSendDataSource() const
{
    return m_rooms->sending.getSource();
}

void CNetRequest::setSendDataStream(kx::IInStream* stream)
{
    setSendDataSource(kx::newObj<CStreamDataSource>(stream).get());
}

void CNetRequest::setSendDataBuffer(const Buffer* buffer)
{
    if (!buffer)
        throw kx::CInvalidArgError("buffer is null", "CNetRequest::setSendDataBuffer");
    m_rooms->sending.setBuffer(*buffer);
}

void CNetRequest::setSendDataAsUTF8(const kx::String& text)
{
    m_rooms->sending.setText(text);
}

void CNetRequest::setSendDataSize(long long size)
{
    m_rooms->sending.setSize(size);
}

} // namespace norla
