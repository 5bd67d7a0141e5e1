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

/// Where a login would begin in a proxy.
size_t loginStartOf(const kx::String& proxy)
{
    const size_t scheme = proxy.find("://");
    const bool hasScheme = scheme != kx::String::npos && proxy.find(L':') == scheme; // not one inside a password
    return hasScheme ? scheme + 3 : 0;
}

/// libcurl's complaint about a proxy that it has from the environment, of which nobody else knows. It may be cut off
/// within the login; newer libcurls say more behind the closing quote.
kx::String withoutQuotedLogin(const kx::String& message)
{
    const size_t start = message.find("Unsupported proxy ");
    const size_t quote = start == kx::String::npos ? start : message.find(L'\'', start);
    if (quote == kx::String::npos)
        return message;
    const size_t login = quote + 1 + loginStartOf(message.substr(quote + 1));
    if (!message.endsWith("'") && message.find("': ", login) == kx::String::npos)
        return message.substr(0, login) + "***@";
    const size_t at = message.rfind(L'@');
    return at == kx::String::npos || at < login ? message : message.substr(0, login) + "***" + message.substr(at);
}

} // namespace

kx::String proxyLoginOf(const kx::String& proxy)
{
    const size_t start = loginStartOf(proxy);
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
