#include "norla/s3/CS3SignerV2.h"

#include "kx/base/CInvalidArgError.h"
#include "kx/containers/TBuffer.h"
#include "kx/time/CTimeFields.h"
#include "norla/s3/CS3Client.h"
#include "norla/s3/canonicalRequest.h"
#include "sela/base64.h"
#include "sela/hmac.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace norla {

namespace {

/// Of the documentation of AWS, "Signing and authenticating REST requests", and of Ceph's gateway.
constexpr auto subResources = std::to_array<std::string_view>(
    {"accelerate", "acl", "cors", "delete", "encryption", "inventory", "lifecycle", "location", "logging", "metrics",
        "notification", "object-lock", "partNumber", "policy", "policyStatus", "publicAccessBlock", "replication",
        "requestPayment", "response-cache-control", "response-content-disposition", "response-content-encoding",
        "response-content-language", "response-content-type", "response-expires", "restore", "retention", "tagging",
        "torrent", "uploadId", "uploads", "versionId", "versioning", "versions", "website"});

CS3Client::HeaderMap mapOf(const CS3RequestToSign::Headers& headers)
{
    CS3Client::HeaderMap map;
    for (const auto& [name, value] : headers) {
        kx::String& joined = map[kx::String::fromUTF8(name).toLower()];
        const kx::String text = kx::String::fromUTF8(value).trim();
        joined = joined.isEmpty() ? text : joined + "," + text; // RFC 9110 section 5.3
    }
    return map;
}

std::string signatureOf(const std::string& text, const CS3Credentials& credentials)
{
    const std::string key = credentials.secretAccessKey.toUTF8();
    kx::TBuffer<unsigned char> code;
    sela::calcHMAC_SHA1(code, reinterpret_cast<const unsigned char*>(text.data()), text.size(),
        reinterpret_cast<const unsigned char*>(key.data()), key.size());
    return sela::base64Encode(code.getData(), code.getSize(), true, false).toUTF8();
}

bool has(const CS3RequestToSign::Headers& headers, std::string_view lowerName)
{
    return std::any_of(headers.begin(), headers.end(),
        [lowerName](const auto& header) { return kx::String::fromUTF8(header.first).toLower().toUTF8() == lowerName; });
}

std::string dateOf(const CS3RequestToSign& request)
{
    for (const auto& [name, value] : request.headers)
        if (kx::String::fromUTF8(name).toLower() == "date")
            return kx::String::fromUTF8(value).trim().toUTF8();
    return {};
}

} // namespace

CS3SignerV2::CS3SignerV2() = default;
CS3SignerV2::~CS3SignerV2() = default;

void CS3SignerV2::sign(CS3RequestToSign& request, const CS3Credentials& credentials)
{
    if (credentials.accessKeyId.isEmpty())
        return;
    requireOneLineHeaders(request.headers);
    if (has(request.headers, "authorization"))
        throw kx::CInvalidArgError("the header 'Authorization' is the signature's own and may not be there before it",
            "norla::CS3SignerV2::sign");
    CS3RequestToSign complete = request;
    if (!has(request.headers, "date") && !has(request.headers, "x-amz-date"))
        complete.headers.emplace_back("Date", kx::CTimeFields(request.time).toInternetTimestamp().toUTF8());
    if (!credentials.sessionToken.isEmpty())
        complete.headers.emplace_back("x-amz-security-token", credentials.sessionToken.toUTF8());
    const std::string date = has(complete.headers, "x-amz-date") ? std::string() : dateOf(complete);
    complete.headers.emplace_back("Authorization",
        "AWS " + credentials.accessKeyId.toUTF8() + ":" + signatureOf(getStringToSign(complete, date), credentials));
    requireOneLineHeaders(complete.headers); // key and token may come from a file
    request.headers = std::move(complete.headers);
}

std::vector<std::string> CS3SignerV2::getHeaderNames() const
{
    return {"authorization", "date", "x-amz-security-token"};
}

std::string CS3SignerV2::presign(
    const CS3RequestToSign& request, const CS3Credentials& credentials, kx::CTimeSpan lifetime)
{
    constexpr long long microsecondsOfASecond = 1'000'000;
    if (lifetime.isInfinite() || lifetime.getMicroseconds() < microsecondsOfASecond)
        throw kx::CInvalidArgError("a presigned URL lives for 1 second at least", "norla::CS3SignerV2::presign");
    if (credentials.accessKeyId.isEmpty())
        return request.url;
    requireOneLineHeaders(request.headers);
    CS3RequestToSign complete = request;
    complete.url = request.url.substr(0, request.url.find('#'));
    if (!credentials.sessionToken.isEmpty()) // which counts as a header, wherever it stands
        complete.headers.emplace_back("x-amz-security-token", credentials.sessionToken.toUTF8());
    const std::string end
        = std::to_string((request.time.getMicroseconds() + lifetime.getMicroseconds()) / microsecondsOfASecond);
    const std::string signature = signatureOf(getStringToSign(complete, end), credentials);
    std::string url = complete.url + (complete.url.find('?') == std::string::npos ? "?" : "&")
        + "AWSAccessKeyId=" + escapeForSignature(credentials.accessKeyId.toUTF8()) + "&Expires=" + end
        + "&Signature=" + escapeForSignature(signature);
    if (!credentials.sessionToken.isEmpty())
        url += "&x-amz-security-token=" + escapeForSignature(credentials.sessionToken.toUTF8());
    return url;
}

std::string CS3SignerV2::getStringToSign(const CS3RequestToSign& request, const std::string& date)
{
    const CS3Client::HeaderMap headers = mapOf(request.headers);
    const auto line = [&headers](const char* name) {
        return CS3Client::getHeaderFromMap(headers, kx::String::fromLatin1(name)).toUTF8() + "\n";
    };
    return request.method + "\n" + line("content-md5") + line("content-type") + date + "\n"
        + CS3Client::getCanonicalizedAMZHeaders(headers).toUTF8() + getCanonicalizedResource(request);
}

std::string CS3SignerV2::getCanonicalizedResource(const CS3RequestToSign& request)
{
    const CS3URLParts url = splitS3URL(request.url);
    const std::string start = (request.bucketOfHost.empty() ? "" : "/" + request.bucketOfHost) + std::string(url.path);
    if (!url.query.empty() && url.query.find_first_of("=&") == std::string_view::npos)
        return start + "?" + std::string(url.query);
    std::vector<std::pair<std::string, std::string>> parameters = queryParameters(url.query);
    std::erase_if(parameters, [](const auto& parameter) {
        return std::find(subResources.begin(), subResources.end(), parameter.first) == subResources.end();
    });
    std::sort(parameters.begin(), parameters.end());
    std::string text = start;
    for (const auto& [name, value] : parameters) {
        text += (text.size() == start.size() ? "?" : "&") + name;
        if (!value.empty())
            text += "=" + value;
    }
    return text;
}

} // namespace norla
