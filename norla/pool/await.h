#pragma once

#include "norla/pool/CTransferPool.h"

#include <coroutine>
#include <memory>

namespace norla {

/// What a coroutine waits with in `co_await pool->run(request)`. The co_await starts the transfer, and throws what
/// CTransferPool::start() throws. The coroutine goes on where the callbacks of the transfer are called (by an executor,
/// or else on the pool's thread), behind its onDone: with the transfer, or with the error that it has ended with.
///
/// A coroutine that is destroyed meanwhile cancels the transfer: nobody goes on then, and none of the callbacks is
/// called any more. It is destroyed where it would go on, or while nothing can make it go on: on the thread of its
/// executor; without one, in a callback on the pool's thread. The transfer itself may end at any moment.
/// The pool uses the request for a moment longer: what that has only borrowed (CNetRequest::setSendDataBuffer()) must
/// not go with the coroutine.
///
/// The pool itself has to be there until the co_await. An executor that drops what it was given leaves the coroutine
/// waiting.
class KX_EXPORT CTransferAwaiter {
public:
    CTransferAwaiter(const CTransferAwaiter&) = delete;
    CTransferAwaiter& operator=(const CTransferAwaiter&) = delete;
    ~CTransferAwaiter();

    static bool await_ready() noexcept { return false; }
    void await_suspend(std::coroutine_handle<> coroutine);
    kx::P<CTransfer> await_resume() const;

private:
    friend class CTransferPool;
    class CState;

    CTransferAwaiter(CTransferPool& pool, CNetRequest* request, const CTransfer::Options& options);

    CTransferPool& m_pool;
    const kx::P<CNetRequest> m_request;
    const CTransfer::Options m_options;
    std::shared_ptr<CState> m_state; // null before the start
};

} // namespace norla
