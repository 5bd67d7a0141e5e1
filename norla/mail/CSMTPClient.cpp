#include "norla/mail/CSMTPClient.h"

#include "kx/base/CInvalidArgError.h"
#include "kx/log/log.h"
#include "kx/streams/CBufferStream.h"
#include "kx/text/CStringFormat.h"
#include "norla/core/CNetRequest.h"
#include "norla/core/CNetStringList.h"
#include "norla/mail/CLineEndStream.h"

#include <algorithm>
#include <exception>
#include <limits>

namespace norla {

namespace {

constexpr long long millisecond = 1000; // microseconds
constexpr long long second = 1'000'000;
constexpr long long longestResponseTimeout = std::numeric_limits<int>::max() / 1000; // seconds; libcurl takes no more

void checkTimeout(const kx::CTimeSpan& limit, const kx::String& name)
{
    if (!limit.isInfinite() && limit.getMicroseconds() <= 0)
        throw kx::CInvalidArgError(name + " is not positive", "CSMTPClient::doInitialRequestInit");
}

/// Less than a millisecond would mean no limit.
kx::CTimeSpan atLeastAMillisecond(const kx::CTimeSpan& limit)
{
    return kx::CTimeSpan::fromMicroseconds(std::max(limit.getMicroseconds(), millisecond));
}

int wholeSeconds(const kx::CTimeSpan& limit)
{
    const long long seconds = (limit.getMicroseconds() - 1) / second + 1;
    return static_cast<int>(std::min(seconds, longestResponseTimeout));
}

void setTimeouts(CNetRequest& request, const CSMTPParams& params)
{
    if (!params.connectTimeout.isInfinite())
        request.setConnectTimeout(atLeastAMillisecond(params.connectTimeout));
    if (!params.responseTimeout.isInfinite())
        request.setOptionInt(CURLOPT_SERVER_RESPONSE_TIMEOUT, wholeSeconds(params.responseTimeout));
    if (!params.fullTimeout.isInfinite())
        request.setFullRequestTimeout(atLeastAMillisecond(params.fullTimeout));
}

void setSafety(CNetRequest& request, const CSMTPParams& params)
{
    if (params.safeDefaults)
        request.setSafeDefaults(*params.safeDefaults);
    if (params.tlsOptions)
        request.setTLSOptions(*params.tlsOptions);
}

} // namespace

CSMTPClient::CSMTPClient(const CSMTPParams& params)
    : m_params(params)
    , m_request(kx::newObj<CNetRequest>())
{
    doInitialRequestInit(*m_request, m_params);
}

CSMTPClient::~CSMTPClient() = default;

void CSMTPClient::testConnection()
{
    resetOptions(*m_request);
    m_request->setOptionInt(CURLOPT_CONNECT_ONLY, 1);
    m_request->setUpload(false);
    doPerform();
}

void CSMTPClient::sendMail(const kx::String& from, const kx::TArray<kx::String>& recipients, const Buffer& message)
{
    const auto copy = kx::newObj<Buffer>(message);
    initRequestForSendMail(*m_request, from, recipients, kx::newObj<kx::CBufferStream>(copy).get());
    doPerform();
}

kx::String CSMTPClient::getDateHeaderString(const kx::CTimeFields& time)
{
    return kx::CStringFormat("%s, %lld %s %04lld %02lld:%02lld:%02lld %s",
        kx::CTimeFields::getEnglishWeekDayAbbrev(time.getWeekDay()).toUTF8().c_str(), time.getDay(),
        kx::CTimeFields::getEnglishMonthAbbrev(time.getMonth()).toUTF8().c_str(), time.getYear(), time.getHour(),
        time.getMinute(), time.getSecond(),
        kx::CTimeFields::getInternetTimeZoneString(time.getZone(), "+0000").toUTF8().c_str());
}

void CSMTPClient::doInitialRequestInit(CNetRequest& request, const CSMTPParams& params)
{
    checkTimeout(params.connectTimeout, "connectTimeout");
    checkTimeout(params.responseTimeout, "responseTimeout");
    checkTimeout(params.fullTimeout, "fullTimeout");
    request.reset();
    const bool isTLS = params.connectType == CSMTPParams::ConnectSSL;
    request.setURL(
        kx::String::fromLatin1(isTLS ? "smtps" : "smtp") + "://" + params.host + kx::CStringFormat(":%d", params.port));
    if (!params.userName.isEmpty()) {
        request.setUserName(params.userName);
        request.setUserPassword(params.password);
    }
    if (params.connectType == CSMTPParams::ConnectStartTLS)
        request.setOptionInt(CURLOPT_USE_SSL, CURLUSESSL_ALL);
    // Deliberately: mail servers of the users' own often have certificates that nobody has signed.
    request.setOptionInt(CURLOPT_SSL_VERIFYPEER, 0);
    setSafety(request, params);
    setTimeouts(request, params);
}

void CSMTPClient::initRequestForSendMail(
    CNetRequest& request, const kx::String& from, const kx::TArray<kx::String>& recipients, kx::IInStream* data)
{
    if (std::any_of(recipients.begin(), recipients.end(), [](const kx::String& address) { return address.isEmpty(); }))
        throw kx::CInvalidArgError("a recipient is empty", "CSMTPClient::initRequestForSendMail");
    resetOptions(request);
    request.setOptionInt(CURLOPT_CONNECT_ONLY, 0);
    request.setOptionString(CURLOPT_MAIL_FROM, from);
    request.setUpload(true);
    const auto list = kx::newObj<CNetStringList>();
    for (const kx::String& recipient : recipients)
        list->add(recipient);
    request.keepObject(list.get()); // libcurl reads the list during the transfer
    request.setOptionPtr(CURLOPT_MAIL_RCPT, list->getCurlList());
    request.setSendDataStream(kx::newObj<CLineEndStream>(data).get());
}

void CSMTPClient::makeSendMailRequest(CNetRequest& request, const CSMTPParams& params, const kx::String& from,
    const kx::TArray<kx::String>& recipients, kx::IInStream* data)
{
    doInitialRequestInit(request, params);
    initRequestForSendMail(request, from, recipients, data);
}

void CSMTPClient::resetOptions(CNetRequest& request)
{
    request.setOptionInt(CURLOPT_CONNECT_ONLY, 0);
    request.setUpload(false);
    request.setOptionString(CURLOPT_MAIL_FROM, kx::String());
    request.setOptionPtr(CURLOPT_MAIL_RCPT, nullptr);
    request.setSendDataStream(kx::newObj<kx::CBufferStream>().get());
}

void CSMTPClient::doPerform()
{
    try {
        m_request->perform();
    } catch (...) {
        resetOptionsAfterFailure();
        throw;
    }
    resetOptions(*m_request);
}

// The transfer's error is the one that the caller must get.
void CSMTPClient::resetOptionsAfterFailure() noexcept
{
    try {
        resetOptions(*m_request);
    } catch (const std::exception& error) {
        kx::logError(error, "A mail request cannot be cleared after a failed transfer (ignored).", "");
    }
}

} // namespace norla
