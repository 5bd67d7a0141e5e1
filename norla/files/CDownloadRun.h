#pragma once

#include "kx/base/P.h"
#include "norla/core/CRetries.h"
#include "norla/files/CByteRanges.h"
#include "norla/files/CDownloadSink.h"
#include "norla/files/CFileDownload.h"
#include "norla/files/CFileSignals.h"
#include "norla/files/CPartDigests.h"
#include "norla/files/CPartFile.h"
#include "norla/files/CSilenceWatch.h"
#include "norla/files/IDownloadOrigin.h"
#include "norla/pool/CTransfer.h"

#include <map>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

namespace norla {

/// One download, from what an earlier one has left to the whole file. Lives on the stack of CFileDownload::run().
class CDownloadRun {
public:
    CDownloadRun(IDownloadOrigin& origin, const CNetRequest::Path& path, const CFileDownloadOptions& options,
        std::shared_ptr<CFileSignals> signals);
    CDownloadRun(const CDownloadRun&) = delete;
    CDownloadRun& operator=(const CDownloadRun&) = delete;
    ~CDownloadRun(); ///< cancels what is under way, and waits for that

    /// @throws as CFileTransfer::run(); what is to be kept was written to the record then
    void run();

    kx::String getSuggestedName() const;

private:
    using Clock = CFileSignals::Clock;

    struct CConnection {
        CConnection(int connectionNumber, kx::P<CNetRequest> itsRequest, CPartFile& part, const CRetryPolicy& policy);

        int number;
        kx::P<CNetRequest> request;
        kx::P<CDownloadSink> sink;
        CRetries retries;
        kx::P<CTransfer> transfer;                    // null while it pauses
        std::optional<Clock::time_point> nextAttempt; // while it pauses
        CDownloadSink::CTask task;
        bool hasWholeLimit = false; // of speed
        CSilenceWatch silence;
    };

    // What is fetched next, by whom, and what has come of it: CDownloadRun.cpp.
    void takeOlderPart();
    bool isUsable(const CDownloadRecord& older) const;
    bool isWhole() const;
    bool canGoOn() const;
    void step();
    void pause();
    void openConnections();
    void shareSpeed();
    int getMostConnections() const;
    std::optional<CDownloadSink::CTask> nextTask();
    std::optional<CDownloadSink::CTask> nextGap();
    CDownloadSink::CTask taskFor(const CByteRanges::CRange& gap) const;
    long long overlapAt(long long position) const;
    void startAttempt(CConnection& connection);
    void prepare(CConnection& connection);
    void learn();
    void learnFrom(const CDownloadSink::CStatus& status);
    void takeEnd(CConnection& connection);
    void takeFailure(CConnection& connection, const kx::CError& failure, bool hasMoved);
    void startAnew();

    // What is kept, told and made of it: CDownloadRunFile.cpp.
    void throwIfCancelled() const;
    void stopConnections() noexcept;
    void forget();
    void keepOrRemove() noexcept;
    CByteRanges arrivedBytes() const;
    long long settledSize() const;
    void checkpoint();
    void writeRecord();
    Clock::time_point nextMoment() const;
    void tellProgress(bool isLast);
    void takeName(CNetRequest& request);
    void requireExpectedSize();
    std::string_view blockAt(long long& position, std::vector<unsigned char>& block) const;
    void requireDigests();
    void requireAsOriginSays();
    void finish();

    IDownloadOrigin& m_origin;
    const CFileDownloadOptions& m_options;
    const std::shared_ptr<CFileSignals> m_signals;
    CPartDigests m_digests;
    CPartFile m_part;
    const kx::P<CTransferPool> m_pool;
    const kx::P<IExecutor> m_executor;
    CDownloadRecord m_record;  // its identity and place; the rest is filled when it is written
    std::string m_defaultName; // a URL's path
    bool m_isOurs = false;     // the part: what an earlier download has left was taken or thrown away
    bool m_isWrong = false;    // what it holds
    kx::P<CNetRequest> m_spareRequest;
    CKnownResource m_known;
    CByteRanges m_arrived; // but for what connections that are open have brought
    std::map<int, std::unique_ptr<CConnection>> m_connections;
    int m_nextNumber = 0;
    int m_mostSegments;
    int m_restarts = 0;
    long long m_recordedSize = 0;
    Clock::time_point m_nextCheckpoint;
    Clock::time_point m_nextProgress;
    kx::String m_lastName; // that the server gave, in a header
};

} // namespace norla
