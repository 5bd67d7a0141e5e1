#pragma once

#include "kx/base/CBase.h"
#include "kx/base/P.h"
#include "kx/text/String.h"
#include "kx/time/CTimeSpan.h"
#include "norla/core/CNetRequest.h"
#include "norla/core/CRetryPolicy.h"
#include "norla/pool/CTransferPool.h"
#include "norla/s3/CS3MultipartUpload.h"

#include <functional>
#include <memory>

namespace norla {

class CS3Client;
class CS3UploadSignals;

/// How an object is uploaded by parts, several at once.
struct CS3ParallelUploadOptions {
    /// Headers of the object and of its parts.
    CS3MultipartOptions multipart = {};

    /// In bytes, of all parts but the last: 5 MiB to 5 GiB. 0: 8 MiB, or as many whole MiB as it takes for no more than
    /// 10,000 parts.
    long long partSize = 0;

    /// Parts that are sent at once, 1 or more; fewer where `memory` has no room for them.
    int atOnce = 4;

    /// In bytes, what the parts that are being sent may take. A part is read when it starts and kept until it has
    /// arrived. Where not even one has room, one at a time is sent without being kept, which reads the source twice.
    long long memory = 64LL << 20;

    /// After which failures a part is sent again, with a new signature. Where it has no word of its own, also the
    /// service's codes of CS3Client::performRequest() count as transient.
    CRetryPolicy retries = CRetryPolicy();

    /// Of each attempt of each part. Zero and the infinite span: none beside the limits of each request.
    kx::CTimeSpan partDeadline = {};

    /// An upload that was begun before, with the same part size: parts that the store has are not sent again when their
    /// size and MD5 are those of the source. Empty: a new upload. One that the store does not have any more (completed,
    /// aborted, expired) is a CS3Error "NoSuchUpload", of some stores "NoSuchKey": begin a new one then. CS3UploadEnum
    /// finds those that a bucket has.
    kx::String uploadId = {};

    /// Whether a failed or cancelled upload stays at the store, to be resumed; else it is aborted. One that was resumed
    /// (uploadId) stays in any case: CS3MultipartUpload::abort() gives it up.
    bool keepFailed = false;

    /// Where the parts are sent; null: in a pool of its own. A reference is kept.
    kx::P<CTransferPool> pool = {};

    /// Called once the upload has its id, on the thread of upload(). What it throws ends the upload.
    std::function<void(const kx::String& uploadId)> onStarted = {};

    /// Called on the thread of upload(), ten times a second at most and once behind the last part. Never goes back.
    /// What it throws ends the upload.
    std::function<void(long long bytes, long long total)> onProgress = {};

    /// Called with the size of each part that the store has already and that is not sent, on the thread of upload().
    /// What it throws ends the upload.
    std::function<void(long long bytes)> onFound = {};

    /// Called behind the last part, before the store makes the object of them, on the thread of upload(). What it
    /// throws ends the upload, and there is no object.
    std::function<void()> beforeCompletion = {};
};

/// Uploads a file or a source of any size by parts, several at once and each as often as it takes. One upload after the
/// other; used by one thread at a time but for cancel(). For a client of an endpoint, as CS3MultipartUpload.
class KX_EXPORT CS3ParallelUpload : public kx::CBase {
public:
    /// @param client, request not null, kept by the caller at least as long as this object; the request serves what
    /// begins and ends the upload, the parts have requests of their own
    /// @throws kx::CInvalidArgError naming the option that makes no sense
    CS3ParallelUpload(CS3Client* client, CNetRequest* request, const CS3ParallelUploadOptions& options = {});
    CS3ParallelUpload(const CS3ParallelUpload&) = delete;
    CS3ParallelUpload& operator=(const CS3ParallelUpload&) = delete;
    ~CS3ParallelUpload() override;

    /// Blocks until the object is there. Not in a callback on a pool's thread.
    /// @return its ETag
    /// @throws as CS3MultipartUpload; what the source throws; the error of the part that failed for good, behind which
    /// the others are cancelled; CCURLError of the kind Cancelled; kx::CInvalidArgError for a file or source of unknown
    /// size, or with more parts than 10,000
    kx::String upload(const CNetRequest::Path& path, const kx::String& bucketName, const kx::String& objectName);

    /// @param source not null; read on the thread of the call, or where `memory` has no room on the pool's
    kx::String upload(CNetRequest::IDataSource* source, const kx::String& bucketName, const kx::String& objectName);

    /// Ends the upload that runs, and those that would come. Any thread; returns at once. What begins and what
    /// completes an upload is not interrupted: behind it the upload ends, or has succeeded.
    void cancel();

    /// Of the last upload when it stays at the store; else empty.
    const kx::String& getUploadId() const noexcept { return m_uploadId; }

private:
    CS3Client* const m_client;
    CNetRequest* const m_request;
    const CS3ParallelUploadOptions m_options;
    const std::shared_ptr<CS3UploadSignals> m_signals;
    kx::String m_uploadId;
};

} // namespace norla
