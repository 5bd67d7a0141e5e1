#pragma once

#include "kx/base/CError.h"
#include "kx/base/P.h"
#include "norla/core/CRetries.h"
#include "norla/pool/CTransfer.h"
#include "norla/pool/CTransferPool.h"
#include "norla/s3/CS3Attempt.h"
#include "norla/s3/CS3Client.h"
#include "norla/s3/CS3ParallelUpload.h"
#include "norla/s3/CS3UploadSignals.h"

#include <map>
#include <memory>
#include <optional>

namespace norla {

/// One upload by several parts at once. Lives on the stack of CS3ParallelUpload::upload().
class CS3UploadRun {
public:
    CS3UploadRun(CS3Client& client, CNetRequest& request, const CS3ParallelUploadOptions& options,
        std::shared_ptr<CS3UploadSignals> signals, CNetRequest::IDataSource& source, const kx::String& bucketName,
        const kx::String& objectName);
    CS3UploadRun(const CS3UploadRun&) = delete;
    CS3UploadRun& operator=(const CS3UploadRun&) = delete;
    ~CS3UploadRun(); ///< cancels what is still being sent, and waits for that

    /// @return the object's ETag
    kx::String run();

    /// Gives the upload up, if there is one, unless it is to be kept. Reports what fails.
    void end() noexcept;

    const kx::String& getUploadId() const noexcept { return m_upload.getId(); }

private:
    using Clock = CS3UploadSignals::Clock;

    struct CPart {
        CPart(CS3Client& client, int partNumber, kx::P<CNetRequest::IDataSource> from, const CRetryPolicy& policy);

        int number;
        kx::P<CNetRequest::IDataSource> source;
        CS3PartDigest digest;
        kx::P<CNetRequest> request = kx::newObj<CNetRequest>();
        CS3Attempt attempt;
        CRetries retries;
        kx::P<CTransfer> transfer;                    // null while it pauses
        std::optional<Clock::time_point> nextAttempt; // while it pauses
    };

    void begin();
    void sendParts();
    void startNextPart();
    bool isThere(const CPart& part) const;
    void noteDone(const CPart& part, const kx::String& eTag);
    kx::P<CNetRequest::IDataSource> sourceOf(long long start, long long size) const;
    void startAttempt(CPart& part);
    void prepare(CPart& part);
    void send(CPart& part);
    void startDueAttempts();
    void takeEnd(CPart& part);
    kx::P<kx::CError> failureOf(const CPart& part) const;
    std::optional<Clock::time_point> nextMoment() const;
    void tellProgress();
    void stopParts() noexcept;
    void throwIfCancelled() const;
    kx::String complete();

    CS3Client& m_client;
    CNetRequest& m_request;
    const CS3ParallelUploadOptions& m_options;
    const std::shared_ptr<CS3UploadSignals> m_signals;
    const kx::P<CNetRequest::IDataSource> m_source;
    const long long m_size;
    const long long m_partSize;
    const bool m_isKept; // parts in memory
    const size_t m_atOnce;
    const int m_partCount;
    const kx::P<CTransferPool> m_pool;
    const kx::P<IExecutor> m_executor;
    CRetryPolicy m_policy;
    CS3MultipartUpload m_upload;
    std::map<int, CS3UploadedPart> m_there; // at the store, from an earlier upload
    kx::TArray<CS3UploadedPart> m_done;     // in no order
    std::map<int, std::unique_ptr<CPart>> m_parts;
    int m_nextPart = 1;
    long long m_doneBytes = 0;
    long long m_toldBytes = -1;
    Clock::time_point m_nextProgress;
};

} // namespace norla
