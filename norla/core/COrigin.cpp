#include "norla/core/COrigin.h"

#include "kx/base/CError.h"

#include <curl/curl.h>

#include <algorithm>
#include <charconv>
#include <memory>

namespace norla {

namespace {

using Handle = std::unique_ptr<CURLU, decltype(&curl_url_cleanup)>;

// Empty when the URL has no such part.
std::string partOf(CURLU* url, CURLUPart part, unsigned int flags = 0)
{
    char* text = nullptr;
    if (curl_url_get(url, part, &text, flags) != CURLUE_OK)
        return {};
    const std::unique_ptr<char, decltype(&curl_free)> owner(text, curl_free);
    return text;
}

std::string toLower(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
        [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return text;
}

unsigned int numberOf(const std::string& text)
{
    unsigned int number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

unsigned int defaultPortOf(const std::string& scheme)
{
    const Handle url(curl_url(), curl_url_cleanup);
    if (!url || curl_url_set(url.get(), CURLUPART_URL, (scheme + "://host").c_str(), 0) != CURLUE_OK)
        return 0;
    return numberOf(partOf(url.get(), CURLUPART_PORT, CURLU_DEFAULT_PORT));
}

} // namespace

std::optional<COrigin> COrigin::of(const char* url)
{
    const Handle handle(curl_url(), curl_url_cleanup);
    constexpr unsigned int flags = CURLU_NON_SUPPORT_SCHEME | CURLU_ALLOW_SPACE | CURLU_PATH_AS_IS;
    if (!handle || curl_url_set(handle.get(), CURLUPART_URL, url, flags) != CURLUE_OK)
        return std::nullopt;
    COrigin origin{toLower(partOf(handle.get(), CURLUPART_SCHEME)), toLower(partOf(handle.get(), CURLUPART_HOST)),
        numberOf(partOf(handle.get(), CURLUPART_PORT, CURLU_DEFAULT_PORT))};
    if (origin.scheme.empty() || origin.host.empty())
        return std::nullopt;
    return origin;
}

kx::String COrigin::toString() const
{
    std::string text = scheme + "://" + host;
    if (port != 0 && port != defaultPortOf(scheme))
        text += ":" + std::to_string(port);
    try {
        return kx::String::fromUTF8(text);
    } catch (const kx::CError&) {
        return kx::String::fromLatin1(text);
    }
}

} // namespace norla
