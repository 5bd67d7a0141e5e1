#include "norla/http/util.h"

#include "kx/files/CResourceManager.h"
#include "kx/text/CURI.h"
#include "kx/text/hex.h"
#include "kx/text/numbers.h"

#include <curl/curl.h>

#include <algorithm>
#include <array>
#include <limits>
#include <string>
#include <string_view>

namespace norla {

namespace {

using Map = kx::TMap<kx::String, kx::String>;

[[noreturn]] void throwInvalidStatusLine(const kx::String& line)
{
    throw kx::CError("Invalid HTTP status line: '" + line + "'");
}

int parseStatusCode(const kx::String& line, const kx::String& code)
{
    try {
        return static_cast<int>(kx::parseInt64(code, false));
    } catch (const kx::CError&) {
        throwInvalidStatusLine(line);
    }
}

bool beginsAsHTTP(std::wstring_view line) noexcept
{
    constexpr std::wstring_view name = L"http/";
    return line.size() >= name.size()
        && std::equal(name.begin(), name.end(), line.begin(), [](wchar_t lower, wchar_t c) {
               return c == lower || (c >= L'A' && c <= L'Z' && c - L'A' + L'a' == lower);
           });
}

/// Each answer has such a line: its code alone is read without making any other text.
/// @return where the code ends
size_t readStatusCode(const kx::String& line, int& code)
{
    const size_t space = line.find(L' ');
    if (!beginsAsHTTP(line.toWide()) || space == kx::String::npos)
        throwInvalidStatusLine(line);
    const size_t end = std::min(line.find(L' ', space + 1), line.size());
    code = parseStatusCode(line, line.substr(space + 1, end - space - 1));
    return end;
}

// What cannot be converted counts as empty, on the way into an encoding and on the way out of it.
std::string toUTF8OrEmpty(const kx::String& text)
{
    try {
        return text.toUTF8();
    } catch (const kx::CError&) {
        return {};
    }
}

kx::String fromUTF8OrEmpty(std::string_view utf8)
{
    try {
        return kx::String::fromUTF8(utf8);
    } catch (const kx::CError&) {
        return {};
    }
}

// RFC 3986 section 2.3
constexpr bool isUnreserved(unsigned char byte) noexcept
{
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') || (byte >= '0' && byte <= '9') || byte == '-'
        || byte == '.' || byte == '_' || byte == '~';
}

// By byte, because an escape is the inner loop.
constexpr auto unreserved = [] {
    std::array<bool, 256> table{};
    for (size_t byte = 0; byte < table.size(); ++byte)
        table[byte] = isUnreserved(static_cast<unsigned char>(byte));
    return table;
}();

constexpr auto hexDigits = [] {
    std::array<int, 256> table{};
    for (size_t byte = 0; byte < table.size(); ++byte)
        table[byte] = kx::hexDecodeCharLax(static_cast<char>(byte));
    return table;
}();

/// Decodes in place: nothing gets longer.
/// @return the size of the result
size_t decodeEscapes(char* bytes, size_t size) noexcept
{
    char* out = std::find(bytes, bytes + size, '%');
    const char* const end = bytes + size;
    for (const char* in = out; in < end; ++in) {
        char byte = *in;
        if (byte == '%' && end - in > 2) {
            const int high = hexDigits[static_cast<unsigned char>(in[1])];
            const int low = hexDigits[static_cast<unsigned char>(in[2])];
            if (high >= 0 && low >= 0) {
                byte = static_cast<char>(high * 16 + low);
                in += 2;
            }
        }
        *out++ = byte;
    }
    return static_cast<size_t>(out - bytes);
}

template <typename TEncode>
kx::String joinParams(const Map& map, TEncode encode)
{
    kx::String joined;
    for (const auto& [key, value] : map) {
        if (!joined.isEmpty())
            joined += L'&';
        joined += encode(key) + "=" + encode(value);
    }
    return joined;
}

/// The property "responseCode", -1 when it is missing or empty.
long long responseCodeOf(const kx::CError& error)
{
    const kx::String code = error.getProps().get("responseCode");
    return code.isEmpty() ? -1 : kx::parseInt64(code, false);
}

} // namespace

void parseHTTPStatusLine(const kx::String& line, int& code, kx::String& info)
{
    info = line.substr(readStatusCode(line, code)).trim();
}

int getStatusCodeFromHTTPStatusLine(const kx::String& line)
{
    int code = 0;
    readStatusCode(line, code);
    return code;
}

kx::String getInfoFromHTTPStatusLine(const kx::String& line)
{
    int code = 0;
    kx::String info;
    parseHTTPStatusLine(line, code, info);
    return info;
}

kx::String urlEscape(const kx::String& text, bool spaceAsPlus)
{
    constexpr std::string_view digits = "0123456789abcdef";
    const std::string bytes = toUTF8OrEmpty(text);
    std::string escaped;
    escaped.reserve(3 * bytes.size() + 1);
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        if (unreserved[value])
            escaped += byte;
        else if (byte == ' ' && spaceAsPlus)
            escaped += '+';
        else
            escaped.append({'%', digits[value >> 4], digits[value & 0xF]});
    }
    return kx::String::fromLatin1(escaped);
}

