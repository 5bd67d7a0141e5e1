#include "norla/core/cookieLine.h"

#include "kx/base/CError.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>

namespace norla {

namespace {

constexpr std::string_view httpOnlyMark = "#HttpOnly_";

/// What begins so libcurl takes for a header line, and the cookie in it for one of every host.
bool isHeaderLine(std::string_view line)
{
    constexpr std::string_view name = "set-cookie:";
    return std::equal(name.begin(), name.end(), line.begin(), line.begin() + std::min(name.size(), line.size()),
        [](char one, char other) { return one == (other >= 'A' && other <= 'Z' ? other - 'A' + 'a' : other); });
}

kx::String shown(std::string_view bytes)
{
    try {
        return kx::String::fromUTF8(bytes);
    } catch (const kx::CError&) {
        return kx::String::fromLatin1(bytes);
    }
}

bool holdsControlCharacters(std::string_view bytes)
{
    return std::any_of(bytes.begin(), bytes.end(), [](char byte) {
        const auto code = static_cast<unsigned char>(byte);
        return code < ' ' || code == 127;
    });
}

std::optional<bool> parseFlag(std::string_view text)
{
    if (text == "TRUE")
        return true;
    if (text == "FALSE")
        return false;
    return std::nullopt;
}

std::optional<kx::CTime> parseExpiry(std::string_view text)
{
    long long seconds = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
    if (text.empty() || error != std::errc() || end != text.data() + text.size() || seconds < 0)
        return std::nullopt;
    constexpr long long second = 1'000'000;
    return seconds == 0 ? kx::CTime()
                        : kx::CTime(std::min(seconds, std::numeric_limits<long long>::max() / second) * second);
}

struct CFields {
    enum Field { Domain, Subdomains, FieldPath, Secure, Expiry, Name, Value, Count };

    std::array<std::string_view, Count> texts;
    size_t count = 0; // more than there can be: too many

    explicit CFields(std::string_view line)
    {
        for (size_t start = 0; start <= line.size() && count <= Count; ++count) {
            const size_t end = std::min(line.find('\t', start), line.size());
            if (count < Count)
                texts[count] = line.substr(start, end - start);
            start = end + 1;
        }
    }

    // libcurl takes several tabs for one: no field but the last one may be empty.
    bool areThere() const
    {
        return (count == Count || count == Name + 1)
            && std::none_of(texts.begin(), texts.begin() + Value, [](std::string_view text) { return text.empty(); })
            && std::none_of(texts.begin(), texts.end(), holdsControlCharacters);
    }
};

} // namespace

std::optional<CCookie> parseCookieLine(std::string_view line)
{
    CCookie cookie;
    cookie.isHTTPOnly = line.starts_with(httpOnlyMark);
    if (cookie.isHTTPOnly)
        line.remove_prefix(httpOnlyMark.size());
    const CFields fields(line);
    if (line.starts_with('#') || isHeaderLine(line) || !fields.areThere())
        return std::nullopt;
    std::string_view domain = fields.texts[CFields::Domain];
    if (domain.starts_with('.'))
        domain.remove_prefix(1);
    const auto hasSubdomains = parseFlag(fields.texts[CFields::Subdomains]);
    const auto isSecure = parseFlag(fields.texts[CFields::Secure]);
    const auto expiry = parseExpiry(fields.texts[CFields::Expiry]);
    // Behind its dot too: libcurl writes the host without it.
    const bool isHost = !domain.empty() && !domain.starts_with('.') && !isHeaderLine(domain)
        && domain.find_first_of(" #") == std::string_view::npos;
    if (!isHost || !fields.texts[CFields::FieldPath].starts_with('/') || !hasSubdomains || !isSecure || !expiry)
        return std::nullopt;
    cookie.domain = shown(domain);
    cookie.hasSubdomains = *hasSubdomains;
    cookie.path = shown(fields.texts[CFields::FieldPath]);
    cookie.isSecure = *isSecure;
    cookie.expiry = *expiry;
    cookie.name = shown(fields.texts[CFields::Name]);
    cookie.value = shown(fields.texts[CFields::Value]);
    return cookie;
}

bool isCookieComment(std::string_view line)
{
    const bool isBlank = line.find_first_not_of(" \t") == std::string_view::npos;
    return isBlank || (line.starts_with('#') && !line.starts_with(httpOnlyMark));
}

} // namespace norla
