#include "norla/pool/hostOf.h"

#include "norla/core/CNetRequest.h"

#include <algorithm>
#include <string_view>

namespace norla {

namespace {

constexpr std::wstring_view separator = L"://";

/// "scheme://user@host:port" of "scheme://user@host:port/path?query".
std::wstring_view withoutPath(std::wstring_view url)
{
    const size_t scheme = url.find(separator);
    const size_t host = scheme == std::wstring_view::npos ? 0 : scheme + separator.size();
    return url.substr(0, url.find_first_of(L"/?#", host));
}

std::string lowerCase(std::wstring_view text)
{
    std::string result(text.size(), ' ');
    std::transform(text.begin(), text.end(), result.begin(), [](wchar_t c) {
        return static_cast<char>(c >= L'A' && c <= L'Z' ? c - L'A' + L'a' : c); // others: one of many of its kind
    });
    return result;
}

} // namespace

std::string hostOf(const CNetRequest& request)
{
    const kx::String url = request.getURL();
    const std::wstring_view place = withoutPath(url.toWide());
    const size_t login = place.rfind(L'@');
    if (login == std::wstring_view::npos)
        return lowerCase(place);
    const size_t scheme = place.find(separator);
    return lowerCase(place.substr(0, scheme)) + "://" + lowerCase(place.substr(login + 1));
}

} // namespace norla
