#include "norla/s3/CS3Client.h"

#include "kx/base/CInvalidArgError.h"
#include "kx/streams/CBufferStream.h"
#include "kx/text/numbers.h"
#include "kx/time/CTime.h"
#include "kx/time/CTimeFields.h"
#include "norla/core/CNetHeaders.h"
#include "norla/s3/CObjectPart.h"
#include "norla/s3/CS3CopyObjectResult.h"
#include "norla/s3/CS3Error.h"
#include "norla/s3/CS3SignerV2.h"
#include "norla/s3/CS3SignerV4.h"
#include "norla/s3/hexSHA256.h"
#include "sela/CDigestType_MD5.h"
#include "sela/base64.h"

#include <algorithm>
#include <string>
#include <string_view>

namespace norla {

namespace {

kx::String endpointURL(bool useSSL, const kx::String& host)
{
    if (host.toWide().find_first_of(L"/?#@ \r\n") != std::wstring::npos || host.isEmpty()) {
        const size_t at = host.rfind(L'@'); // a password may stand before it
        const kx::String shown = at == kx::String::npos ? host : "***" + host.substr(at);
        throw kx::CInvalidArgError(
            "endpoint host must be a host name with or without a port, not '" + shown + "'", "CS3Client::CS3Client");
    }
    return kx::String::fromLatin1(useSSL ? "https://" : "http://") + host + "/";
}

kx::P<IS3Signer> signerOf(const CS3Endpoint& endpoint)
{
    if (endpoint.signature == CS3Endpoint::Signature::V2)
        return kx::newObj<CS3SignerV2>();
    return kx::newObj<CS3SignerV4>(endpoint.region);
}

void requireName(const kx::String& name, const kx::String& message, const kx::String& functionName)
{
    if (name.isEmpty())
        throw kx::CInvalidArgError(message, functionName);
}

void requireNames(const kx::String& bucketName, const kx::String& objectName, const kx::String& functionName)
{
    requireName(bucketName, "bucket name must not be empty", functionName);
    requireName(objectName, "object name must not be empty", functionName);
}

void requireSingleLine(const kx::String& value, const kx::String& what, const kx::String& functionName)
{
    if (value.toWide().find_first_of(L"\r\n") != std::wstring::npos)
        throw kx::CInvalidArgError(what + " must not hold a line end", functionName);
}

/// What a bucket is called that stands before the host (RFC 1123 section 2.1).
void requireHostName(const kx::String& bucketName)
{
    constexpr wchar_t allowed[] = L"abcdefghijklmnopqrstuvwxyz0123456789-.";
    constexpr size_t longest = 63;
    const std::wstring& name = bucketName.toWide();
    if (name.empty() || name.find_first_not_of(allowed) != std::wstring::npos || name.size() > longest
        || name.front() == L'.' || name.back() == L'.' || name.find(L"..") != std::wstring::npos)
        throw kx::CInvalidArgError("the bucket '" + bucketName + "' cannot be a part of a host's name", "CS3Client");
}

/// Whether segments of the path are "." or "..", which libcurl takes for directions and not for names (RFC 3986 section
/// 5.2.4).
bool hasDotSegment(const kx::String& url)
{
    const std::wstring& text = url.toWide();
    const size_t end = std::min(text.find_first_of(L"?#"), text.size());
    for (size_t slash = text.find(L'/'); slash < end;) {
        const size_t next = std::min(text.find(L'/', slash + 1), end);
        const std::wstring_view segment = std::wstring_view(text).substr(slash + 1, next - slash - 1);
        if (segment == L"." || segment == L"..")
            return true;
        slash = next;
    }
    return false;
}

kx::String now()
{
    return kx::CTimeFields(kx::CTime::now(), kx::CTimeFields::TypeUTC).toInternetTimestamp();
}

} // namespace

CS3Client::CS3Client(
    const kx::String& accessKeyId, const kx::String& secretAccessKey, bool useSSL, const kx::String& endpointHost)
    : m_endpointURL(endpointURL(useSSL, endpointHost))
    , m_md5(sela::CDigestType_MD5::createDigest())
    , m_accessKeyId(accessKeyId)
    , m_secretAccessKeyUTF8(secretAccessKey.toUTF8())
{
    requireSingleLine(accessKeyId, "access key id", "CS3Client::CS3Client");
}

CS3Client::CS3Client(const CS3Endpoint& endpoint, IS3Credentials* credentials, IS3Signer* signer)
    : m_endpointURL(endpointURL(endpoint.useTLS, endpoint.host))
    , m_md5(sela::CDigestType_MD5::createDigest())
    , m_addressing(endpoint.addressing)
    , m_credentials(credentials)
    , m_signer(signer ? kx::P<IS3Signer>(signer) : signerOf(endpoint))
    , m_region(!signer && endpoint.signature == CS3Endpoint::Signature::V4 ? endpoint.region : kx::String())
    , m_safeDefaults(CSafeDefaults{.maxReceiveBuffer = 0})
{
    if (!credentials)
        throw kx::CInvalidArgError("credentials is null", "CS3Client::CS3Client");
}

CS3Client::~CS3Client() = default;

void CS3Client::preparePutObjectRequest(CNetRequest& request, const kx::String& bucketName,
    const kx::String& objectName, const void* data, int size, const kx::String& contentType)
{
    constexpr char functionName[] = "CS3Client::preparePutObjectRequest";
    requireNames(bucketName, objectName, functionName);
    if (size < 0)
        throw kx::CInvalidArgError("size must not be negative", functionName);
    const auto byteCount = static_cast<size_t>(size);
    const auto body = kx::newObj<Buffer>();
    body->append(static_cast<const unsigned char*>(data), byteCount);
    const auto source = kx::newObj<CNetRequest::CStreamDataSource>(kx::newObj<kx::CBufferStream>(body, 2.0).get());
    const std::string digest
        = m_signer ? hexSHA256({static_cast<const char*>(data), byteCount}) : std::string(); // what signatures V4 cover
    preparePut(request, getObjectURL(request, bucketName, objectName), source.get(), size, md5Of(data, byteCount),
        contentType, digest);
}

void CS3Client::preparePutObjectRequest(CNetRequest& request, const kx::String& bucketName,
    const kx::String& objectName, CNetRequest::IDataSource* source, long long size, const kx::String& contentMD5,
    const kx::String& contentType)
{
    constexpr char functionName[] = "CS3Client::preparePutObjectRequest";
    requireNames(bucketName, objectName, functionName);
    if (!source)
        throw kx::CInvalidArgError("source is null", functionName);
    if (size < 0)
        throw kx::CInvalidArgError("size must not be negative", functionName);
    preparePut(request, getObjectURL(request, bucketName, objectName), source, size, contentMD5, contentType, {});
}

void CS3Client::preparePut(CNetRequest& request, const kx::String& objectURL, CNetRequest::IDataSource* source,
    long long size, const kx::String& contentMD5, const kx::String& contentType, const std::string& payloadSHA256)
{
    constexpr char functionName[] = "CS3Client::preparePutObjectRequest";
    requireSingleLine(contentMD5, "Content-MD5", functionName);
    requireSingleLine(contentType, "content type", functionName);
    const auto headers = beginPrepareRequest(request, objectURL);
    request.setHTTPMethod("PUT");
    if (!contentMD5.isEmpty())
        headers->add("Content-MD5", contentMD5);
    if (!contentType.isEmpty())
        headers->add("Content-Type", contentType);
    finish(request, setSource(request, *headers, source, size, payloadSHA256));
}

void CS3Client::putObject(CNetRequest& request, const kx::String& bucketName, const kx::String& objectName,
    const void* data, int size, const kx::String& contentType)
{
    preparePutObjectRequest(request, bucketName, objectName, data, size, contentType);
    performRequest(request);
}

void CS3Client::putObject(CNetRequest& request, const kx::String& bucketName, const kx::String& objectName,
    CNetRequest::IDataSource* source, long long size, const kx::String& contentMD5, const kx::String& contentType)
{
    preparePutObjectRequest(request, bucketName, objectName, source, size, contentMD5, contentType);
    performRequest(request);
}

void CS3Client::prepareGetObjectRequest(
    CNetRequest& request, const kx::String& bucketName, const kx::String& objectName, long long start, long long length)
{
    constexpr char functionName[] = "CS3Client::prepareGetObjectRequest";
    requireNames(bucketName, objectName, functionName);
    const CObjectPart part(start, length, functionName);
    const auto headers = beginPrepareRequest(request, getObjectURL(request, bucketName, objectName));
    if (part.isNothing())
        request.setHTTPMethod("HEAD");
    else if (!part.isWhole())
        headers->add("Range", part.toRange());
    finishPrepareRequest(request);
}

void CS3Client::getObject(
    CNetRequest& request, const kx::String& bucketName, const kx::String& objectName, long long start, long long length)
{
    prepareGetObjectRequest(request, bucketName, objectName, start, length);
    performRequest(request);
    const CObjectPart part(start, length, "CS3Client::getObject");
    if (!part.isNothing() && !part.isWhole() && !part.isAnswerOf(request))
        throw kx::CError("The store was asked for '" + part.toRange() + "' of the object '" + objectName
            + "' in the bucket '" + bucketName + "' and gave something else: status "
            + kx::toString(request.getResponseCode()) + ", Content-Range '"
            + getHeaderFromMap(request.getResponseHeaderMap(), "content-range") + "', "
            + kx::toString(static_cast<long long>(request.getDownloadedBytes())) + " bytes.");
}

void CS3Client::prepareGetObjectHeadersRequest(
    CNetRequest& request, const kx::String& bucketName, const kx::String& objectName)
{
    requireNames(bucketName, objectName, "CS3Client::prepareGetObjectHeadersRequest");
    beginPrepareRequest(request, getObjectURL(request, bucketName, objectName));
    request.setHTTPMethod("HEAD");
    finishPrepareRequest(request);
}

CS3Client::HeaderMap CS3Client::getObjectHeaders(
    CNetRequest& request, const kx::String& bucketName, const kx::String& objectName)
{
    prepareGetObjectHeadersRequest(request, bucketName, objectName);
    performRequest(request);
    return request.getResponseHeaderMap();
}

bool CS3Client::objectExists(CNetRequest& request, const kx::String& bucketName, const kx::String& objectName)
{
    try {
        getObjectHeaders(request, bucketName, objectName);
        return true;
    } catch (const kx::CError& error) {
        if (saysNotFound(error))
            return false;
        throw;
    }
}

long long CS3Client::getObjectSize(CNetRequest& request, const kx::String& bucketName, const kx::String& objectName)
{
    try {
        const HeaderMap headers = getObjectHeaders(request, bucketName, objectName);
        const auto length = headers.find("content-length");
        if (length == headers.end())
            throw kx::CError("Error: Content-Length header was expected but not included in response.");
        return kx::parseInt64(length->second, false);
    } catch (const kx::CError& error) {
        if (saysNotFound(error))
            return -1;
        throw;
    }
}

void CS3Client::prepareCopyObjectRequest(CNetRequest& request, const kx::String& bucketName,
    const kx::String& existingObjectName, const kx::String& newObjectName)
{
    constexpr char functionName[] = "CS3Client::prepareCopyObjectRequest";
    constexpr char message[] = "neither the existing nor the new object name may be empty";
    requireName(bucketName, "bucket name must not be empty", functionName);
    requireName(existingObjectName, message, functionName);
    requireName(newObjectName, message, functionName);
    const auto headers = beginPrepareRequest(request, getObjectURL(request, bucketName, newObjectName));
    headers->add(
        "x-amz-copy-source", "/" + request.urlEscape(bucketName) + "/" + request.urlEscape(existingObjectName));
    request.setHTTPMethod("PUT");
    request.setSendDataSize(0);
    finishPrepareRequest(request);
}

void CS3Client::copyObject(CNetRequest& request, const kx::String& bucketName, const kx::String& existingObjectName,
    const kx::String& newObjectName)
{
    prepareCopyObjectRequest(request, bucketName, existingObjectName, newObjectName);
    request.perform();
    checkCopyObjectResult(request.getDefaultReceiveBuffer().get());
}

void CS3Client::checkCopyObjectResult(const Buffer* responseData)
{
    constexpr int noHTTPFailure = 0;
    const CS3CopyObjectResult result(responseData);
    if (const auto response = result.getErrorResponse())
        throw CS3Error(*response, noHTTPFailure);
}

void CS3Client::prepareDeleteObjectRequest(
    CNetRequest& request, const kx::String& bucketName, const kx::String& objectName)
{
    requireNames(bucketName, objectName, "CS3Client::prepareDeleteObjectRequest");
    beginPrepareRequest(request, getObjectURL(request, bucketName, objectName));
    request.setHTTPMethod("DELETE");
    finishPrepareRequest(request);
}

void CS3Client::deleteObject(CNetRequest& request, const kx::String& bucketName, const kx::String& objectName)
{
    prepareDeleteObjectRequest(request, bucketName, objectName);
    performRequest(request);
}

void CS3Client::prepareListObjectsRequest(CNetRequest& request, const kx::String& bucketName, const kx::String& prefix,
    const kx::String& delimiter, const kx::String& marker, int maxKeys)
{
    requireName(bucketName, "bucket name must not be empty", "CS3Client::prepareListObjectsRequest");
    kx::String url = bucketURL(request, bucketName);
    wchar_t separator = L'?';
    const auto addParameter = [&url, &separator](const kx::String& name, const kx::String& value) {
        url += separator;
        url += name + "=" + value;
        separator = L'&';
    };
    if (!prefix.isEmpty())
        addParameter("prefix", request.urlEscape(prefix));
    if (!marker.isEmpty())
        addParameter("marker", request.urlEscape(marker));
    if (maxKeys != -1)
        addParameter("max-keys", kx::toString(maxKeys));
    if (!delimiter.isEmpty())
        addParameter("delimiter", request.urlEscape(delimiter));
    if (m_urlEncodedListings)
        addParameter("encoding-type", "url");
    beginPrepareRequest(request, url);
    finishPrepareRequest(request);
}

kx::P<CS3ListObjectsResult> CS3Client::listObjects(CNetRequest& request, const kx::String& bucketName,
    const kx::String& prefix, const kx::String& delimiter, const kx::String& marker, int maxKeys)
{
    prepareListObjectsRequest(request, bucketName, prefix, delimiter, marker, maxKeys);
    performRequest(request);
    using Names = CS3ListObjectsResult::Names;
    return kx::newObj<CS3ListObjectsResult>(
        request.getDefaultReceiveBuffer().get(), m_urlEncodedListings ? Names::AsTheDocumentSays : Names::AsTheyStand);
}

kx::P<CNetHeaders> CS3Client::beginPrepareRequest(CNetRequest& request, const kx::String& url)
{
    request.reset();
    if (m_safeDefaults)
        request.setSafeDefaults(*m_safeDefaults);
    if (m_deadlines)
        request.setDeadlines(*m_deadlines);
    request.setURL(url);
    request.setFollowRedirects(!m_signer);
    request.setKeepPostOnRedirect(true);
    request.setVerbose(m_printDebugInfo);
    request.setSSLVerifyPeer(m_sslVerifyPeer);
    if (!m_rootCertBundlePath.isEmpty())
        request.setRootCertBundlePath(m_rootCertBundlePath);
    if (usesTLS())
        request.setOptionString(CURLOPT_REDIR_PROTOCOLS_STR, "https");
    if (hasDotSegment(url))
        request.setOptionInt(CURLOPT_PATH_AS_IS, 1);
    auto headers = kx::newObj<CNetHeaders>();
    if (!m_signer)
        headers->add("Date", now());
    request.setCustomHTTPHeaders(headers.get());
    return headers;
}

kx::String CS3Client::bucketURL(CNetRequest& request, const kx::String& bucketName)
{
    if (m_addressing == CS3Endpoint::Addressing::Path)
        return m_endpointURL + request.urlEscape(bucketName);
    requireHostName(bucketName);
    const size_t host = m_endpointURL.find("://") + 3;
    return m_endpointURL.substr(0, host) + bucketName + "." + m_endpointURL.substr(host);
}

kx::String CS3Client::getObjectURL(CNetRequest& request, const kx::String& bucketName, const kx::String& objectName)
{
    const kx::String bucket = bucketURL(request, bucketName);
    return (bucket.endsWith("/") ? bucket : bucket + "/") + request.urlEscape(objectName);
}

kx::String CS3Client::md5Of(const void* data, size_t size)
{
    m_md5->reset();
    m_md5->update(data, size);
    m_md5->finish();
    return sela::base64Encode(m_md5->getBytes(), m_md5->getLength(), true, false);
}

} // namespace norla
