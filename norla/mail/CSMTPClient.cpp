#include "norla/mail/CSMTPClient.h"

#include "kx/log/log.h"
#include "kx/streams/CBufferStream.h"
#include "kx/text/CStringFormat.h"
#include "norla/core/CNetRequest.h"
#include "norla/core/CNetStringList.h"
#include "norla/mail/CLineEndStream.h"

#include <exception>

namespace norla {

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
}

void CSMTPClient::initRequestForSendMail(
    CNetRequest& request, const kx::String& from, const kx::TArray<kx::String>& recipients, kx::IInStream* data)
{
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
