#pragma once

#include "norla/pool/CTransferLanes.h"
#include "norla/pool/CTransferWork.h"

#include <memory>
#include <unordered_map>

namespace norla {

class CTransferSchedule;

/// Does the transfers that come into its inbox, on the thread that runs it: waits for what happens to sockets, for
/// time, and for what others ask, and for nothing else.
class CTransferLoop {
public:
    /// @throws kx::CError when the system has no descriptor to give; as CGlobalInit::get()
    CTransferLoop(std::shared_ptr<CTransferSchedule> schedule, long idleConnections);
    CTransferLoop(const CTransferLoop&) = delete;
    CTransferLoop& operator=(const CTransferLoop&) = delete;

    const std::shared_ptr<CLoopInbox>& getInbox() const noexcept { return m_inbox; }

    /// Until the inbox is asked to stop, and all that it was asked before is done. All transfers are asked to end
    /// before.
    void run() noexcept;

    /// While another thread waits for the end of run(): see CCallWatch. Any thread.
    void endLongCalls() noexcept { m_lanes.endLongCalls(); }

    /// In a child process: what it shares with its parent stays untouched when it goes.
    void forget() noexcept { m_lanes.forget(); }

private:
    using CMoment = CTransferWork::CMoment;

    void takeFromInbox();
    void actOnTime();
    void readEnds();
    void failAll(CURLMcode reason) noexcept;

    void answer(CTransferWork& work, unsigned int asked);
    void start(CTransferWork& work);
    void withdraw(CTransferWork& work) noexcept;
    void onTime(CTransferWork& work, CMoment now);
    void look(CTransferWork& work, CMoment now);
    void expire(CTransferWork& work, const kx::CTimeSpan& limit, const char* what);
    void goOn(CTransferWork& work);
    void endBy(CTransferWork& work, TransferState state) noexcept;
    void endAttempt(CTransferWork& work, CURLcode result) noexcept;
    void succeed(CTransferWork& work) noexcept;
    static std::optional<kx::CTimeSpan> recordFailure(CTransferWork& work, const kx::CError& error) noexcept;
    static void recordAttempts(CTransferWork& work) noexcept;
    bool pause(CTransferWork& work, const kx::CError& error) noexcept;
    void makeRoom(CTransferWork& work) noexcept;
    kx::P<kx::CError> record(CTransferWork& work, CURLcode result) noexcept;
    void end(CTransferWork& work, TransferState state, kx::P<kx::CError> error) noexcept;
    void setTimer(CTransferWork& work);

    const std::shared_ptr<CTransferSchedule> m_schedule;
    const std::shared_ptr<CLoopInbox> m_inbox = std::make_shared<CLoopInbox>();
    const kx::P<kx::CError> m_outOfMemory = kx::newObj<kx::CError>("Out of memory."); // when there is none for another
    CTransferLanes m_lanes;
    std::unordered_map<const CURL*, CTransferWork*> m_running; // those in a lane
    TTimerQueue<CTransferWork> m_timers;
};

} // namespace norla
