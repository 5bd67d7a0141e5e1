// How a file gets into a store by parts, and which of them are there already.

#include "kx/log/log.h"
#include "norla/core/CCURLError.h"
#include "norla/core/errorKind.h"
#include "norla/files/CS3UploadWay.h"
#include "norla/s3/CS3Client.h"
#include "norla/s3/CS3Error.h"
#include "norla/s3/CS3SourceRange.h"
#include "norla/s3/CS3UploadEnum.h"
#include "norla/s3/multipartDocuments.h"
#include "norla/s3/uploadPartSize.h"

#include <algorithm>
#include <atomic>
#include <utility>
#include <vector>

namespace norla {

namespace {

constexpr size_t mostCandidates = 8; // uploads of one object whose parts are looked at; the newest ones
constexpr int mostListed = 1000;     // of one object; a store might go on for ever

/// The store has completed, aborted or forgotten it.
bool isUploadGone(const kx::CError& error)
{
    const auto* const explained = dynamic_cast<const CS3Error*>(&error);
    return explained && (explained->getS3Code() == "NoSuchUpload" || explained->getS3Code() == "NoSuchKey");
}

/// The store does not tell it: it does not let us look, or cannot.
bool isUntold(const kx::CError& error)
{
    const ErrorKind kind = getErrorKind(error);
    return kind == ErrorKind::Denied || kind == ErrorKind::Refused || kind == ErrorKind::Unknown;
}

/// Ends the upload on cancel() and pause(), as long as it lives.
class CWishes {
public:
    CWishes(IUploadSession& session, CS3ParallelUpload& upload)
        : m_session(session)
    {
        m_session.setWishListener([this, &upload] {
            m_isTold = true;
            upload.cancel();
        });
    }
    CWishes(const CWishes&) = delete;
    CWishes& operator=(const CWishes&) = delete;
    ~CWishes() { m_session.setWishListener({}); }

