// What a CS3Client makes of failures, and when it tries again.
#include "kx/log/log.h"
#include "kx/text/numbers.h"
#include "kx/threads/CThread.h"
#include "norla/core/CCURLError.h"
#include "norla/s3/CS3Client.h"
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

constexpr int retryPauseMs = 100;

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

// libcurl speaks of a protocol that it does not support.
void explainRedirect(const std::exception& error, const kx::String& store)
{
    const auto* const curlError = dynamic_cast<const CCURLError*>(&error);
    if (!curlError || curlError->getCode() != CURLE_UNSUPPORTED_PROTOCOL || responseCodeOf(*curlError) <= 0)
        return;
    CFailureDetails details = curlError->getDetails(); // with the address that the redirect leads to
    details.limitText = "A redirect from the store " + store + " to the server " + details.host
        + " is not followed: it does not lead to https.";
    throw CCURLError(CURLE_UNSUPPORTED_PROTOCOL,
        "the store redirects to a URL that is not https, which is not followed", "http", responseCodeOf(*curlError),
        kx::String(), kx::String(), details);
}

kx::String describe(const kx::CError& error, int attempt)
{
    const auto* const s3Error = dynamic_cast<const CS3Error*>(&error);
    const kx::String what = s3Error ? "Received " + s3Error->getS3Code() + " response from S3"
                                    : "Got error during S3 request: " + error.getMessage();
    return what + " (try " + kx::toString(attempt) + ").";
}

} // namespace

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
        if (usesTLS())
            explainRedirect(error, m_endpointURL);
        throw;
    }
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
    throw CS3Error(*response, responseCode, curlError->clone());
}

} // namespace norla
