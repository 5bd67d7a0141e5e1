// How a CS3Client performs, and when it tries again.
#include "kx/log/log.h"
#include "kx/text/numbers.h"
#include "kx/threads/CThread.h"
#include "norla/core/CNetHeaders.h"
#include "norla/core/isTransient.h"
#include "norla/core/performWithRetries.h"
#include "norla/s3/CS3Client.h"
#include "norla/s3/CS3Error.h"
#include "norla/s3/CS3SignerV4.h"
#include "norla/s3/headerLines.h"

#include <algorithm>
#include <string>
#include <string_view>

namespace norla {

namespace {

constexpr int retryPauseMs = 100;

kx::String describe(const kx::CError& error, int attempt)
{
    const auto* const s3Error = dynamic_cast<const CS3Error*>(&error);
    const kx::String what = s3Error ? "Received " + s3Error->getS3Code() + " response from S3"
                                    : "Got error during S3 request: " + error.getMessage();
    return what + " (try " + kx::toString(attempt) + ").";
}

/// The endpoint's URL with another region in its host, where that names the old one.
kx::String withRegion(const kx::String& endpointURL, const kx::String& old, const kx::String& region)
{
    const size_t host = endpointURL.find("://") + 3;
    const kx::String part = "." + old + ".";
    const size_t at = endpointURL.find(part, host);
    if (at == kx::String::npos || at > endpointURL.find("/", host))
        return endpointURL;
    return endpointURL.substr(0, at) + "." + region + "." + endpointURL.substr(at + part.size());
}

/// The same URL at another endpoint. A bucket before the endpoint's host stays, be it called as a region.
kx::String movedTo(const kx::String& endpointURL, const kx::String& url, const kx::String& oldEndpointURL)
{
    const size_t host = url.find("://") + 3;
    const kx::String oldHost = oldEndpointURL.substr(oldEndpointURL.find("://") + 3); // with its "/"
    const kx::String newHost = endpointURL.substr(endpointURL.find("://") + 3);
    const size_t hostEnd = url.find("/", host);
    if (hostEnd == kx::String::npos || hostEnd + 1 - host < oldHost.size())
        return url;
    const size_t at = hostEnd + 1 - oldHost.size();
    return url.substr(at, oldHost.size()) == oldHost ? url.substr(0, at) + newHost + url.substr(hostEnd + 1) : url;
}

/// What a signature has said of the body; empty when that was not signed.
std::string payloadIn(std::string_view line)
{
    const std::string_view value = line.substr(std::min(line.size(), line.find(':') + 2));
    return value == "UNSIGNED-PAYLOAD" ? std::string() : std::string(value);
}

} // namespace

int CS3Client::performRequest(CNetRequest& request)
{
    return performPrepared(request, false);
}

int CS3Client::performPrepared(CNetRequest& request, bool mayRepeat)
{
    if (m_retryPolicy)
        return performByPolicy(request, mayRepeat);
    CCorrectedAttempt corrected;
    for (int attempt = 1;; ++attempt) {
        try {
            performAttempt(corrected, request);
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
        signAgain(request);
    }
}

void CS3Client::setRetryPolicy(const CRetryPolicy& policy)
{
    m_retryPolicy = policy;
}

int CS3Client::performByPolicy(CNetRequest& request, bool mayRepeat)
{
    CRetryPolicy policy = *m_retryPolicy;
    policy.repeatUnsafe = policy.repeatUnsafe || mayRepeat;
    if (!policy.isTransient) {
        policy.isTransient = [this](const kx::CError& error) {
            return isTransient(error) || (dynamic_cast<const CS3Error*>(&error) && shouldRetryRequest(error));
        };
    }
    bool isFirst = true;
    CCorrectedAttempt corrected;
    const auto attempts = performWithRetries(request, policy, [this, &request, &isFirst, &corrected] {
        if (!isFirst)
            signAgain(request);
        isFirst = false;
        performAttempt(corrected, request);
    });
    return static_cast<int>(attempts.size());
}

void CS3Client::performAttempt(CCorrectedAttempt& attempt, CNetRequest& request)
{
    beginAttempt(attempt, request);
    for (;;) {
        try {
            performOnce(request);
            return;
        } catch (const kx::CError& error) {
            if (!isCorrected(attempt, request, error))
                throw;
        }
        signAgain(request);
    }
}

void CS3Client::beginAttempt(CCorrectedAttempt& attempt, CNetRequest& request) const
{
    attempt.begun = {m_endpointURL, m_signer, m_region, request.getURL()};
    attempt.known = m_corrected;
    attempt.isSignedAgain = false;
}

/// @return whether the request is to be signed and performed once more; else its failure stands
bool CS3Client::isCorrected(CCorrectedAttempt& attempt, CNetRequest& request, const std::exception& error)
{
    // Another request may have brought the correction while this one was on its way.
    const bool isOld = attempt.known != m_corrected && CS3Corrections::mayBeOfTimeOrPlace(request);
    if (m_signer && (isOld || correctTime(attempt, request) || correctRegion(attempt, request, error))) {
        attempt.isSignedAgain = true;
        attempt.known = m_corrected;
        return true;
    }
    if (attempt.isSignedAgain && m_region != attempt.begun.region && request.getResponseCode() <= 0) {
        goBack(request, attempt.begun);
        attempt.isRegionFollowed = false; // which has led nowhere
    }
    return false;
}

// Where the store has sent us is nobody.
void CS3Client::goBack(CNetRequest& request, const CPlace& place)
{
    m_endpointURL = place.endpointURL;
    m_signer = place.signer;
    m_region = place.region;
    ++m_corrected;
    request.setURL(place.url);
}

bool CS3Client::correctTime(CCorrectedAttempt& attempt, CNetRequest& request)
{
    if (attempt.isTimeCorrected || !m_corrections.learnTime(request))
        return false;
    attempt.isTimeCorrected = true;
    ++m_corrected;
    return true;
}

bool CS3Client::correctRegion(CCorrectedAttempt& attempt, CNetRequest& request, const std::exception& error)
{
    if (attempt.isRegionFollowed || m_region.isEmpty())
        return false;
    const kx::String region = CS3Corrections::regionSaid(request, error, m_region);
    if (region.isEmpty())
        return false;
    attempt.isRegionFollowed = true;
    const kx::String endpointURL = withRegion(m_endpointURL, m_region, region);
    request.setURL(movedTo(endpointURL, request.getURL(), m_endpointURL));
    m_endpointURL = endpointURL;
    m_signer = kx::newObj<CS3SignerV4>(region);
    m_region = region;
    ++m_corrected;
    return true;
}

// A client with a key sends what it has signed once, again and again.
void CS3Client::signAgain(CNetRequest& request)
{
    const kx::P<CNetHeaders> old = request.getCustomHTTPHeaders();
    if (!m_signer || !old)
        return;
    std::string payloadSHA256;
    for (const curl_slist* node = old->getCurlList(); node; node = node->next) {
        if (nameOfHeaderLine(node->data) == "x-amz-content-sha256")
            payloadSHA256 = payloadIn(node->data);
    }
    request.setCustomHTTPHeaders(headersWithout(*old, m_signer->getHeaderNames()).get());
    try {
        finish(request, payloadSHA256);
    } catch (...) {
        request.setCustomHTTPHeaders(old.get()); // they tell the next attempt what is signed of the body
        throw;
    }
}

void CS3Client::performOnce(CNetRequest& request)
{
    try {
        if (m_performer)
            m_performer(request);
        else
            request.perform();
    } catch (std::exception& error) {
        throwBetterError(request, error);
        throw;
    }
}

/// Returns where nothing better is known.
void CS3Client::throwBetterError(CNetRequest& request, std::exception& error)
{
    if (m_signer)
        explainFailure(request, error);
    tryThrowBetterError(error, *request.getDefaultReceiveBuffer());
    if (usesTLS())
        explainRedirect(error);
}

} // namespace norla
