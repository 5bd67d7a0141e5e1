#pragma once

#include "kx/base/CBase.h"
#include "kx/text/String.h"
#include "norla/core/CNetRequest.h"
#include "norla/core/CRetryPolicy.h"
#include "norla/s3/CS3CopySource.h"
#include "norla/s3/CS3MultipartUpload.h"

#include <functional>

namespace norla {

class CS3Client;

/// How an object is copied on the store's side.
struct CS3ObjectCopyOptions {
    /// Headers of the copy ("Content-Type", "Cache-Control", "x-amz-meta-..."), in place of those of the source. Empty:
    /// those of the source. The other headers are sent as they are for an upload by parts.
    CS3MultipartOptions multipart = {};

    /// In bytes: what is larger is copied by parts. 0 to 5 GiB, which is what stores copy at once.
    long long threshold = 5LL << 30;

    /// In bytes, 5 MiB to 5 GiB. 0: 512 MiB, or as many whole MiB as it takes for no more than 10,000 parts.
    long long partSize = 0;

    /// How often is tried again what the store reports behind the status of a success.
    CRetryPolicy retries = CRetryPolicy();

    /// Called behind each part. What it throws ends the copy.
    std::function<void(long long bytes, long long total)> onProgress = {};
};

/// Copies objects of any size within a store, also between buckets. One copy after the other; used by one thread at a
/// time. For a client of an endpoint, as CS3MultipartUpload.
class KX_EXPORT CS3ObjectCopy : public kx::CBase {
public:
    /// @param client, request not null, kept by the caller at least as long as this object
    /// @throws kx::CInvalidArgError naming the option that makes no sense
    CS3ObjectCopy(CS3Client* client, CNetRequest* request, const CS3ObjectCopyOptions& options = {});
    CS3ObjectCopy(const CS3ObjectCopy&) = delete;
    CS3ObjectCopy& operator=(const CS3ObjectCopy&) = delete;
    ~CS3ObjectCopy() override;

    /// Blocks until the copy is there. Tags and the access list of the source are not copied by parts. A source that
    /// becomes another one meanwhile is an error (status 412, or kx::CError "The object ... is another one"). An upload
    /// by parts that fails is aborted.
    /// @return the ETag of the copy
    /// @throws as CS3MultipartUpload; kx::CError when the store does not tell the size of the source
    kx::String copy(const CS3CopySource& source, const kx::String& bucketName, const kx::String& objectName);

private:
    kx::String copyAtOnce(const CS3CopySource& source, const kx::String& bucketName, const kx::String& objectName);
    kx::String copyByParts(const CS3CopySource& source, long long size, CS3MultipartUpload& upload);

    CS3Client* const m_client;
    CNetRequest* const m_request;
    const CS3ObjectCopyOptions m_options;
};

} // namespace norla