kx::String urlUnescape(const kx::String& text, bool plusAsSpace)
{
    std::string bytes = toUTF8OrEmpty(text);
    if (plusAsSpace)
        std::replace(bytes.begin(), bytes.end(), '+', ' ');
    bytes.resize(decodeEscapes(bytes.data(), bytes.size()));
    return fromUTF8OrEmpty(bytes);
}

kx::String formURLEncode(const kx::String& text, bool escapeSlash)
{
    try {
        return kx::CURI::escape(text, escapeSlash, "").replaceAll("+", "%20");
    } catch (const kx::CError&) { // no UTF-8 form
        return {};
    }
}

kx::String formURLEncode(const Map& map, bool escapeSlash)
{
    return joinParams(map, [escapeSlash](const kx::String& text) { return formURLEncode(text, escapeSlash); });
}

kx::String formURLEncode(std::initializer_list<std::pair<const kx::String, kx::String>> entries, bool escapeSlash)
{
    return formURLEncode(Map(entries), escapeSlash);
}

kx::String formURLEncode(const kx::CProps& props, bool escapeSlash)
{
    return formURLEncode(props.getMap(), escapeSlash);
}

kx::String encodeURLParams(const Map& map)
{
    return joinParams(map, [](const kx::String& text) { return urlEscape(text, true); });
}

void decodeURLParams(const kx::String& text, Map& map)
{
    for (size_t start = 0; start < text.size();) {
        const size_t end = std::min(text.find(L'&', start), text.size());
        const kx::String part = text.substr(start, end - start);
        const size_t equals = std::min(part.find(L'='), part.size());
        map.insert_or_assign(urlUnescape(part.substr(0, equals), true), urlUnescape(part.substr(equals + 1), true));
        start = end + 1;
    }
}

kx::CTime parseTimestamp(const kx::String& text)
{
    constexpr long long microsecondsPerSecond = 1'000'000;
    constexpr long long latest = std::numeric_limits<long long>::max() / microsecondsPerSecond;
    const long long seconds = curl_getdate(toUTF8OrEmpty(text).c_str(), nullptr);
    if (seconds == -1 || seconds > latest)
        throw kx::CError("Error parsing timestamp '" + text + "'.");
    return kx::CTime(seconds * microsecondsPerSecond);
}

bool isValidEmailAddress(const kx::String& text)
{
    size_t atSigns = 0;
    bool hasDot = false; // behind the at-sign
    for (size_t i = 0; i < text.size(); ++i) {
        const wchar_t character = text[i];
        if (character <= L' ' || character == L'"' || character == L'<' || character == L'>')
            return false;
        if (character == L'@') {
            if (i == 0)
                return false;
            ++atSigns;
        }
        if (character == L'.' && atSigns > 0)
            hasDot = true;
    }
    return atSigns == 1 && hasDot;
}

bool isNetworkOrServiceDownError(const std::exception& error)
{
    const auto* const failure = dynamic_cast<const kx::CError*>(&error);
    if (!failure || failure->getDomain() != "curl")
        return false;
    constexpr std::array down{
        CURLE_COULDNT_RESOLVE_PROXY, CURLE_COULDNT_RESOLVE_HOST, CURLE_COULDNT_CONNECT, CURLE_SSL_CONNECT_ERROR};
    if (std::find(down.begin(), down.end(), failure->getCode()) != down.end())
        return true;
    constexpr long long httpServiceUnavailable = 503; // RFC 9110 section 15.6.4
    constexpr long long ftpServiceNotAvailable = 421; // RFC 959 section 4.2.1
    const kx::String domain = failure->getProps().get("responseCodeDomain");
    const long long code = responseCodeOf(*failure);
    return (domain == "http" && code == httpServiceUnavailable) || (domain == "ftp" && code == ftpServiceNotAvailable);
}

int getHTTPStatusCodeFromError(const kx::CError& error)
{
    if (error.getDomain() == "http")
        return static_cast<int>(error.getCode());
    const bool isHTTP = error.getProps().get("responseCodeDomain") == "http";
    const long long code = isHTTP ? responseCodeOf(error) : -1;
    // A transfer that broke off behind "200 OK" did not fail with 200.
    if (error.getDomain() == "curl" && error.getCode() != CURLE_HTTP_RETURNED_ERROR && code < 400)
        return -1;
    return static_cast<int>(code);
}

kx::TPathImpl<kx::CUnixPathTraits> getRootCertBundlePath()
{
    using Path = kx::TPathImpl<kx::CUnixPathTraits>;
    Path bundle = kx::CResourceManager::get()->findResource(Path("norla") / Path("ca-bundle.crt"));
    if (bundle.isEmpty())
        throw kx::CError("INTERNAL ERROR: Root certificate bundle not found in application resources.");
    return bundle;
}

} // namespace norla
