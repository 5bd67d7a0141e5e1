#include "norla/files/CS3DownloadOrigin.h"

#include "norla/s3/CS3BodyDigest.h"
#include "norla/s3/CS3Client.h"
#include "norla/s3/objectCall.h"

#include <utility>
#include <vector>

namespace norla {

namespace {

constexpr int wholeObject = 200; // the status of an answer with all of it
constexpr char eTagHeader[] = "etag";
constexpr char checksumPrefix[] = "x-amz-checksum-";

CS3Call downloadCall(const kx::String& bucketName, const kx::String& objectName, const CS3FileDownloadOptions& options)
{
    CS3GetOptions object;
    object.versionId = options.versionId;
    object.customerKey = options.customerKey;
    object.verify = options.verify;
    object.headers = options.headers;
    return getCall("GET", bucketName, objectName, object, "CS3FileDownload");
}

kx::String headerSaid(const CNetRequest::HeaderMap& headers, const kx::String& name)
{
    const auto found = headers.find(name);
    return found == headers.end() ? kx::String() : found->second;
}

std::vector<CS3BodyDigest> digestsSaidIn(const CNetRequest::HeaderMap& headers)
{
    std::vector<CS3BodyDigest> digests;
    for (const CS3Checksum kind : {CS3Checksum::MD5, CS3Checksum::SHA256, CS3Checksum::CRC32C}) {
        if (CS3BodyDigest::saidIn(headers, kind))
            digests.emplace_back(kind);
    }
    return digests;
}

} // namespace

CS3DownloadOrigin::CS3DownloadOrigin(CS3Client& client, const kx::String& bucketName, const kx::String& objectName,
    const CS3FileDownloadOptions& options)
    : m_client(client)
    , m_call(downloadCall(bucketName, objectName, options))
    , m_versionId(options.versionId)
    , m_verifies(options.verify)
{
}

void CS3DownloadOrigin::prepare(CNetRequest& request)
{
    m_client.prepareCall(request, m_call);
    CAttempt& attempt = m_attempts.try_emplace(&request, CAttempt{CS3Attempt(m_client)}).first->second;
    if (!std::exchange(attempt.isCorrected, false))
        attempt.attempt.begin(request);
}

kx::String CS3DownloadOrigin::getIdentity()
{
    const auto request = kx::newObj<CNetRequest>();
    return m_client.getObjectURL(*request, m_call.bucketName, m_call.objectName)
        + (m_versionId.isEmpty() ? kx::String() : "?versionId=" + request->urlEscape(m_versionId));
}

/// A checksum in the answer to a range may be one of the range.
void CS3DownloadOrigin::learn(CNetRequest& request)
{
    const CNetRequest::HeaderMap& headers = request.getResponseHeaderMap();
    if (headerSaid(m_said, eTagHeader) != headerSaid(headers, eTagHeader))
        m_said.clear();
    for (const auto& [name, value] : headers) {
        if (request.getResponseCode() == wholeObject || !name.startsWith(checksumPrefix))
            m_said[name] = value;
    }
}

kx::P<kx::CError> CS3DownloadOrigin::explain(CNetRequest& request, const kx::CError& error)
{
    CAttempt& attempt = m_attempts.at(&request);
    kx::P<kx::CError> explained = attempt.attempt.explain(request, error);
    attempt.isCorrected = attempt.attempt.isCorrected(request, *explained);
    return attempt.isCorrected ? nullptr : explained;
}

kx::P<kx::CError> CS3DownloadOrigin::judge(const NextBlock& nextBlock)
{
    if (!m_verifies)
        return nullptr;
    std::vector<CS3BodyDigest> digests = digestsSaidIn(m_said);
    if (digests.empty())
        return nullptr;
    for (auto bytes = nextBlock(); !bytes.empty(); bytes = nextBlock()) {
        for (CS3BodyDigest& digest : digests)
            digest.update(bytes);
    }
    try {
        for (CS3BodyDigest& digest : digests)
            digest.requireAsSaid(m_said, textOf(m_call));
    } catch (const kx::CError& error) {
        return error.clone();
    }
    return nullptr;
}

} // namespace norla
