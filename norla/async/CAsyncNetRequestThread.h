#pragma once

#include "kx/base/P.h"
#include "kx/containers/TArray.h"
#include "kx/threads/CMutex.h"
#include "kx/threads/CThread.h"
#include "norla/async/IAsyncNetRequestManager.h"

#include <atomic>

namespace norla {

class CAsyncNetRequestManager;
class CNetRequest;

/// A thread on which transfers run. After start() it takes requests from any thread; libcurl's work and every callback
/// of the requests (sinks, sources, done listeners) happen on it, one after the other: what blocks there, or in libcurl
/// (see CAsyncNetRequestManager), holds up all.
///
/// Started before or after the first addRequest(). When it is stopped or destroyed, what still runs is withdrawn, and
/// what it has not taken up yet is never started: neither is told its end. The last reference to it is not dropped on
/// its own thread.
///
/// Nothing is caught: an error of a done listener, of the progress handler, of a source's seek() at the start of a
/// transfer or of libcurl as a whole is logged and ends the thread, which withdraws everything (see isAlive()).
///
/// A derived class that overrides a hook calls stop(true) in its own destructor.
class KX_EXPORT CAsyncNetRequestThread : public kx::CThread, public virtual IAsyncNetRequestManager {
public:
    class IProgressHandler;

    /// @param progressHandler null for none; a reference is kept
    explicit CAsyncNetRequestThread(IProgressHandler* progressHandler = nullptr);
    CAsyncNetRequestThread(const CAsyncNetRequestThread&) = delete;
    CAsyncNetRequestThread& operator=(const CAsyncNetRequestThread&) = delete;

    /// Stops the thread and waits for its end.
    ~CAsyncNetRequestThread() override;

    /// Hands the request to the thread and returns at once. Any thread. The transfer starts within about 100 ms; of
    /// requests added together the last one is the first. Until then a request that has run before still shows its last
    /// result: look at CNetRequest::isAsyncDone() only after resetting it. One that runs already goes on, and the log
    /// says that it was added twice. One that waits for its start is not performed. The thread calls the sources of
    /// requests while it takes these up, with the same lock held that this takes: hold none that a source takes.
    /// @throws kx::CInvalidArgError when the request is null, or waits for its start already
    void addRequest(CNetRequest* request) override;

    /// Withdraws the request, also one that was just added. Any thread. Blocks until the thread has done so, about 100
    /// ms or as long as the callbacks of the requests take: hold no lock that they take. On the thread itself (in a
    /// callback) and while it is not running, this returns false at once, and the request is withdrawn in the thread's
    /// next pass; added again meanwhile, it is started after that.
    /// @param request null withdraws all
    /// @return whether the request was running and is withdrawn, always true for all; false also when the thread ends
    /// meanwhile
    bool removeRequest(CNetRequest* request) override;

    /// Withdraws all requests, as removeRequest(nullptr).
    bool removeAllRequests();

protected:
    /// Takes up the added requests, withdraws the removed ones, waits for events, handles them and tells the progress
    /// handler, until the thread is to stop.
    void runImpl() override;

    /// Called on the thread when it is to stop, while the requests are still running.
    virtual void onThreadExit();

    /// Called on the thread in each pass; calls the manager's handleEvents(nullptr). An override does so too, perhaps
    /// with an array to learn which requests have ended.
    virtual void handleManagerEvents(CAsyncNetRequestManager& manager);

    /// Withdraws the requests whose removal was asked for, and tells those who wait.
    void processRemoveRequests(CAsyncNetRequestManager& manager);

private:
    class CRemoveRequest;
    class CPlaceInQueue;
    class CTakingUp;
    struct CAddition {
        kx::P<CNetRequest> request;
        unsigned long long order;
        kx::P<CPlaceInQueue> place; // null while the thread takes up nothing
    };
    using RemovalArray = kx::TArray<kx::P<CRemoveRequest>>;

    void startPendingRequests(CAsyncNetRequestManager& manager);
    static void startUnlessRunning(CAsyncNetRequestManager& manager, CNetRequest& request);
    void forgetAddition(unsigned long long order);
    void dropAdditionsBefore(const RemovalArray& removals);
    bool isPending(const CNetRequest& request);
    RemovalArray pendingRemovals();
    RemovalArray askedRemovals();
    void forgetAsked(const RemovalArray& removals);

    kx::CMutex m_addMutex; // guards the pending additions; never held together with the other one
    kx::TArray<CAddition> m_pendingAdditions;
    bool m_takesUp = false;   // guarded by the same
    kx::CMutex m_removeMutex; // guards the pending removals
    RemovalArray m_pendingRemovals;
    kx::CMutex m_askedMutex;      // guards the next one, for moments: nothing of others is called meanwhile
    RemovalArray m_askedRemovals; // the same, until they are carried out, for who must not wait for that
    std::atomic<unsigned long long> m_order{0}; // of additions and removals, in which they were asked for
    const kx::P<IProgressHandler> m_progressHandler;
};

/// Told regularly by the thread, to look at its requests without a timer of its own.
class KX_EXPORT CAsyncNetRequestThread::IProgressHandler : public virtual kx::IBase {
public:
    /// Called on the thread after each pass: about ten times a second, and more often while data moves. Throwing ends
    /// the thread.
    virtual void onProgress() = 0;
};

} // namespace norla
