#include "norla/core/CRedirects.h"

#include "kx/text/numbers.h"
#include "norla/core/CEasyHandle.h"
#include "norla/core/CRequestURL.h"
#include "norla/core/CSentHeaders.h"

namespace norla {

namespace {

constexpr bool mayBeSecret(CURLoption option) noexcept
{
    return option == CURLOPT_COOKIE || option == CURLOPT_REFERER;
}

bool isRedirect(const CEasyHandle& handle)
{
    long status = 0;
    return handle.ask(CURLINFO_RESPONSE_CODE, status) && status >= 300 && status <= 399;
}

bool isHTTPS(const std::optional<COrigin>& origin)
{
    return origin && origin->scheme == "https";
}

kx::String shown(const std::optional<COrigin>& origin)
{
    return origin ? origin->toString() : kx::String("an address without a server");
}

} // namespace

CRedirects::CRedirects(CEasyHandle& handle, CSentHeaders& headers)
    : m_handle(handle)
    , m_headers(headers)
{
}

void CRedirects::setRules(bool staySafe, bool keepSecrets)
{
    if (m_staySafe && !staySafe)
        m_handle.setText(CURLOPT_REDIR_PROTOCOLS_STR, "http,https,ftp,ftps"); // as in a new handle
    m_staySafe = staySafe;
    m_keepSecrets = keepSecrets;
}

// The older form of an option is marked as deprecated, but is in use.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

void CRedirects::noticeNumber(CURLoption option, long long value) noexcept
{
    if (option == CURLOPT_PORT)
        m_port = static_cast<unsigned int>(value);
    else if (option == CURLOPT_AUTOREFERER)
        m_sendsReferrers = value != 0;
    else if (option == CURLOPT_REDIR_PROTOCOLS)
        m_staySafe = false;
}

#pragma GCC diagnostic pop

void CRedirects::noticePointer(CURLoption option, void* value)
{
    if (value)
        noticeText(option, mayBeSecret(option) ? static_cast<const char*>(value) : "");
    else
        m_texts.erase(option);
}

void CRedirects::noticeText(CURLoption option, const std::string& bytes)
{
    if (mayBeSecret(option))
        m_texts[option] = bytes;
    else if (option == CURLOPT_REDIR_PROTOCOLS_STR)
        m_staySafe = false;
}

void CRedirects::forgetOptions() noexcept
{
    m_staySafe = false;
    m_keepSecrets = false;
    m_sendsReferrers = false;
    m_port = 0;
    m_texts.clear();
    m_areTextsHidden = false;
}

void CRedirects::begin(const CRequestURL& url)
{
    m_first.reset();
    m_lastURL.clear();
    m_hasLeft = false;
    showTexts();
    if (!m_staySafe)
        return;
    m_isWithinHTTPS = url.getScheme() == "https";
    m_handle.setText(CURLOPT_REDIR_PROTOCOLS_STR, m_isWithinHTTPS ? "https" : "http,https");
}

void CRedirects::showTexts()
{
    if (m_keepSecrets && m_sendsReferrers && !m_texts.contains(CURLOPT_REFERER))
        m_handle.setNull(CURLOPT_REFERER); // libcurl would begin with that of the last redirect
    const bool areTextsLost = m_areTextsHidden || (m_keepSecrets && m_sendsReferrers);
    m_areTextsHidden = false;
    if (!areTextsLost)
        return;
    for (const auto& [option, text] : m_texts)
        m_handle.setText(option, text);
}

void CRedirects::beforeRequest()
{
    const std::string url(m_handle.askText(CURLINFO_EFFECTIVE_URL));
    if (url == m_lastURL && !isRedirect(m_handle))
        return; // the same once more: after a question for the password, or on a new connection
    std::optional<COrigin> origin = COrigin::of(url.c_str());
    if (isHTTPS(origin))
        stayWithinHTTPS();
    if (m_lastURL.empty()) {
        if (origin && m_port != 0)
            origin->port = m_port;
        m_first = std::move(origin);
    } else if (m_keepSecrets && leadsElsewhere(origin)) {
        leaveSecretsBehind();
    } else if (m_hasLeft && m_sendsReferrers) {
        m_handle.setNull(CURLOPT_REFERER); // which every redirect sets
    }
    m_lastURL = url;
}

void CRedirects::stayWithinHTTPS()
{
    if (!m_staySafe || m_isWithinHTTPS)
        return;
    m_handle.setText(CURLOPT_REDIR_PROTOCOLS_STR, "https");
    m_isWithinHTTPS = true;
}

bool CRedirects::leadsElsewhere(const std::optional<COrigin>& origin) const
{
    return !m_hasLeft && (!origin || origin != m_first);
}

void CRedirects::leaveSecretsBehind()
{
    m_hasLeft = true;
    m_headers.sendHarmlessOnly();
    m_areTextsHidden = true;
    for (const auto& [option, text] : m_texts)
        m_handle.setNull(option);
    if (m_sendsReferrers)
        m_handle.setNull(CURLOPT_REFERER);
}

kx::String CRedirects::getRefusal(CURLcode result, const kx::String& location) const
{
    if (!wantsToBeAsked() || m_lastURL.empty() || !isRedirect(m_handle))
        return kx::String();
    const std::optional<COrigin> from = COrigin::of(m_lastURL.c_str());
    if (result == CURLE_TOO_MANY_REDIRECTS) {
        long count = 0;
        m_handle.ask(CURLINFO_REDIRECT_COUNT, count);
        return "the redirect from " + shown(from) + " to "
            + shown(COrigin::of(std::string(m_handle.askText(CURLINFO_REDIRECT_URL)).c_str()))
            + " is one more than the " + kx::toString(count) + " that are followed";
    }
    if (result != CURLE_UNSUPPORTED_PROTOCOL || !m_staySafe)
        return kx::String();
    // Of a scheme that it does not know libcurl does not take the URL over.
    const std::string url(m_handle.askText(CURLINFO_EFFECTIVE_URL));
    const auto target = COrigin::of(url == m_lastURL ? location.toUTF8().c_str() : url.c_str());
    return "the redirect from " + shown(from) + " to " + shown(target) + " is not followed: "
        + (m_isWithinHTTPS ? kx::String("only https is, after https") : kx::String("only http and https are"));
}

} // namespace norla
