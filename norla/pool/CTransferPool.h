#pragma once

#include "kx/base/CBase.h"
#include "kx/base/P.h"
#include "norla/async/IAsyncNetRequestManager.h"
#include "norla/pool/CTransfer.h"

#include <memory>

namespace norla {

class CTransferAwaiter;

/// Runs transfers in the background, thousands of them if need be, on a thread of its own (or several), over libcurl's
/// event interface. An idle pool sleeps; a start is noticed at once; what a transfer costs does not grow with their
/// number. Any thread may use any operation, also within callbacks.
///
/// Sinks, sources and done listeners of the requests are called on the pool's thread, where everything that takes long
/// holds up others; the callbacks of the options go to an executor.
///
/// A request belongs to the pool from its start to its end, and is left alone meanwhile. Every start gets exactly one
/// end.
///
/// A child process (fork(2)) uses neither the pool nor its transfers: it may only let them go, which leaves the
/// parent's connections alone.
class KX_EXPORT CTransferPool : public kx::CBase, public virtual IAsyncNetRequestManager {
public:
    /// How much a pool does at once. A value. Fields are named in the order in which they stand here.
    struct Options {
        /// Each with connections of its own; transfers to one host stay together. More than one is of use where a
        /// single processor cannot keep up, with TLS at gigabits. At least 1.
        int threads = 1;

        /// Transfers at once, in all threads together; the others wait. 0: 256, or fewer where the process may not have
        /// as many descriptors. Where it is set to more than these, some transfers fail, and their errors say why.
        int atOnce = 0;

        /// The same for each host (scheme, name and port of the URL). 0: three quarters of all where atOnce is 0 as
        /// well, so that one slow host leaves room for the others, or else as many as atOnce.
        int perHost = 0;

        /// Connections that stay open when nobody uses them, in each thread; those that a host needed beyond 128 at
        /// once stay five seconds more. 0: 256, or fewer where the process may not have as many descriptors.
        int idleConnections = 0;

        /// Where the callbacks of the transfers are called, unless their own options say; null: on the pool's thread.
        kx::P<IExecutor> executor = {};
    };

    /// @throws kx::CInvalidArgError naming the option that makes no sense; kx::CError when the system has no thread or
    /// descriptor to give; as CGlobalInit::get()
    CTransferPool();
    explicit CTransferPool(const Options& options);
    CTransferPool(const CTransferPool&) = delete;
    CTransferPool& operator=(const CTransferPool&) = delete;

    /// As stop(). The last reference may go on a thread of the pool's, in a callback: that waits for its other threads
    /// alone.
    ~CTransferPool() override;

    /// Hands a request over; returns at once. The attempt begins when there is room.
    /// @param request not null, and not running here or elsewhere; a reference is kept until the end
    /// @throws kx::CInvalidArgError for a request or an option that makes no sense; CCURLError "curlm"
    /// CURLM_ADDED_ALREADY when the request runs already; kx::CError after stop(). Nothing was started then, and
    /// nobody is told
    kx::P<CTransfer> start(CNetRequest* request, const CTransfer::Options& options = {});

    /// `co_await pool->run(request)` in a coroutine: starts it, and goes on with the transfer after its success, or
    /// with the error. Needs "norla/pool/await.h", which says more. Options stand in a variable of their own: what is
    /// made in braces inside a co_await g++ 12 destroys twice.
    [[nodiscard]] CTransferAwaiter run(CNetRequest* request);
    [[nodiscard]] CTransferAwaiter run(CNetRequest* request, const CTransfer::Options& options);
    CTransferAwaiter run(CNetRequest* request, CTransfer::Options&& options) = delete;

    /// start() with nothing to be told: its done signal and its done listener tell the end.
    void addRequest(CNetRequest* request) override;

    /// Cancels it without an end for the request: neither its done signal nor its done listener tells anything. The end
    /// of the transfer that start() has given is told, as every one. Blocks until then; on the pool's own thread, in a
    /// callback, it does not.
    /// @return whether it was there; false also when it has just ended by itself
    bool removeRequest(CNetRequest* request) override;

    /// Cancels all that is there; all that are started later are not concerned. Returns at once.
    void cancelAll();

    /// Cancels all, tells their ends, and waits for the threads' end: a quarter of a second at most, whatever servers
    /// do, beside what callbacks take. Afterwards nothing of the pool calls anybody; what waits in an executor is that
    /// one's matter. In a callback on a thread of the pool it returns at once.
    void stop();

private:
    class CImpl;
    const std::shared_ptr<CImpl> m_impl;
};

} // namespace norla
