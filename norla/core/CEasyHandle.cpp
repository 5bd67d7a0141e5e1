#include "norla/core/CEasyHandle.h"

#include "kx/base/CError.h"
#include "kx/log/log.h"
#include "norla/core/CCURLError.h"
#include "norla/core/CGlobalInit.h"
#include "norla/core/CSigPipeBlock.h"
#include "norla/proxy/proxyLogin.h"

#include <limits>
#include <utility>
#include <vector>

namespace norla {

void CEasyHandle::CCleanup::operator()(CURL* handle) const noexcept
{
    const CSigPipeBlock block; // a TLS connection says goodbye here
    curl_easy_cleanup(handle);
}

CEasyHandle::CEasyHandle()
{
    CGlobalInit::get();
    m_handle.reset(curl_easy_init());
    if (!m_handle)
        throw kx::CError("Error creating curl easy handle.");
    constexpr size_t errorBufferSize = 10011; // far more than CURL_ERROR_SIZE, on purpose
    m_errorBuffer.setSize(errorBufferSize);
    clearError();
}

void CEasyHandle::reset()
{
    clearError();
    shareCookies(nullptr); // before all cookies are dropped
    if (m_hasCookies)
        set(CURLOPT_COOKIELIST, "ALL"); // which libcurl would keep
    curl_easy_reset(m_handle.get());
    m_proxyLogins.clear();
}

// Sharing alone uses no cookies; the file without a name does, and without it libcurl forgets them without dropping
// them.
void CEasyHandle::shareCookies(CURLSH* share)
{
    if (m_sharesCookies) {
        setNull(CURLOPT_COOKIEFILE);
        setNull(CURLOPT_SHARE);
    }
    m_sharesCookies = share != nullptr;
    if (!share)
        return;
    set(CURLOPT_SHARE, share);
    set(CURLOPT_COOKIEFILE, "");
}

void CEasyHandle::setText(CURLoption option, const std::string& bytes)
{
    m_hasCookies
        = m_hasCookies || option == CURLOPT_COOKIEFILE || option == CURLOPT_COOKIEJAR || option == CURLOPT_COOKIELIST;
    set(option, bytes.c_str());
    if (option == CURLOPT_PROXY || option == CURLOPT_PRE_PROXY)
        m_proxyLogins[option] = proxyLoginOf(kx::String::fromUTF8(bytes));
}

void CEasyHandle::requireSuccess(CURLcode result) const
{
    if (result != CURLE_OK)
        throw CCURLError(result, getErrorMessage(), "", -1, "");
}

template <typename TValue>
TValue CEasyHandle::get(CURLINFO info, int type)
{
    if ((info & CURLINFO_TYPEMASK) != type)
        requireSuccess(CURLE_UNKNOWN_OPTION);
    TValue value{};
    clearError();
    requireSuccess(curl_easy_getinfo(m_handle.get(), info, &value));
    return value;
}

int CEasyHandle::getLong(CURLINFO info)
{
    return static_cast<int>(get<long>(info, CURLINFO_LONG));
}

double CEasyHandle::getDouble(CURLINFO info)
{
    return get<double>(info, CURLINFO_DOUBLE);
}

long long CEasyHandle::getInt64(CURLINFO info)
{
    return get<curl_off_t>(info, CURLINFO_OFF_T);
}

kx::String CEasyHandle::getString(CURLINFO info)
{
    // Of these libcurl gives the application's own pointer, and one into a connection that may be gone.
    if (info == CURLINFO_PRIVATE || info == CURLINFO_FTP_ENTRY_PATH)
        requireSuccess(CURLE_UNKNOWN_OPTION);
    const char* const text = get<const char*>(info, CURLINFO_STRING);
    return text ? kx::String::fromUTF8(text) : kx::String();
}

kx::String CEasyHandle::getErrorMessage() const
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

kx::String CEasyHandle::urlEscape(const kx::String& text) const
{
    const std::string bytes = text.toUTF8();
    const bool fits = bytes.size() <= static_cast<size_t>(std::numeric_limits<int>::max());
    const std::unique_ptr<char, decltype(&curl_free)> escaped(
        fits ? curl_easy_escape(m_handle.get(), bytes.data(), static_cast<int>(bytes.size())) : nullptr, curl_free);
    if (!escaped)
        throw kx::CError("Error URL-escaping a string.");
    return kx::String::fromUTF8(escaped.get());
}

// It does so whenever a transfer that was paused is to go on.
void CEasyHandle::lookAgain() const
{
    requireSuccess(lookAgain(get()));
}

CURLcode CEasyHandle::lookAgain(CURL* handle) noexcept
{
    const CURLcode result = curl_easy_pause(handle, CURLPAUSE_RECV);
    return result == CURLE_OK ? curl_easy_pause(handle, CURLPAUSE_CONT) : result;
}

} // namespace norla
