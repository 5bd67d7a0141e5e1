#pragma once

#include "kx/base/P.h"
#include "norla/pool/CTransfer.h"
#include "norla/pool/TTransferQueue.h"

#include <mutex>
#include <string>
#include <unordered_map>

namespace norla {

class CTransferWork;

/// All transfers of a pool that have not ended, and which of them go. Keeps them alive. Any thread.
class CTransferSchedule {
public:
    CTransferSchedule(int atOnce, int perHost);
    CTransferSchedule(const CTransferSchedule&) = delete;
    CTransferSchedule& operator=(const CTransferSchedule&) = delete;
    ~CTransferSchedule();

    /// @throws kx::CError after close(); std::bad_alloc. The transfer is not there then
    void add(CTransfer& transfer, const std::string& host);

    /// Tells the pool's threads to start as many as may run.
    void startNext() noexcept;

    /// One that runs makes room for others, until addAgain().
    void pause(CTransferWork& work);

    /// It waits once more. @param host as for add() @throws std::bad_alloc; it does not wait then
    void addAgain(CTransferWork& work, const std::string& host);

    /// It has ended. @return the reference that kept it
    kx::P<CTransfer> remove(CTransferWork& work) noexcept;

    /// Null when there is none of this request.
    kx::P<CTransfer> find(const CNetRequest& request) const;

    /// Asks for the end of all.
    void cancelAll() noexcept;

    /// Nothing is added any more.
    void close();

private:
    void leave(CTransferWork& work) noexcept;

    mutable std::mutex m_mutex;
    TTransferQueue<CTransferWork*> m_queue;
    std::unordered_map<const CNetRequest*, kx::P<CTransfer>> m_transfers;
    bool m_isClosed = false;
};

} // namespace norla
