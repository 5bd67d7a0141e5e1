#include "norla/s3/CS3Client.h"

#include "kx/base/CInvalidArgError.h"
#include "kx/log/log.h"
#include "kx/streams/CBufferStream.h"
#include "kx/text/numbers.h"
#include "kx/threads/CThread.h"
#include "kx/time/CTime.h"
#include "kx/time/CTimeFields.h"
#include "norla/core/CCURLError.h"
#include "norla/core/CNetHeaders.h"
#include "norla/s3/CS3CopyObjectResult.h"
#include "norla/s3/CS3Error.h"
#include "norla/s3/CS3ErrorResponse.h"
#include "sela/CDigestType_MD5.h"
#include "sela/base64.h"
#include "sela/hmac.h"

#include <algorithm>
#include <array>
#include <limits>
#include <string_view>

namespace norla {

namespace {

constexpr int retryPauseMs = 100;
constexpr int httpNotFound = 404;

kx::String endpointURL(bool useSSL, const kx::String& host)
{
    if (host.toWide().find_first_of(L"/?#@ ") != std::wstring::npos || host.isEmpty()) {
        const size_t at = host.rfind(L'@'); // a password may stand before it
        const kx::String shown = at == kx::String::npos ? host : "***" + host.substr(at);
        throw kx::CInvalidArgError(
            "endpoint host must be a host name with or without a port, not '" + shown + "'", "CS3Client::CS3Client");
    }
    return kx::String::fromLatin1(useSSL ? "https://" : "http://") + host + "/";
}

void requireName(const kx::String& name, const char* message, const char* functionName)
{
    if (name.isEmpty())
        throw kx::CInvalidArgError(kx::String::fromLatin1(message), kx::String::fromLatin1(functionName));
}

void requireNames(const kx::String& bucketName, const kx::String& objectName, const char* functionName)
{
    requireName(bucketName, "bucket name must not be empty", functionName);
    requireName(objectName, "object name must not be empty", functionName);
}

void requireRange(long long start, long long length, const char* functionName)
{
    const auto require = [&](bool isRight, const char* message) {
        if (!isRight)
            throw kx::CInvalidArgError(
                kx::String::fromLatin1(message) + ": " + kx::toString(start) + ", " + kx::toString(length),
                kx::String::fromLatin1(functionName));
    };
    require(start >= 0, "start must not be negative");
    require(length >= -1, "length must not be less than -1");
    require(length <= std::numeric_limits<long long>::max() - start, "start + length is beyond 64 bits");
}

kx::String now()
{
    return kx::CTimeFields(kx::CTime::now(), kx::CTimeFields::TypeUTC).toInternetTimestamp();
}

bool isOneOf(const kx::String& text, std::initializer_list<const char*> choices)
{
    return std::any_of(
        choices.begin(), choices.end(), [&text](const char* choice) { return text == kx::String::fromLatin1(choice); });
}

/// 0 when there was no answer.
int responseCodeOf(const CCURLError& error)
{
    const kx::CProps& props = error.getProps();
    return props.has("responseCode") ? static_cast<int>(kx::parseInt64(props.get("responseCode"), false)) : 0;
}

bool saysNotFound(const kx::CError& error)
{
    if (const auto* const curlError = dynamic_cast<const CCURLError*>(&error))
        return responseCodeOf(*curlError) == httpNotFound;
    return error.getDomain() == "http" && error.getCode() == httpNotFound;
}

bool isTransient(const CCURLError& error)
{
    constexpr std::array<long long, 5> transientCodes
        = {CURLE_COULDNT_CONNECT, CURLE_OPERATION_TIMEDOUT, CURLE_GOT_NOTHING, CURLE_SEND_ERROR, CURLE_RECV_ERROR};
    return error.getDomain() == "curl"
        && std::find(transientCodes.begin(), transientCodes.end(), error.getCode()) != transientCodes.end();
}

void logInvalidResponse(const CNetRequest::Buffer& responseData)
{
    try {
        const kx::String text
            = kx::String::fromLatin1({reinterpret_cast<const char*>(responseData.getData()), responseData.getSize()});
        kx::logErrorData(
            "S3 returned an error, but the response data is not a valid S3 error response.", "S3ResponseData", text);
    } catch (const std::exception& error) {
        kx::logError(error, "Error converting S3 response data to string object.", kx::String());
    }
}

kx::String describe(const kx::CError& error, int attempt)
{
    const auto* const s3Error = dynamic_cast<const CS3Error*>(&error);
    const kx::String what = s3Error ? "Received " + s3Error->getS3Code() + " response from S3"
                                    : "Got error during S3 request: " + error.getMessage();
    return what + " (try " + kx::toString(attempt) + ").";
}

} // namespace

CS3Client::CS3Client(
    const kx::String& accessKeyId, const kx::String& secretAccessKey, bool useSSL, const kx::String& endpointHost)
    : m_endpointURL(endpointURL(useSSL, endpointHost))
    , m_md5(sela::CDigestType_MD5::createDigest())
    , m_accessKeyId(accessKeyId)
    , m_secretAccessKeyUTF8(secretAccessKey.toUTF8())
{
}

CS3Client::~CS3Client() = default;

void CS3Client::preparePutObjectRequest(CNetRequest& request, const kx::String& bucketName,
    const kx::String& objectName, const void* data, int size, const kx::String& contentType)
{
    requireNames(bucketName, objectName, "CS3Client::preparePutObjectRequest");
    if (size < 0)
        throw kx::CInvalidArgError("size must not be negative", "CS3Client::preparePutObjectRequest");
    const auto byteCount = static_cast<size_t>(size);
    const auto headers = beginPrepareRequest(request, getObjectURL(request, bucketName, objectName));
    request.setHTTPMethod("PUT");
    addContentMD5(*headers, data, byteCount);
    if (!contentType.isEmpty())
        headers->add("Content-Type", contentType);
    const auto body = kx::newObj<Buffer>();
    body->append(static_cast<const unsigned char*>(data), byteCount);
    request.setSendDataStream(kx::newObj<kx::CBufferStream>(body, 2.0).get());
    request.setSendDataSize(size);
    finishPrepareRequest(request);
}

void CS3Client::putObject(CNetRequest& request, const kx::String& bucketName, const kx::String& objectName,
    const void* data, int size, const kx::String& contentType)
{
    preparePutObjectRequest(request, bucketName, objectName, data, size, contentType);
    performRequest(request);
}

void CS3Client::prepareGetObjectRequest(
    CNetRequest& request, const kx::String& bucketName, const kx::String& objectName, long long start, long long length)
{
    requireNames(bucketName, objectName, "CS3Client::prepareGetObjectRequest");
    requireRange(start, length, "CS3Client::prepareGetObjectRequest");
    const auto headers = beginPrepareRequest(request, getObjectURL(request, bucketName, objectName));
    if (length == 0)
        request.setHTTPMethod("HEAD");
    else if (start != 0 || length != -1)
        headers->add("Range",
            "bytes=" + kx::toString(start) + "-" + (length == -1 ? kx::String() : kx::toString(start + length - 1)));
    finishPrepareRequest(request);
}

void CS3Client::getObject(
    CNetRequest& request, const kx::String& bucketName, const kx::String& objectName, long long start, long long length)
{
    prepareGetObjectRequest(request, bucketName, objectName, start, length);
    performRequest(request);
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
    constexpr const char* functionName = "CS3Client::prepareCopyObjectRequest";
    constexpr const char* message = "neither the existing nor the new object name may be empty";
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
    kx::String url = m_endpointURL + request.urlEscape(bucketName);
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
    beginPrepareRequest(request, url);
    finishPrepareRequest(request);
}

kx::P<CS3ListObjectsResult> CS3Client::listObjects(CNetRequest& request, const kx::String& bucketName,
    const kx::String& prefix, const kx::String& delimiter, const kx::String& marker, int maxKeys)
{
    prepareListObjectsRequest(request, bucketName, prefix, delimiter, marker, maxKeys);
    performRequest(request);
    return kx::newObj<CS3ListObjectsResult>(request.getDefaultReceiveBuffer().get());
}

int CS3Client::performRequest(CNetRequest& request)
{
    for (int attempt = 1;; ++attempt) {
        try {
            performOnce(request);
            return attempt;
        } catch (const kx::CError& error) {
            if (!shouldRetryRequest(error))
                throw;
            if (shouldSlowDown(error))
                kx::logWarning(error, "Received slowdown response from S3", kx::String());
            const kx::String text = describe(error, attempt);
            if (attempt > m_maxRetries) {
                kx::logError(error, text + " Too many retries. Giving up!", kx::String());
                throw;
            }
            kx::logInfo(text + " Waiting 100ms and retrying.");
        }
        kx::CThread::sleep(retryPauseMs);
    }
}

void CS3Client::performOnce(CNetRequest& request)
{
    try {
        request.perform();
    } catch (std::exception& error) {
        tryThrowBetterError(error, *request.getDefaultReceiveBuffer());
        throw;
    }
}

kx::P<CNetHeaders> CS3Client::beginPrepareRequest(CNetRequest& request, const kx::String& url)
{
    request.reset();
    request.setURL(url);
    request.setFollowRedirects(true);
    request.setKeepPostOnRedirect(true);
    request.setVerbose(m_printDebugInfo);
    request.setSSLVerifyPeer(m_sslVerifyPeer);
    if (!m_rootCertBundlePath.isEmpty())
        request.setRootCertBundlePath(m_rootCertBundlePath);
    auto headers = kx::newObj<CNetHeaders>();
    headers->add("Date", now());
    request.setCustomHTTPHeaders(headers.get());
    return headers;
}

void CS3Client::finishPrepareRequest(CNetRequest& request)
{
    signRequest(&request);
}

kx::String CS3Client::getObjectURL(CNetRequest& request, const kx::String& bucketName, const kx::String& objectName)
{
    return m_endpointURL + request.urlEscape(bucketName) + "/" + request.urlEscape(objectName);
}

void CS3Client::makeSingleLineHeaderValue(kx::String& value)
{
    size_t lineFeed = value.find(L'\n');
    while (lineFeed != kx::String::npos) {
        value = value.substr(0, lineFeed) + " " + value.substr(lineFeed).trimLeft();
        lineFeed = value.find(L'\n', lineFeed);
    }
}

void CS3Client::addContentMD5(CNetHeaders& headers, const void* data, size_t size)
{
    m_md5->reset();
    m_md5->update(data, size);
    m_md5->finish();
    headers.add("Content-MD5", sela::base64Encode(m_md5->getBytes(), m_md5->getLength(), true, false));
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
    if (isNew)
        request->setCustomHTTPHeaders(headers.get());
}

void CS3Client::extractErrorCodes(const std::exception& e, kx::String& s3Code, kx::String& httpCode)
{
    s3Code = kx::String();
    httpCode = kx::String();
    if (const auto* const s3Error = dynamic_cast<const CS3Error*>(&e))
        s3Code = s3Error->getS3Code();
    if (const auto* const error = dynamic_cast<const kx::CError*>(&e))
        httpCode = error->getProps().get("responseCode");
}

bool CS3Client::shouldRetryRequest(const std::exception& e) const
{
    kx::String s3Code;
    kx::String httpCode;
    extractErrorCodes(e, s3Code, httpCode);
    if (!s3Code.isEmpty())
        return isOneOf(s3Code,
            {"InternalError", "SlowDown", "IncompleteBody", "InvalidDigest", "OperationAborted",
                "RequestTimeTooSkewed"});
    if (!httpCode.isEmpty())
        return isOneOf(httpCode, {"500", "503", "400", "409"});
    const auto* const curlError = dynamic_cast<const CCURLError*>(&e);
    return curlError && isTransient(*curlError);
}

bool CS3Client::shouldSlowDown(const std::exception& e) const
{
    kx::String s3Code;
    kx::String httpCode;
    extractErrorCodes(e, s3Code, httpCode);
    return s3Code.isEmpty() ? httpCode == "503" : s3Code == "SlowDown";
}

bool CS3Client::isNotFoundError(const std::exception& e) const
{
    kx::String s3Code;
    kx::String httpCode;
    extractErrorCodes(e, s3Code, httpCode);
    return httpCode == "404" || isOneOf(s3Code, {"NoSuchKey", "NoSuchBucket"});
}

void CS3Client::tryThrowBetterError(std::exception& e, const Buffer& responseData)
{
    const auto* const curlError = dynamic_cast<const CCURLError*>(&e);
    const int responseCode = curlError ? responseCodeOf(*curlError) : 0;
    if (responseCode <= 0 || responseData.getSize() == 0)
        return;
    kx::P<CS3ErrorResponse> response;
    try {
        if (responseData.getSize() > size_t{std::numeric_limits<int>::max()})
            throw kx::CError("The response is too long for an S3 error response.");
        response = kx::newObj<CS3ErrorResponse>(
            reinterpret_cast<const char*>(responseData.getData()), static_cast<int>(responseData.getSize()));
    } catch (const std::exception&) {
        logInvalidResponse(responseData);
        return;
    }
    throw CS3Error(*response, responseCode);
}

} // namespace norla
