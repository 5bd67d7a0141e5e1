#include "norla/files/CS3UploadWay.h"

#include "kx/log/log.h"
#include "kx/text/numbers.h"
#include "norla/core/CRetries.h"
#include "norla/core/errorKind.h"
#include "norla/http/util.h"
#include "norla/s3/CS3AnswerText.h"
#include "norla/s3/CS3Attempt.h"
#include "norla/s3/CS3BodyDigest.h"
#include "norla/s3/CS3Client.h"
#include "norla/s3/CS3ClientClaim.h"
#include "norla/s3/CS3Objects.h"
#include "norla/s3/CS3PerformedBy.h"
#include "norla/s3/multipartDocuments.h"
#include "norla/s3/objectCall.h"
#include "norla/s3/performS3Call.h"
#include "norla/s3/policyForStore.h"
#include "norla/s3/uploadPartSize.h"

#include <utility>

namespace norla {

namespace {

CS3PutOptions objectOf(const CS3FileUploadOptions& options)
{
    CS3PutOptions object = options.object;
    if (!options.overwrite)
        object.ifNoneMatch = "*";
    return object;
}

} // namespace

CS3UploadWay::CS3UploadWay(
    CS3Client& client, const kx::String& bucketName, const kx::String& objectName, const CS3FileUploadOptions& options)
    : m_client(client)
    , m_bucketName(bucketName)
    , m_objectName(objectName)
    , m_options(options)
    , m_call(putCall(bucketName, objectName, objectOf(options)))
    , m_multipart(CS3MultipartOptions::of(objectOf(options)))
{
    constexpr long long nothing = 0;
    uploadPartSize(nothing, options.partSize); // throws for one that makes no sense
}

void CS3UploadWay::send(IUploadSession& session)
{
    const CS3ClientClaim claim(m_client);
    m_session = &session;
    m_size = session.getSource().getLength();
    const CS3PerformedBy performed(m_client, [&session](CNetRequest& request) {
        if (const auto error = session.perform(request, false))
            error->throwClone();
    });
    try {
        sendFile();
    } catch (...) {         // of callbacks, anything
        m_request->reset(); // which may keep the file open
        throw;
    }
}

void CS3UploadWay::sendFile()
{
    if (!m_options.overwrite)
        requireFree();
    if (m_size <= m_options.threshold && m_options.uploadId.isEmpty())
        sendWhole();
    else
        sendParts();
    requireSize();
}

void CS3UploadWay::sendWhole()
{
    const CS3PartDigest digest = CS3PartDigest::of(m_session->getSource(), m_size);
    CS3Call call = m_call;
    call.headers.emplace_back("Content-MD5", digest.contentMD5);
    call.source = kx::P<CNetRequest::IDataSource>(&m_session->getSource());
    call.sourceSize = m_size;
    call.sourceSHA256 = digest.sha256;
    const auto answer = kx::newObj<CS3AnswerText>();
    call.sink = answer;
    CRetries retries(policyForStore(m_client, m_options.retries));
    retries.start();
    for (bool isFirst = true;; isFirst = false) {
        m_session->pauseIfWanted();
        const kx::P<kx::CError> error = performWhole(call);
        if (!error)
            break;
        if (m_session->isInterrupted())
            continue;
        if (isTaken(*error)) {
            if (!isFirst && isOurs(digest))
                return;
            throwTaken(*error, isFirst ? "." : ", unless it is this one, sent by an attempt whose answer was lost.");
        }
        const std::optional<kx::CTimeSpan> pause = retries.afterFailure(*m_request, *error);
        if (!pause)
            error->throwClone();
        kx::logInfo("The upload of '" + m_session->getPath().toString() + "' is tried again: " + error->getMessage());
        m_session->waitOrPause(*pause);
    }
    requireNoErrorIn(answer->get(), call);
    requireWholeArrived(digest);
}

/// With what the store says of time and region.
kx::P<kx::CError> CS3UploadWay::performWhole(const CS3Call& call)
{
    CS3Attempt attempt(m_client);
    m_client.prepareCall(*m_request, call);
    attempt.begin(*m_request);
    for (;;) {
        m_session->getSource().seek(0); // from where progress is told
        kx::P<kx::CError> error = m_session->perform(*m_request, true);
        if (!error || m_session->isInterrupted())
            return error;
        kx::P<kx::CError> explained = attempt.explain(*m_request, *error);
        if (!attempt.isCorrected(*m_request, *explained))
            return explained;
        m_client.prepareCall(*m_request, call);
    }
}

void CS3UploadWay::requireWholeArrived(const CS3PartDigest& digest)
{
    const auto& headers = m_request->getResponseHeaderMap();
    const auto sent = static_cast<long long>(m_request->getUploadedBytes());
    if (sent < m_size)
        throw kx::CError("The store has answered when " + kx::toString(sent) + " of the " + kx::toString(m_size)
            + " bytes of '" + m_session->getPath().toString() + "' were sent.");
    const auto said = CS3BodyDigest::saidIn(headers, CS3Checksum::MD5);
    m_eTag = CS3ObjectInfo::fromChangeHeaders(headers).eTag;
    if (said && said->toUTF8() != digest.md5)
        throw kx::CError("What the store has of '" + m_session->getPath().toString() + "' as " + place()
            + " has the ETag " + m_eTag + ", and the file has the MD5 " + kx::String::fromUTF8(digest.md5) + ".");
}

/// Whether the object that is there is the one that was to be sent, by an attempt whose answer was lost.
bool CS3UploadWay::isOurs(const CS3PartDigest& digest)
{
    const CS3ObjectInfo info = head();
    m_eTag = info.eTag;
    return info.size == m_size && md5InETag(info.eTag) == digest.md5;
}

CS3ObjectInfo CS3UploadWay::head()
{
    CS3GetOptions options;
    options.customerKey = m_options.object.encryption.customerKey;
    return CS3Objects(&m_client, m_request.get()).head(m_bucketName, m_objectName, options);
}

void CS3UploadWay::requireFree()
{
    try {
        head();
    } catch (const kx::CError& error) {
        const ErrorKind kind = getErrorKind(error);
        if (kind == ErrorKind::NotFound)
            return;
        if (kind != ErrorKind::Denied && kind != ErrorKind::Refused)
            throw;
        throw kx::CError("It cannot be told whether there is " + place()
                + " already, which is not to be replaced: " + error.getMessage(),
            kx::String(), -1, kx::CProps(), error.clone());
    }
    throw kx::CError("There is " + place() + " already.");
}

void CS3UploadWay::requireSize()
{
    m_session->setState(FileState::Finishing);
    long long size = -1;
    try {
        size = head().size;
    } catch (const kx::CError& error) {
        if (getErrorKind(error) != ErrorKind::Denied)
            throw;
        kx::logInfo("The store does not let us look at " + place() + ": " + error.getMessage());
    }
    if (size >= 0 && size != m_size)
        throw kx::CError("The file '" + m_session->getPath().toString() + "' has " + kx::toString(m_size)
            + " bytes, and what the store has of it as " + place() + " has " + kx::toString(size) + ".");
}

/// The store has not replaced an object.
bool CS3UploadWay::isTaken(const kx::CError& error) const
{
    constexpr int preconditionFailed = 412;
    return !m_options.overwrite && getHTTPStatusCodeFromError(error) == preconditionFailed;
}

void CS3UploadWay::throwTaken(const kx::CError& cause, const char* end) const
{
    throw kx::CError("There is " + place() + " already" + kx::String::fromLatin1(end), kx::String(), -1, kx::CProps(),
        cause.clone());
}

kx::String CS3UploadWay::place() const
{
    return textOf(m_call);
}

} // namespace norla
