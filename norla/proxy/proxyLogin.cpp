#include "norla/proxy/proxyLogin.h"

#include <algorithm>

namespace norla {

namespace {

kx::String withoutLogin(const kx::String& message, const kx::String& login)
{
    constexpr size_t unmistakable = 16;
    const size_t start = message.find(login.substr(0, unmistakable));
    if (login.isEmpty() || start == kx::String::npos)
        return message;
    return message.substr(0, start) + "***@" + message.substr(start + login.size());
}

/// libcurl's complaint about a proxy that it has from the environment, of which nobody else knows.
kx::String withoutQuotedLogin(const kx::String& message)
{
    const size_t start = message.find("Unsupported proxy ");
    const size_t quote = start == kx::String::npos ? start : message.find(L'\'', start);
    const size_t at = message.rfind(L'@');
    if (quote == kx::String::npos || at == kx::String::npos || at < quote)
        return message;
    const size_t scheme = message.find("://", quote);
    const size_t login = scheme < at ? scheme + 3 : quote + 1;
    return message.substr(0, login) + "***" + message.substr(at);
}

} // namespace

kx::String proxyLoginOf(const kx::String& proxy)
{
    const size_t scheme = proxy.find("://");
    const bool hasScheme = scheme != kx::String::npos && proxy.find(L':') == scheme; // not one inside a password
    const size_t start = hasScheme ? scheme + 3 : 0;
    const size_t at = proxy.rfind(L'@');
    return at == kx::String::npos || at < start ? kx::String() : proxy.substr(start, at + 1 - start);
}

kx::String withoutProxyLogins(kx::String message, std::vector<kx::String> logins)
{
    // The longest first: where two begin alike, too much is hidden rather than too little.
    std::sort(logins.begin(), logins.end(),
        [](const kx::String& left, const kx::String& right) { return left.size() > right.size(); });
    for (const kx::String& login : logins)
        message = withoutLogin(message, login);
    return withoutQuotedLogin(message);
}

} // namespace norla
