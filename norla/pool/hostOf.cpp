#include "norla/pool/hostOf.h"

#include <algorithm>
#include <cstddef>

namespace norla {

namespace {

constexpr std::wstring_view separator = L"://";

/// "scheme://user@host:port" of "scheme://user@host:port/path?query".
std::wstring_view withoutPath(std::wstring_view url)
{
    const size_t scheme = url.find(separator);
    const size_t host = scheme == std::wstring_view::npos ? 0 : scheme + separator.size();
    const auto end = std::find_if(url.begin() + static_cast<std::ptrdiff_t>(host), url.end(),
        [](wchar_t c) { return c == L'/' || c == L'?' || c == L'#'; }); // quicker than find_first_of()
    return url.substr(0, static_cast<size_t>(end - url.begin()));
}

void appendLowerCase(std::string& text, std::wstring_view added)
{
    for (const wchar_t c : added) // those that are no ASCII: one of many of its kind
        text += static_cast<char>(c >= L'A' && c <= L'Z' ? c - L'A' + L'a' : c);
}

} // namespace

std::string hostOf(std::wstring_view url)
{
    const std::wstring_view place = withoutPath(url);
    const size_t login = place.rfind(L'@');
    std::string host;
    host.reserve(place.size());
    if (login != std::wstring_view::npos) {
        const size_t scheme = place.find(separator);
        appendLowerCase(host, place.substr(0, scheme == std::wstring_view::npos ? 0 : scheme));
        host += "://";
    }
    appendLowerCase(host, login == std::wstring_view::npos ? place : place.substr(login + 1));
    return host;
}

} // namespace norla
