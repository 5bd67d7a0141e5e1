// What a CS3Client knows of failures.
#include "kx/log/log.h"
#include "kx/text/numbers.h"
#include "norla/core/CCURLError.h"
#include "norla/core/CNetHeaders.h"
#include "norla/http/util.h"
#include "norla/s3/CS3Client.h"
#include "norla/s3/CS3Endpoint.h"
#include "norla/s3/CS3Error.h"
#include "norla/s3/CS3ErrorResponse.h"
#include "norla/s3/httpStatus.h"

#include <algorithm>
#include <array>
#include <exception>
#include <initializer_list>
#include <limits>

namespace norla {

namespace {

bool isOneOf(const kx::String& text, std::initializer_list<kx::String> choices)
{
    return std::find(choices.begin(), choices.end(), text) != choices.end();
}

/// 0 when there was no answer.
int responseCodeOf(const CCURLError& error)
{
    const kx::CProps& props = error.getProps();
    return props.has("responseCode") ? static_cast<int>(kx::parseInt64(props.get("responseCode"), false)) : 0;
}

bool isTransientTransfer(const CCURLError& error)
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

/// The document among the data; null when there is none.
kx::P<CS3ErrorResponse> responseIn(const CNetRequest::Buffer& data)
{
    if (data.getSize() == 0)
        return nullptr;
    try {
        if (data.getSize() > size_t{std::numeric_limits<int>::max()})
            throw kx::CError("The response is too long for an S3 error response.");
        return kx::newObj<CS3ErrorResponse>(
            reinterpret_cast<const char*>(data.getData()), static_cast<int>(data.getSize()));
    } catch (const std::exception&) {
        logInvalidResponse(data);
        return nullptr;
    }
}

/// With its "/".
kx::String pathOf(const kx::String& url)
{
    const size_t host = url.find("://") + 3;
    const size_t path = std::min(url.find("/", host), url.size());
    return url.substr(path, std::min(url.find("?", path), url.size()) - path);
}

/// What stores say beside a status, where they say anything.
struct CStatusMeaning {
    int status;
    const char* code;
    const char* message;
};

constexpr auto statusMeanings = std::to_array<CStatusMeaning>({
    {301, "PermanentRedirect", "The bucket is at another address"},
    {304, "NotModified", "The object is as it was"},
    {307, "TemporaryRedirect", "The bucket is at another address for the time being"},
    {400, "BadRequest", "The store does not understand the request"},
    {403, "AccessDenied", "The store forbids the request"},
    {405, "MethodNotAllowed", "The store does not allow this with this resource"},
    {409, "OperationAborted", "Another operation on this resource is under way"},
    {411, "MissingContentLength", "The store wants to know the length of the body"},
    {412, "PreconditionFailed", "A condition of the request does not hold"},
    {416, "InvalidRange", "The object has no such part"},
    {500, "InternalError", "The store has failed"},
    {501, "NotImplemented", "The store cannot do this"},
    {503, "SlowDown", "The store wants fewer requests"},
});

/// @return null for a status that says nothing
kx::P<CS3ErrorResponse> responseOfStatus(int status, const kx::String& path, CS3Endpoint::Addressing addressing)
{
    if (status == httpNotFound) {
        const size_t object = addressing == CS3Endpoint::Addressing::Path ? path.find("/", 1) : 0;
        const bool isBucket = object == kx::String::npos || object + 1 >= path.size();
        return isBucket ? kx::newObj<CS3ErrorResponse>("NoSuchBucket", "The bucket does not exist", path, kx::String())
                        : kx::newObj<CS3ErrorResponse>("NoSuchKey", "The object does not exist", path, kx::String());
    }
    const auto meaning = std::find_if(statusMeanings.begin(), statusMeanings.end(),
        [status](const CStatusMeaning& known) { return known.status == status; });
    if (meaning == statusMeanings.end())
        return nullptr;
    return kx::newObj<CS3ErrorResponse>(
        kx::String::fromLatin1(meaning->code), kx::String::fromLatin1(meaning->message), path, kx::String());
}

/// What a copy is made of, as a path; empty when the request is none.
kx::String copySourceOf(CNetRequest& request)
{
    CS3Client::HeaderMap headers;
    if (const auto list = request.getCustomHTTPHeaders())
        list->fillMap(headers);
    const auto source = headers.find("x-amz-copy-source");
    if (source == headers.end())
        return kx::String();
    const kx::String path = source->second.substr(0, source->second.find("?"));
    const kx::String readable = urlUnescape(path, false); // empty when that is not UTF-8
    return readable.isEmpty() ? path : readable;
}

} // namespace

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
    return curlError && isTransientTransfer(*curlError);
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
    return httpCode == kx::toString(httpNotFound) || isOneOf(s3Code, {"NoSuchKey", "NoSuchBucket"});
}

// Narrower than isNotFoundError(): only what the status says, and of other errors only those of HTTP.
bool CS3Client::saysNotFound(const kx::CError& error)
{
    if (const auto* const curlError = dynamic_cast<const CCURLError*>(&error))
        return responseCodeOf(*curlError) == httpNotFound;
    return error.getDomain() == "http" && error.getCode() == httpNotFound;
}

void CS3Client::tryThrowBetterError(std::exception& e, const Buffer& responseData)
{
    const auto* const curlError = dynamic_cast<const CCURLError*>(&e);
    const int responseCode = curlError ? responseCodeOf(*curlError) : 0;
    if (responseCode <= 0)
        return;
    if (const kx::P<CS3ErrorResponse> response = responseIn(responseData))
        throw CS3Error(*response, responseCode, curlError->clone());
}

void CS3Client::explainFailure(CNetRequest& request, const std::exception& error)
{
    const auto* const curlError = dynamic_cast<const CCURLError*>(&error);
    const int responseCode = curlError ? responseCodeOf(*curlError) : 0;
    if (responseCode <= 0)
        return;
    const Buffer& data = *request.getDefaultReceiveBuffer();
    kx::P<CS3ErrorResponse> response = responseIn(data);
    if (!response && data.getSize() == 0)
        response = responseOfStatus(responseCode, pathOf(request.getURL()), m_addressing);
    if (!response)
        return;
    const HeaderMap& headers = request.getResponseHeaderMap();
    response->complete(getHeaderFromMap(headers, "x-amz-request-id"), getHeaderFromMap(headers, "x-amz-id-2"));
    if (response->getCode() == "NoSuchKey") // of a copy it is the source, whatever the request's URL says
        response->completeResource(copySourceOf(request));
    throw CS3Error(*response, responseCode, curlError->clone());
}

// libcurl speaks of a protocol that it does not support.
void CS3Client::explainRedirect(const std::exception& error) const
{
    const auto* const curlError = dynamic_cast<const CCURLError*>(&error);
    if (!curlError || curlError->getCode() != CURLE_UNSUPPORTED_PROTOCOL || responseCodeOf(*curlError) <= 0)
        return;
    CFailureDetails details = curlError->getDetails(); // with the address that the redirect leads to
    details.limitText = "A redirect from the store " + m_endpointURL + " to the server " + details.host
        + " is not followed: it does not lead to https.";
    throw CCURLError(CURLE_UNSUPPORTED_PROTOCOL,
        "the store redirects to a URL that is not https, which is not followed", "http", responseCodeOf(*curlError),
        kx::String(), kx::String(), details);
}

} // namespace norla
