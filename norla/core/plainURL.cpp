#include "norla/core/plainURL.h"

#include "kx/base/CError.h"

#include <algorithm>

namespace norla {

namespace {

struct CParts {
    std::string_view before; // with the slashes
    std::string_view login;  // with its at-sign
    std::string_view host;
    std::string_view after;
};

constexpr char lowered(char c) noexcept
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

/// A scheme as RFC 3986 section 3.1 has it; its size, 0 without one.
size_t schemeSize(std::string_view url) noexcept
{
    const size_t colon = std::min(url.find(':'), url.size());
    const bool isScheme = url.substr(colon).starts_with(":/")
        && std::all_of(url.begin(), url.begin() + static_cast<std::ptrdiff_t>(colon), [](char c) {
               return (lowered(c) >= 'a' && lowered(c) <= 'z') || (c >= '0' && c <= '9') || c == '+' || c == '-'
                   || c == '.';
           });
    return isScheme ? colon : 0;
}

// libcurl takes one to three slashes, and the last at-sign for the end of the login.
CParts split(std::string_view url) noexcept
{
    const size_t scheme = schemeSize(url);
    const size_t start = scheme == 0 ? 0 : std::min(url.find_first_not_of('/', scheme + 1), url.size());
    const size_t end = std::min(url.find_first_of("/?#", start), url.size());
    const std::string_view authority = url.substr(start, end - start);
    const size_t at = authority.rfind('@');
    const size_t login = at == std::string_view::npos ? 0 : at + 1;
    return {.before = url.substr(0, start),
        .login = authority.substr(0, login),
        .host = authority.substr(login),
        .after = url.substr(end)};
}

} // namespace

std::string schemeOf(std::string_view url)
{
    std::string scheme(url.substr(0, schemeSize(url)));
    std::transform(scheme.begin(), scheme.end(), scheme.begin(), lowered);
    return scheme;
}

std::string withoutLogin(std::string_view url)
{
    const CParts parts = split(url);
    return std::string(parts.before).append(parts.host).append(parts.after);
}

std::string withoutSecrets(std::string_view url, bool canBeRead)
{
    const CParts parts = split(url);
    std::string_view rest = canBeRead ? parts.after : url.substr(parts.before.size());
    if (!canBeRead)                              // of a password with a slash or a question mark, too
        rest = rest.substr(rest.rfind('@') + 1); // none: npos + 1 is the start
    rest = rest.substr(0, rest.find_first_of("?#"));
    return std::string(parts.before).append(canBeRead ? parts.host : std::string_view()).append(rest);
}

std::string hostOf(std::string_view url)
{
    return std::string(split(url).host);
}

std::string pathOf(std::string_view url)
{
    const std::string_view after = split(url).after;
    return std::string(after.substr(0, after.find_first_of("?#")));
}

kx::String readable(std::string_view bytes)
{
    try {
        return kx::String::fromUTF8(bytes);
    } catch (const kx::CError&) {
        return kx::String::fromLatin1(bytes);
    }
}

} // namespace norla