    bool isTold() const noexcept { return m_isTold; }

private:
    IUploadSession& m_session;
    std::atomic<bool> m_isTold = false;
};

} // namespace

void CS3UploadWay::sendParts()
{
    m_uploadId = m_options.uploadId;
    try {
        if (m_uploadId.isEmpty() && m_options.resume)
            m_uploadId = findUpload();
        m_isFound = !m_uploadId.isEmpty() && m_options.uploadId.isEmpty();
        do
            m_session->pauseIfWanted();
        while (!sendPartsOnce());
    } catch (...) { // of callbacks, anything
        if (!m_uploadId.isEmpty() && (!m_options.keepPart || m_session->hasChanged()))
            giveUp();
        throw;
    }
}

/// @return false when a pause has ended it, or it has to begin anew
bool CS3UploadWay::sendPartsOnce()
{
    m_session->tellAnew();
    CS3ParallelUpload upload(&m_client, m_request.get(), optionsOfParts());
    const CWishes wishes(*m_session, upload);
    try {
        m_eTag = upload.upload(&m_session->getSource(), m_bucketName, m_objectName);
        m_uploadId = kx::String();
        return true;
    } catch (const kx::CError& error) {
        if (m_isFound && isUploadGone(error)) {
            kx::logInfo("An upload of " + place() + " is gone, and begins anew: " + error.getMessage());
            m_uploadId = kx::String();
            m_isFound = false;
            m_session->setState(FileState::Running);
            return false;
        }
        m_uploadId = upload.getUploadId();
        if (wishes.isTold() && getErrorKind(error) == ErrorKind::Cancelled) {
            m_isFound = m_options.uploadId.isEmpty();
            return false; // cancelled: pauseIfWanted() throws
        }
        if (isTaken(error))
            throwTaken(error, ".");
        throw;
    } catch (...) { // of callbacks, anything
        m_uploadId = upload.getUploadId();
        throw;
    }
}

CS3ParallelUploadOptions CS3UploadWay::optionsOfParts()
{
    CS3ParallelUploadOptions options;
    options.multipart = m_multipart;
    options.partSize = m_options.partSize;
    options.atOnce = m_options.atOnce;
    options.memory = m_options.memory;
    options.retries = m_options.retries;
    options.partDeadline = m_options.partDeadline;
    options.uploadId = m_uploadId;
    options.keepFailed = true; // what is not to stay is given up here
    options.pool = m_options.pool;
    options.onStarted = [this](const kx::String& id) {
        m_uploadId = id;
        if (m_options.onStarted && std::exchange(m_startedId, id) != id)
            m_options.onStarted(id);
    };
    options.onFound = [this](long long bytes) { m_session->tellFound(bytes); };
    options.onProgress = [this](long long bytes, long long /*total*/) { m_session->tell(bytes); };
    options.beforeCompletion = [this] {
        m_session->requireUnchanged();
        m_session->setState(FileState::Finishing);
    };
    return options;
}

/// @return empty when there is none
kx::String CS3UploadWay::findUpload()
{
    std::vector<std::pair<kx::String, kx::String>> uploads; // when it was begun, id
    try {
        CS3UploadEnum all(&m_client, m_request.get(), m_bucketName, {.prefix = m_objectName});
        for (int i = 0; i < mostListed && all.next() && all.getCurrent()->key == m_objectName; ++i)
            uploads.emplace_back(all.getCurrent()->initiated, all.getCurrent()->uploadId);
    } catch (const kx::CError& error) {
        if (!isUntold(error))
            throw;
        kx::logInfo("The store does not tell which uploads there are of " + place() + ": " + error.getMessage());
        return {};
    }
    std::sort(uploads.rbegin(), uploads.rend());
    for (size_t i = 0; i < std::min(uploads.size(), mostCandidates); ++i) {
        if (isOfFile(uploads[i].second))
            return uploads[i].second;
    }
    return {};
}

/// Whether the store has parts of it as this file would have.
bool CS3UploadWay::isOfFile(const kx::String& uploadId)
{
    CS3MultipartUpload upload(&m_client, m_request.get(), m_bucketName, m_objectName, m_multipart);
    upload.attach(uploadId);
    kx::TArray<CS3UploadedPart> parts;
    try {
        parts = upload.listParts();
    } catch (const kx::CError& error) {
        if (isUntold(error))
            kx::logInfo("The store does not tell the parts of an upload of " + place() + ": " + error.getMessage());
        else if (!isUploadGone(error))
            throw;
    }
    if (parts.empty())
        return false;
    const long long partSize = uploadPartSize(m_size, m_options.partSize);
    for (const CS3UploadedPart& part : parts) {
        const long long start = (part.number - 1) * partSize;
        if (part.size <= 0 || part.size != std::min(partSize, m_size - start))
            return false;
    }
    const CS3UploadedPart& first = parts.front();
    const auto range = kx::newObj<CS3SourceRange>(
        kx::P<CNetRequest::IDataSource>(&m_session->getSource()), (first.number - 1) * partSize, first.size);
    return md5InETag(first.eTag) == CS3PartDigest::of(*range, first.size).md5;
}

/// Behind a failure, also behind a cancellation.
void CS3UploadWay::giveUp() noexcept
{
    constexpr int longest = 10; // seconds
    try {
        CS3Call call;
        call.method = "DELETE";
        call.bucketName = m_bucketName;
        call.objectName = m_objectName;
        call.parameters = {{"uploadId", m_uploadId}};
        m_client.prepareCall(*m_request, call);
        CTransfer::Options options;
        options.deadline = kx::CTimeSpan::fromSeconds(longest);
        const auto transfer = m_session->getPool().start(m_request.get(), options);
        transfer->wait();
        const kx::P<kx::CError> error = transfer->getError();
        if (error && !m_client.isNotFoundError(*error))
            error->throwClone();
        m_uploadId = kx::String();
    } catch (const std::exception& error) {
        kx::logError(error, "An upload by parts could not be aborted", kx::String());
    }
}

} // namespace norla
