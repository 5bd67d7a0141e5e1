#pragma once

#include "kx/base/P.h"
#include "norla/core/CRetries.h"
#include "norla/files/CFileSignals.h"
#include "norla/files/CFileUpload.h"
#include "norla/files/CSilenceWatch.h"
#include "norla/files/CUploadSource.h"
#include "norla/files/IUploadSession.h"
#include "norla/files/IUploadWay.h"
#include "norla/files/uploadPlace.h"
#include "norla/pool/CTransfer.h"

#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>

namespace norla {

/// One upload. Lives on the stack of CFileUpload::run().
class CUploadRun : private IUploadSession {
public:
    CUploadRun(const CFileUpload::Prepare& prepare, const CNetRequest::Path& path, const CFileUploadOptions& options,
        std::shared_ptr<CFileSignals> signals);
    CUploadRun(const CUploadRun&) = delete;
    CUploadRun& operator=(const CUploadRun&) = delete;
    ~CUploadRun() override;

    /// @throws as CFileTransfer::run()
    void run();

    /// The same for a file that is not sent by one request to an URL.
    void runBy(IUploadWay& way);

private:
    using Clock = CFileSignals::Clock;
    using Setup = std::function<void(CNetRequest&)>;

    // One request, and what is told meanwhile.
    kx::P<kx::CError> attempt(const Setup& setup, bool isBody);
    kx::P<kx::CError> perform(CNetRequest& request, bool isBody) override;
    void await(CTransfer& transfer, bool isBody);
    bool mayInterrupt() const;
    kx::P<kx::CError> ask(const Setup& setup);
    void waitOrPause(const kx::CTimeSpan& pause) override;
    void pauseIfWanted() override;
    void tellProgress(bool isLast);
    void throwIfCancelled() const;

    // HTTP, and what is the same for all: CUploadRun.cpp.
    void sendOverHTTP();
    void prepareBody(CNetRequest& request);
    void prepareHTTP(CNetRequest& request);
    void requireAllSent();
    void requireSizeOverHTTP();
    [[noreturn]] void throwOtherSize(long long size) const;

    // For a way: CUploadRun.cpp.
    CNetRequest::IDataSource& getSource() override { return *m_source; }
    const CNetRequest::Path& getPath() override { return m_source->getPath(); }
    CTransferPool& getPool() override { return *m_pool; }
    bool isInterrupted() override { return m_isInterrupted; }
    void setWishListener(std::function<void()> listener) override;
    void requireUnchanged() override { m_source->requireUnchanged(); }
    bool hasChanged() override { return m_source->hasChanged(); }
    void setState(FileState state) override { m_signals->setState(state); }
    void tellAnew() override { m_signals->setStart(0); }
    void tellFound(long long bytes) override;
    void tell(long long done) override;

    struct CRemoteFile {
        bool isKnown = false; // whether it is there
        bool isThere = false;
        std::optional<long long> size = {};
    };

    // FTP and SFTP: CUploadRunFile.cpp.
    void sendAsFile(const std::string& url);
    void sendAllBytes();
    void sendBytes();
    long long partThere(bool mayGoOn);
    bool isSameAtServer(long long start, long long count);
    void prepareFile(CNetRequest& request, long long start);
    CRemoteFile find(const std::string& url);
    void requireFree();
    void requireSize(const CRemoteFile& file);
    void giveName();
    void prepareRename(CNetRequest& request);
    void prepareCommands(CNetRequest& request, std::initializer_list<std::string> lines) const;
    void removePart() noexcept;

    const CFileUpload::Prepare& m_prepare;
    const CFileUploadOptions& m_options;
    const std::shared_ptr<CFileSignals> m_signals;
    const kx::P<CUploadSource> m_source;
    const long long m_size;
    const kx::P<CTransferPool> m_pool;
    const kx::P<IExecutor> m_executor;
    const kx::P<CNetRequest> m_request = kx::newObj<CNetRequest>();
    CSilenceWatch m_silence;
    kx::String m_place;         // at the server, without secrets
    CUploadPlace m_file;        // over FTP and SFTP
    bool m_isPartThere = false; // under the temporary name
    bool m_isOurs = false;      // what is there under the temporary name
    bool m_isWrong = false;     // the same
    bool m_mayAppend = true;
    bool m_hasAppended = false;   // the last attempt
    bool m_isInterrupted = false; // the last attempt, by a pause
    Clock::time_point m_nextProgress;
};

} // namespace norla
