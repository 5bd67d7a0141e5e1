#include "norla/core/CBearerToken.h"

#include "kx/base/CInvalidArgError.h"
#include "norla/core/CEasyHandle.h"

#include <algorithm>
#include <string>
#include <string_view>

namespace norla {

namespace {

bool isTokenCharacter(wchar_t c)
{
    const bool isLetter = (c >= L'a' && c <= L'z') || (c >= L'A' && c <= L'Z');
    return isLetter || (c >= L'0' && c <= L'9') || std::wstring_view(L"-._~+/").find(c) != std::wstring_view::npos;
}

// RFC 6750 section 2.1: padding comes last, and is not all of it.
bool isToken(std::wstring_view text)
{
    const size_t end = text.find_last_not_of(L'=');
    return end != std::wstring_view::npos && std::all_of(text.begin(), text.begin() + end + 1, isTokenCharacter);
}

} // namespace

CBearerToken::CBearerToken(CEasyHandle& handle)
    : m_handle(handle)
{
}

void CBearerToken::set(const kx::String& token)
{
    if (token.isEmpty()) {
        if (!m_isSet)
            return;
        m_handle.setNull(CURLOPT_XOAUTH2_BEARER);
        m_isSet = false;
        setMethods(m_methods);
        return;
    }
    if (!isToken(token.toWide()))
        throw kx::CInvalidArgError(
            "the token holds something else than the characters of a bearer token", "CNetRequest::setBearerToken");
    m_handle.setNumber(CURLOPT_HTTPAUTH, static_cast<long>(CURLAUTH_BEARER)); // one method alone is used at once
    m_isSet = true;
    m_handle.setText(CURLOPT_XOAUTH2_BEARER, token.toLatin1());
}

void CBearerToken::setMethods(long methods)
{
    if (!m_isSet)
        m_handle.setNumber(CURLOPT_HTTPAUTH, methods);
    m_methods = methods;
}

void CBearerToken::forgetOptions() noexcept
{
    m_isSet = false;
    m_methods = firstMethods;
}

} // namespace norla
