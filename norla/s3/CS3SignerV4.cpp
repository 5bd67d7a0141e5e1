#include "norla/s3/CS3SignerV4.h"

#include "kx/base/CInvalidArgError.h"
#include "kx/text/hex.h"
#include "kx/text/numbers.h"
#include "kx/time/CTimeFields.h"
#include "norla/s3/canonicalRequest.h"
#include "norla/s3/hexSHA256.h"
#include "sela/CHMAC.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string_view>

namespace norla {

namespace {

constexpr char algorithm[] = "AWS4-HMAC-SHA256";
constexpr char unsignedPayload[] = "UNSIGNED-PAYLOAD";
constexpr char scopeEnd[] = "aws4_request";
constexpr auto ownHeaders
    = std::to_array<std::string_view>({"authorization", "x-amz-content-sha256", "x-amz-date", "x-amz-security-token"});
constexpr size_t daySize = 8; // "20130524"

std::string checkedName(const kx::String& name, const char* what)
{
    std::string text = name.toUTF8();
    constexpr char allowed[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_.";
    if (text.empty() || text.find_first_not_of(allowed) != std::string::npos)
        throw kx::CInvalidArgError("the " + kx::String::fromLatin1(what) + " '" + name
                + R"(' of a signature may hold letters, digits, "-", "_" and "." alone, and one of them at least)",
            "norla::CS3SignerV4::CS3SignerV4");
    return text;
}

/// "20130524T000000Z".
std::string timestampOf(const kx::CTime& time)
{
    const kx::CTimeFields fields(time);
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%04d%02d%02dT%02d%02d%02dZ", static_cast<int>(fields.getYear()),
        static_cast<int>(fields.getMonth()), static_cast<int>(fields.getDay()), static_cast<int>(fields.getHour()),
        static_cast<int>(fields.getMinute()), static_cast<int>(fields.getSecond()));
    return text.data();
}

bool equalsIgnoringCase(std::string_view a, std::string_view lowerB)
{
    return std::equal(a.begin(), a.end(), lowerB.begin(), lowerB.end(),
        [](char x, char y) { return (x >= 'A' && x <= 'Z' ? x - 'A' + 'a' : x) == y; });
}

void requireMissing(const CS3RequestToSign::Headers& headers)
{
    for (const auto& [name, value] : headers) {
        const std::string_view given = name;
        if (std::any_of(
                ownHeaders.begin(), ownHeaders.end(), [given](auto one) { return equalsIgnoringCase(given, one); }))
            throw kx::CInvalidArgError("the header '" + kx::String::fromLatin1(name)
                    + "' is the signature's own and may not be there before it",
                "norla::CS3SignerV4::sign");
    }
}

long long checkedSeconds(kx::CTimeSpan lifetime)
{
    constexpr long long most = 7LL * 24 * 60 * 60;
    constexpr long long microsecondsOfASecond = 1'000'000;
    const long long microseconds = lifetime.getMicroseconds();
    if (lifetime.isInfinite() || microseconds < microsecondsOfASecond || microseconds > most * microsecondsOfASecond)
        throw kx::CInvalidArgError("a presigned URL lives for 1 second to 7 days"
                + (lifetime.isInfinite()
                        ? kx::String(", not for ever")
                        : ", not for " + kx::toString(microseconds / microsecondsOfASecond) + " seconds"),
            "norla::CS3SignerV4::presign");
    return microseconds / microsecondsOfASecond;
}

} // namespace

/// The key of a day.
class CS3SignerV4::CKey {
public:
    CKey(const CScope& scope, const std::string& region, const std::string& service, const kx::String& secret)
        : m_day(scope.text.substr(0, daySize))
        , m_secret(secret)
        , m_mac("SHA256", derived(m_day, region, service, secret))
    {
    }

    bool isFor(const CScope& scope, const kx::String& secret) const
    {
        return scope.text.starts_with(m_day) && m_secret == secret;
    }

    std::string sign(const std::string& text) { return m_mac.calculate(text); }

private:
    static std::string derived(
        const std::string& day, const std::string& region, const std::string& service, const kx::String& secret)
    {
        std::string key = "AWS4" + secret.toUTF8();
        for (const std::string_view part :
            {std::string_view(day), std::string_view(region), std::string_view(service), std::string_view(scopeEnd)})
            key = sela::CHMAC("SHA256", key).calculate(part);
        return key;
    }

