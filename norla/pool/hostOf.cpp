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

wchar_t lowerCase(wchar_t c) noexcept
{
    return c >= L'A' && c <= L'Z' ? c - L'A' + L'a' : c;
}

std::string lowerCase(std::wstring_view text)
{
    std::string lower(text.size(), '\0');
    for (size_t i = 0; i < text.size(); ++i)
        lower[i] = static_cast<char>(lowerCase(text[i])); // those that are no ASCII: one of many of its kind
    return lower;
}

} // namespace

std::string hostOf(std::wstring_view url)
{
    const std::wstring_view place = withoutPath(url);
    const size_t login = place.rfind(L'@');
    if (login == std::wstring_view::npos)
        return lowerCase(place);
    const size_t scheme = place.find(separator);
    return lowerCase(place.substr(0, scheme == std::wstring_view::npos ? 0 : scheme)) + "://"
        + lowerCase(place.substr(login + 1));
}

} // namespace norla
