#include "norla/s3/canonicalRequest.h"

#include "kx/base/CInvalidArgError.h"
#include "kx/text/String.h"
#include "kx/text/hex.h"

#include <algorithm>
#include <array>

namespace norla {

namespace {

bool isUnreserved(char c) noexcept
{
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '.'
        || c == '_' || c == '~';
}

/// "%XX" as the byte that it stands for. A "%" without two digits behind it is one.
std::string unescaped(std::string_view text, bool isQuery)
{
    std::string bytes;
    bytes.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        const int high = text[i] == '%' && i + 2 < text.size() ? kx::hexDecodeCharLax(text[i + 1]) : -1;
        const int low = high >= 0 ? kx::hexDecodeCharLax(text[i + 2]) : -1;
        if (low >= 0) {
            bytes += static_cast<char>(high * 16 + low);
            i += 2;
        } else {
            bytes += isQuery && text[i] == '+' ? ' ' : text[i];
        }
    }
    return bytes;
}

std::string_view withoutDefaultPort(std::string_view scheme, std::string_view host)
{
    const std::string_view port = scheme == "https" ? ":443" : scheme == "http" ? ":80" : "";
    return !port.empty() && host.ends_with(port) ? host.substr(0, host.size() - port.size()) : host;
}

/// What libcurl and whoever passes a request on may change (RFC 9110 section 7.6.1), or add by themselves.
bool isSigned(std::string_view name, std::string_view value)
{
    constexpr auto never = std::to_array<std::string_view>({"accept-encoding", "authorization", "connection", "expect",
        "keep-alive", "proxy-authorization", "te", "trailer", "transfer-encoding", "upgrade", "user-agent"});
    const bool isSent = !value.empty() || name.starts_with("x-amz-"); // libcurl leaves the other empty ones out
    return isSent && std::find(never.begin(), never.end(), name) == never.end();
}

std::string lowered(std::string_view text)
{
    std::string all(text);
    for (char& c : all)
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    return all;
}

bool isBlank(char c) noexcept
{
    return c == ' ' || c == '\t';
}

/// Without blanks around it, and with one in place of several.
std::string singleSpaced(std::string_view value)
{
    std::string text;
    text.reserve(value.size());
    for (const char c : value) {
        if (!isBlank(c))
            text += c;
        else if (!text.empty() && text.back() != ' ')
            text += ' ';
    }
    if (!text.empty() && text.back() == ' ')
        text.pop_back();
    return text;
}

/// @return the size where there is none
size_t firstOfAnotherLine(std::string_view text)
{
    // find_first_of() would call a function for each character.
    const auto* const first
        = std::find_if(text.begin(), text.end(), [](char c) { return c == '\r' || c == '\n' || c == '\0'; });
    return static_cast<size_t>(first - text.begin());
}

CS3RequestToSign::Headers headersToSign(std::string_view host, const CS3RequestToSign::Headers& headers)
{
    requireOneLineHeaders(headers);
    CS3RequestToSign::Headers all;
    all.reserve(headers.size() + 1);
    bool hasHost = false;
    for (const auto& [name, value] : headers) {
        std::string lowerName = lowered(name);
        std::string single = singleSpaced(value);
        hasHost |= lowerName == "host";
        if (isSigned(lowerName, single))
            all.emplace_back(std::move(lowerName), std::move(single));
    }
    if (!hasHost)
        all.emplace_back("host", host);
    std::stable_sort(all.begin(), all.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    return all;
}

} // namespace

CS3URLParts splitS3URL(std::string_view url)
{
    constexpr std::string_view schemeEnd = "://";
    const size_t scheme = url.find(schemeEnd);
    const size_t start = scheme + schemeEnd.size();
    const std::string_view whole = url.substr(0, url.find('#'));
    const size_t path
        = scheme == std::string_view::npos ? scheme : std::min(whole.find_first_of("/?", start), whole.size());
    if (path == std::string_view::npos || path == start)
        throw kx::CInvalidArgError("the URL has no scheme or no host", "norla::splitS3URL"); // and may hold a password
    const size_t query = std::min(whole.find('?', path), whole.size());
    const std::string_view login = whole.substr(start, path - start);
    const std::string_view host = login.substr(login.rfind('@') == std::string_view::npos ? 0 : login.rfind('@') + 1);
    return {.host = withoutDefaultPort(whole.substr(0, scheme), host),
        .path = query > path ? whole.substr(path, query - path) : std::string_view("/"),
        .query = whole.substr(std::min(query + 1, whole.size()))};
}

std::string escapeForSignature(std::string_view text, char kept)
{
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string escaped;
    escaped.reserve(text.size());
    for (const char c : text) {
        if (isUnreserved(c) || (kept != '\0' && c == kept)) {
            escaped += c;
            continue;
        }
        const auto byte = static_cast<unsigned char>(c);
        escaped += {'%', digits[byte >> 4U], digits[byte & 0xFU]};
    }
    return escaped;
}

void requireOneLineHeaders(const CS3RequestToSign::Headers& headers)
{
    for (const auto& [name, value] : headers) {
        const size_t end = firstOfAnotherLine(name);
        if (end < name.size() || firstOfAnotherLine(value) < value.size())
            throw kx::CInvalidArgError(
                "the header '" + kx::String::fromLatin1(name.substr(0, end)) + "' holds a line end or a zero character",
                "norla::requireOneLineHeaders");
    }
}

std::vector<std::pair<std::string, std::string>> queryParameters(std::string_view query)
{
    std::vector<std::pair<std::string, std::string>> parameters;
    while (!query.empty()) {
        const std::string_view one = query.substr(0, query.find('&'));
        query.remove_prefix(std::min(one.size() + 1, query.size()));
        if (one.empty())
            continue;
        const std::string_view name = one.substr(0, one.find('='));
        const std::string_view value = one.substr(std::min(name.size() + 1, one.size()));
        parameters.emplace_back(unescaped(name, true), unescaped(value, true));
    }
    return parameters;
}

std::string canonicalQuery(std::string_view query)
{
    std::vector<std::pair<std::string, std::string>> parameters = queryParameters(query);
    for (auto& [name, value] : parameters) {
        name = escapeForSignature(name);
        value = escapeForSignature(value);
    }
    std::sort(parameters.begin(), parameters.end()); // by what is written: "%" stands before the letters
    std::string text;
    for (const auto& [name, value] : parameters)
        text.append(text.empty() ? "" : "&").append(name).append("=").append(value);
    return text;
}

CCanonicalRequest::CCanonicalRequest(std::string_view method, const CS3URLParts& url, std::string_view query,
    const CS3RequestToSign::Headers& headers, std::string_view payloadHash)
{
    const auto all = headersToSign(url.host, headers);
    text.append(method).append("\n").append(escapeForSignature(unescaped(url.path, false), '/'));
    text.append("\n").append(query);
    std::string_view last;
    for (const auto& [name, value] : all) {
        if (name == last) { // RFC 9110 section 5.3
            text.append(",").append(value);
            continue;
        }
        text.append("\n").append(name).append(":").append(value);
        signedHeaders.append(signedHeaders.empty() ? "" : ";").append(name);
        last = name;
    }
    text.append("\n\n").append(signedHeaders).append("\n").append(payloadHash);
}

} // namespace norla