    const std::string m_day;
    const kx::String m_secret;
    sela::CHMAC m_mac;
};

CS3SignerV4::CS3SignerV4(const kx::String& region, const kx::String& service)
    : m_region(checkedName(region, "region"))
    , m_service(checkedName(service, "service"))
{
}

CS3SignerV4::~CS3SignerV4() = default;

void CS3SignerV4::sign(CS3RequestToSign& request, const CS3Credentials& credentials)
{
    if (credentials.accessKeyId.isEmpty())
        return;
    requireMissing(request.headers);
    const CScope scope = scopeAt(timestampOf(request.time));
    const std::string payloadHash = request.payloadSHA256.empty() ? unsignedPayload : request.payloadSHA256;
    CS3RequestToSign::Headers headers = request.headers;
    headers.emplace_back("x-amz-content-sha256", payloadHash);
    headers.emplace_back("x-amz-date", scope.timestamp);
    if (!credentials.sessionToken.isEmpty())
        headers.emplace_back("x-amz-security-token", credentials.sessionToken.toUTF8());
    const CS3URLParts url = splitS3URL(request.url);
    const CCanonicalRequest canonical(request.method, url, canonicalQuery(url.query), headers, payloadHash);
    headers.emplace_back("Authorization",
        std::string(algorithm) + " Credential=" + credentials.accessKeyId.toUTF8() + "/" + scope.text
            + ",SignedHeaders=" + canonical.signedHeaders
            + ",Signature=" + signatureOf(canonical.text, scope, credentials.secretAccessKey));
    requireOneLineHeaders(headers); // the key's id may come from a file
    request.headers = std::move(headers);
}

std::vector<std::string> CS3SignerV4::getHeaderNames() const
{
    return {ownHeaders.begin(), ownHeaders.end()};
}

std::string CS3SignerV4::presign(
    const CS3RequestToSign& request, const CS3Credentials& credentials, kx::CTimeSpan lifetime)
{
    const long long seconds = checkedSeconds(lifetime);
    if (credentials.accessKeyId.isEmpty())
        return request.url;
    const CScope scope = scopeAt(timestampOf(request.time));
    const CS3URLParts url = splitS3URL(request.url);
    const std::string names
        = CCanonicalRequest(request.method, url, {}, request.headers, unsignedPayload).signedHeaders;
    std::string added = std::string("X-Amz-Algorithm=") + algorithm
        + "&X-Amz-Credential=" + escapeForSignature(credentials.accessKeyId.toUTF8() + "/" + scope.text)
        + "&X-Amz-Date=" + scope.timestamp + "&X-Amz-Expires=" + std::to_string(seconds);
    if (!credentials.sessionToken.isEmpty())
        added += "&X-Amz-Security-Token=" + escapeForSignature(credentials.sessionToken.toUTF8());
    added += "&X-Amz-SignedHeaders=" + escapeForSignature(names);
    const std::string query = url.query.empty() ? added : std::string(url.query) + "&" + added;
    const CCanonicalRequest canonical(request.method, url, canonicalQuery(query), request.headers, unsignedPayload);
    const std::string withoutQuery = request.url.substr(0, request.url.find_first_of("?#"));
    return withoutQuery + "?" + query
        + "&X-Amz-Signature=" + signatureOf(canonical.text, scope, credentials.secretAccessKey);
}

std::string CS3SignerV4::signChunk(const std::string& timestamp, const std::string& previousSignature,
    const std::string& chunkSHA256, const CS3Credentials& credentials)
{
    const CScope scope = scopeAt(timestamp);
    return signatureFor(std::string(algorithm) + "-PAYLOAD\n" + timestamp + "\n" + scope.text + "\n" + previousSignature
            + "\n" + hexSHA256("") + "\n" + chunkSHA256,
        scope, credentials.secretAccessKey);
}

CS3SignerV4::CScope CS3SignerV4::scopeAt(const std::string& timestamp) const
{
    return {.timestamp = timestamp,
        .text = timestamp.substr(0, daySize) + "/" + m_region + "/" + m_service + "/" + scopeEnd};
}

std::string CS3SignerV4::signatureOf(
    const std::string& canonicalRequest, const CScope& scope, const kx::String& secretAccessKey)
{
    return signatureFor(
        std::string(algorithm) + "\n" + scope.timestamp + "\n" + scope.text + "\n" + hexSHA256(canonicalRequest), scope,
        secretAccessKey);
}

std::string CS3SignerV4::signatureFor(const std::string& text, const CScope& scope, const kx::String& secretAccessKey)
{
    const std::lock_guard lock(m_mutex);
    if (!m_key || !m_key->isFor(scope, secretAccessKey))
        m_key = std::make_unique<CKey>(scope, m_region, m_service, secretAccessKey);
    return kx::hexEncode(m_key->sign(text)).toUTF8();
}

} // namespace norla
