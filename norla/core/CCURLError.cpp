#include "norla/core/CCURLError.h"

#include "kx/text/numbers.h"

namespace norla {

namespace {

kx::String composed(const char* libcurlText, const kx::String& message, const kx::String& domain, int responseCode)
{
    kx::String text = kx::String::fromLatin1(libcurlText);
    if (!message.isEmpty())
        text += ": " + message;
    if (responseCode > 0)
        text += " (response code: " + domain + " " + kx::toString(responseCode) + ")";
    return text;
}

kx::CProps propsOf(const kx::String& domain, int responseCode, const kx::String& serverMessage)
{
    kx::CProps props;
    if (!serverMessage.isEmpty())
        props.set("serverMessage", serverMessage);
    if (responseCode > 0)
        props.set("responseCode", kx::toString(responseCode));
    if (!domain.isEmpty())
        props.set("responseCodeDomain", domain);
    return props;
}

const char* orText(const char* libcurlText, const char* fallback)
{
    return libcurlText ? libcurlText : fallback;
}

} // namespace

CCURLError::CCURLError(CURLcode code, const kx::String& message, const kx::String& responseCodeDomain, int responseCode,
    const kx::String& serverMessage)
    : CCURLError(code, message, responseCodeDomain, responseCode, serverMessage, kx::String())
{
}

CCURLError::CCURLError(CURLcode code, const kx::String& message, const kx::String& responseCodeDomain, int responseCode,
    const kx::String& serverMessage, const kx::String& serverReply)
    : CCURLError(code, message, responseCodeDomain, responseCode, serverMessage, serverReply, CFailureDetails())
{
}

CCURLError::CCURLError(CURLcode code, const kx::String& message, const kx::String& responseCodeDomain, int responseCode,
    const kx::String& serverMessage, const kx::String& serverReply, const CFailureDetails& details)
    : CError(composed(orText(curl_easy_strerror(code), "invalid CURL easy error code"), message, responseCodeDomain,
                 responseCode),
        "curl", code, propsOf(responseCodeDomain, responseCode, serverMessage))
    , m_serverReply(serverReply)
    , m_details(details)
{
}

CCURLError::CCURLError(CURLMcode code, const kx::String& message, const kx::String& responseCodeDomain,
    int responseCode, const kx::String& serverMessage)
    : CError(composed(orText(curl_multi_strerror(code), "invalid CURL multi error code"), message, responseCodeDomain,
                 responseCode),
        "curlm", code, propsOf(responseCodeDomain, responseCode, serverMessage))
{
}

CCURLError::~CCURLError() = default;

kx::P<kx::CError> CCURLError::clone() const
{
    return kx::newObj<CCURLError>(*this);
}

void CCURLError::throwClone() const
{
    throw CCURLError(*this);
}

} // namespace norla
