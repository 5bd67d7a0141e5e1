// How a CS3Client signs its requests.
#include "kx/base/CError.h"
#include "kx/base/CInvalidArgError.h"
#include "norla/core/CNetHeaders.h"
#include "norla/s3/CS3ChunkedSource.h"
#include "norla/s3/CS3Client.h"
#include "norla/s3/CS3SignerV2.h"
#include "norla/s3/hexSHA256.h"
#include "sela/base64.h"
#include "sela/hmac.h"

#include <string_view>

namespace norla {

void CS3Client::makeSingleLineHeaderValue(kx::String& value)
{
    size_t lineFeed = value.find(L'\n');
    while (lineFeed != kx::String::npos) {
        value = value.substr(0, lineFeed) + " " + value.substr(lineFeed).trimLeft();
        lineFeed = value.find(L'\n', lineFeed);
    }
}

kx::String CS3Client::getHeaderFromMap(const HeaderMap& map, const kx::String& name)
{
    const auto found = map.find(name);
    return found == map.end() ? kx::String() : found->second;
}

kx::String CS3Client::getCanonicalizedAMZHeaders(const HeaderMap& map)
{
    // The map is ordered by code point already, as the signature wants its lines.
    const kx::String prefix = "x-amz-";
    kx::String lines;
    for (auto header = map.lower_bound(prefix); header != map.end() && header->first.startsWith(prefix); ++header) {
        kx::String value = header->second;
        makeSingleLineHeaderValue(value);
        lines += header->first + ":" + value + "\n";
    }
    return lines;
}

kx::String CS3Client::getCanonicalizedResource(const kx::String& url)
{
    constexpr std::wstring_view schemeEnd = L"://";
    const std::wstring& text = url.toWide();
    const size_t scheme = text.find(schemeEnd);
    const size_t path = scheme == std::wstring::npos ? scheme : text.find(L'/', scheme + schemeEnd.size());
    if (path == std::wstring::npos)
        throw kx::CError("Invalid Amazon S3 query URL: '" + url + "'.");
    const size_t query = text.find(L'?', path);
    const bool hasParameters = query != std::wstring::npos && text.find_first_of(L"=&", query) != std::wstring::npos;
    return url.substr(path, hasParameters ? query - path : kx::String::npos);
}

kx::String CS3Client::getStringToSign(CNetRequest* request)
{
    HeaderMap headers;
    if (const auto list = request->getCustomHTTPHeaders())
        list->fillMap(headers);
    const kx::String date = headers.contains("x-amz-date") ? kx::String() : getHeaderFromMap(headers, "date");
    return request->getHTTPMethod() + "\n" + getHeaderFromMap(headers, "content-md5") + "\n"
        + getHeaderFromMap(headers, "content-type") + "\n" + date + "\n" + getCanonicalizedAMZHeaders(headers)
        + getCanonicalizedResource(request->getURL());
}

kx::String CS3Client::getSignature(CNetRequest* request)
{
    const std::string message = getStringToSign(request).toUTF8();
    sela::calcHMAC_SHA1(m_signatureBuffer, reinterpret_cast<const unsigned char*>(message.data()), message.size(),
        reinterpret_cast<const unsigned char*>(m_secretAccessKeyUTF8.data()), m_secretAccessKeyUTF8.size());
    return sela::base64Encode(m_signatureBuffer.getData(), m_signatureBuffer.getSize(), true, false);
}

void CS3Client::signRequest(CNetRequest* request)
{
    kx::P<CNetHeaders> headers = request->getCustomHTTPHeaders();
    const bool isNew = !headers;
    if (isNew)
        headers = kx::newObj<CNetHeaders>();
    headers->add("Authorization", "AWS " + m_accessKeyId + ":" + getSignature(request));
    headers->sendEmpty("x-amz-"); // they are signed
    if (isNew)
        request->setCustomHTTPHeaders(headers.get());
}

void CS3Client::finishPrepareRequest(CNetRequest& request)
{
    const kx::String method = request.getHTTPMethod();
    const bool hasNoBody = method == "GET" || method == "HEAD" || method == "DELETE";
    finish(request, hasNoBody ? hexSHA256("") : std::string());
}

void CS3Client::finish(CNetRequest& request, const std::string& payloadSHA256)
{
    if (!m_signer) {
        signRequest(&request);
        return;
    }
    const CS3Credentials credentials = m_credentials->get();
    const kx::P<CS3ChunkedSource> chunked(CS3ChunkedSource::in(request));
    if (chunked && credentials.accessKeyId.isEmpty())
        sendPlainly(request, *chunked);
    const kx::P<CNetHeaders> given = request.getCustomHTTPHeaders();
    const kx::P<CNetHeaders> headers = given ? given : kx::newObj<CNetHeaders>();
    CS3RequestToSign toSign{.method = request.getHTTPMethod().toUTF8(),
        .url = request.getURL().toUTF8(),
        .headers = {},
        .payloadSHA256 = payloadSHA256,
        .bucketOfHost = bucketOfHost(request.getURL()),
        .time = m_corrections.now()};
    for (const auto line = headers->createIterator(); line->next();)
        toSign.headers.emplace_back(line->getName().toUTF8(), line->getValue().toUTF8());
    const size_t before = toSign.headers.size();
    m_signer->sign(toSign, credentials);
    if (chunked)
        chunked->setKey(kx::P<CS3SignerV4>(dynamic_cast<CS3SignerV4*>(m_signer.get())), credentials);
    for (size_t i = before; i < toSign.headers.size(); ++i)
        headers->add(kx::String::fromUTF8(toSign.headers[i].first), kx::String::fromUTF8(toSign.headers[i].second));
    headers->sendEmpty("x-amz-"); // they are signed
    if (!given)
        request.setCustomHTTPHeaders(headers.get());
}

kx::String CS3Client::presignObjectURL(CNetRequest& request, const kx::String& method, const kx::String& bucketName,
    const kx::String& objectName, kx::CTimeSpan lifetime)
{
    constexpr char functionName[] = "CS3Client::presignObjectURL";
    if (method.isEmpty() || bucketName.isEmpty() || objectName.isEmpty())
        throw kx::CInvalidArgError("neither method nor bucket name nor object name may be empty", functionName);
    const kx::String url = getObjectURL(request, bucketName, objectName);
    const CS3RequestToSign toSign{.method = method.toUTF8(),
        .url = url.toUTF8(),
        .headers = {},
        .payloadSHA256 = {},
        .bucketOfHost = bucketOfHost(url),
        .time = m_corrections.now()};
    const kx::P<IS3Signer> signer = m_signer ? m_signer : kx::P<IS3Signer>(kx::newObj<CS3SignerV2>());
    const CS3Credentials credentials = m_credentials ? m_credentials->get()
                                                     : CS3Credentials{.accessKeyId = m_accessKeyId,
                                                         .secretAccessKey = kx::String::fromUTF8(m_secretAccessKeyUTF8),
                                                         .sessionToken = {},
                                                         .expiry = {}};
    return kx::String::fromUTF8(signer->presign(toSign, credentials, lifetime));
}

std::string CS3Client::bucketOfHost(const kx::String& url) const
{
    if (m_addressing == CS3Endpoint::Addressing::Path)
        return {};
    const size_t host = m_endpointURL.find("://") + 3;
    const kx::String end = "." + m_endpointURL.substr(host);
    const size_t at = url.find(end, host);
    return at == kx::String::npos ? std::string() : url.substr(host, at - host).toUTF8();
}

} // namespace norla
