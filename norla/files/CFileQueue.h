#pragma once

#include "kx/base/CBase.h"
#include "kx/base/P.h"
#include "kx/time/CTimeSpan.h"
#include "norla/files/CFileTransfer.h"
#include "norla/pool/IExecutor.h"

#include <functional>
#include <memory>
#include <optional>

namespace norla {

class CFileQueueWork;

/// How a queue of files runs. Fields are named in the order in which they stand here.
struct CFileQueueOptions {
    /// Files at once, 1 to 256, each on a thread of its own while it runs; the others wait in the order in which they
    /// were added.
    int atOnce = 4;

    /// Called once for each file when it has ended, however it did: getState() and getError() of the file say it. What
    /// it throws is logged. It may add files, such as another try of this one, which
    /// is another object.
    std::function<void(CFileTransfer& file)> onEnd = {};

    /// Where onEnd is called; null: on the thread on which the file ran, never two at once.
    kx::P<IExecutor> executor = {};
};

/// Where the files of a queue are, and their bytes all together. A value.
struct CFileQueueSummary {
    int waiting = 0;
    int running = 0; ///< paused ones among them
    int succeeded = 0;
    int failed = 0;
    int cancelled = 0;

    /// Of the files that have succeeded or are running, in bytes, as in CFileProgress. The total is empty while a file
    /// waits or the size of one is not known.
    long long doneBytes = 0;
    std::optional<long long> totalBytes = {};

    double bytesPerSecond = 0; ///< of the last five seconds

    /// In seconds, at that rate. Empty while the total is not known or nothing moves.
    std::optional<double> secondsLeft = {};
};

/// Runs many downloads and uploads of files, some at once, and tells how they fare together:
///
///     const auto pool = kx::newObj<norla::CTransferPool>();
///     const auto queue = kx::newObj<norla::CFileQueue>();
///     for (const auto& [url, path] : files)
///         queue->add(kx::newObj<norla::CFileDownload>(url, path, norla::CFileDownloadOptions{.pool = pool}).get());
///     while (!queue->waitFor(kx::CTimeSpan::fromSeconds(1)))
///         show(queue->getSummary());
///
/// Files of one queue best share a pool: connections are used again, and the pool's limits hold for all of them.
/// Any thread may use any operation; waiting in a callback of the queue's would never end.
class KX_EXPORT CFileQueue : public kx::CBase {
public:
    using Options = CFileQueueOptions;

    /// @throws kx::CInvalidArgError naming the option that makes no sense
    explicit CFileQueue(const Options& options = {});
    CFileQueue(const CFileQueue&) = delete;
    CFileQueue& operator=(const CFileQueue&) = delete;

    /// As cancel(), and waits until nothing runs any more. Not in onEnd.
    ~CFileQueue() override;

    /// Runs it when its turn comes; also while others run, behind cancel(), and when everything had ended.
    /// @param file not null, and not run by anybody else; a reference is kept until its end, so that it does not stand
    /// on the stack
    /// @throws kx::CInvalidArgError for null, and for one that is here or has run already: what is to be tried again is
    /// another object; kx::CError when the system has no thread to give, and in a child process (fork)
    void add(CFileTransfer* file);

    /// Cancels the files that wait and those that run.
    void cancel();

    /// Begins no file and pauses those that run, until resume(), which also lets those go on that were paused alone.
    void pause();
    void resume();

    /// Blocks until every file that was added has ended, and onEnd was called for it or handed to the executor. Behind
    /// pause() that may need resume().
    /// @throws kx::CError in a child process (fork), where nothing would end
    void wait();

    /// The same, for so long at the most. @return whether everything has ended
    [[nodiscard]] bool waitFor(const kx::CTimeSpan& time);

    /// Files that have ended are counted from the making of the queue on.
    CFileQueueSummary getSummary() const;

private:
    std::unique_ptr<CFileQueueWork> m_work;
};

} // namespace norla
