#pragma once

#include "norla/pool/CCallWatch.h"
#include "norla/pool/CEventMulti.h"
#include "norla/pool/CSocketEvents.h"
#include "norla/pool/TTimerQueue.h"

#include <array>
#include <memory>
#include <optional>
#include <vector>

namespace norla {

/// The multi handles of one thread, which waits for all of them together. libcurl looks for a free connection among
/// all those to a host, one after the other: of many transfers to one host each lane has so few that the search costs
/// nothing. Used by one thread at a time; callbacks of the requests come within act().
class CTransferLanes {
public:
    using CMoment = CEventMulti::CMoment;

    /// How many transfers to one host a lane has.
    static constexpr int width = 128;

    /// @param wakeDescriptor ends a wait() when it is readable
    /// @param idleConnections that stay open; lanes beside the first one, which have no more than that and no more
    /// than their width, close theirs five seconds after the last transfer
    /// @throws kx::CError when the system has no descriptor to give; as CGlobalInit::get()
    CTransferLanes(int wakeDescriptor, long idleConnections);
    CTransferLanes(const CTransferLanes&) = delete;
    CTransferLanes& operator=(const CTransferLanes&) = delete;
    ~CTransferLanes();

    /// The transfer begins, with the next act(). @param lane from 0 on
    /// @throws CCURLError when libcurl refuses; as CGlobalInit::get()
    void add(CNetRequest& request, size_t lane);

    /// The transfer has ended. @param lane as for add()
    void remove(CNetRequest& request, size_t lane) noexcept;

    /// The transfer stops where it is. @param lane as for add()
    void withdraw(CNetRequest& request, size_t lane) noexcept;

    /// A transfer that has ended begins anew. @param lane as for add() @return whether libcurl takes it
    bool addAgain(CNetRequest& request, size_t lane) noexcept;

    /// Blocks until there is something to do. @param moment at most until then; empty: no limit
    void wait(std::optional<CMoment> moment) noexcept;

    /// Whether something that has happened was not acted on yet.
    bool hasEvents() const noexcept { return m_events.hasMore(); }

    /// Lets the transfers go on for which there is something to do: by one event, so that the others who wait, for an
    /// end or a start, do not wait for all that servers have to say.
    /// @return what libcurl as a whole fails with
    CURLMcode act() noexcept;

    /// @return whether a transfer has ended, by the last act(), that was not told before
    bool takeEnd(const CURL*& handle, CURLcode& result) noexcept;

    /// While another thread waits for the end of the one that uses this: see CCallWatch. Any thread.
    void endLongCalls() noexcept { m_calls.endLongCalls(); }

    /// Whether endLongCalls() has ended one: what libcurl tells of an end since then may be its doing.
    bool hasEndedCalls() const noexcept { return m_calls.hasEndedCalls(); }

    /// In a child process: what it shares with its parent stays untouched when this goes.
    void forget() noexcept;

private:
    struct CLane : public CEventMulti {
        CLane(CTransferLanes& theLanes, size_t theNumber, long idleConnections);
        ~CLane() override;

        void onTimeChange() noexcept override { lanes.setTimer(*this); }

        CTransferLanes& lanes;
        const size_t number;
        std::optional<CMoment> closing; // unless it is used again
        std::optional<CMoment> timer;   // always set, so that setting it needs no memory
    };

    CLane& open(size_t number);
    CLane& at(size_t number) noexcept { return *m_lanes[number]; }
    void setTimer(CLane& lane) noexcept;
    void settle(CLane& lane) noexcept;
    CURLMcode actOnTime(CLane& lane, CMoment now) noexcept;

    const long m_idleConnections;
    CSocketEvents m_events;
    CCallWatch m_calls;
    TTimerQueue<CLane> m_timers;
    std::array<CLane*, 2> m_acted{}; // those which the last act() was for; null: none
    std::vector<std::unique_ptr<CLane>> m_lanes;
};

} // namespace norla
