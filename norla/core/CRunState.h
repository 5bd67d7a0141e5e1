#pragma once

#include "kx/base/CError.h"
#include "kx/text/String.h"

#include <atomic>

namespace norla {

/// Whether a request's transfer is running, by itself or in a manager, or waits for its start. Any thread.
class CRunState {
public:
    /// The transfer performs by itself while one of these lives.
    class CPerforming {
    public:
        explicit CPerforming(CRunState& state)
            : m_state(state)
        {
            m_state.m_isPerforming = true;
        }
        CPerforming(const CPerforming&) = delete;
        CPerforming& operator=(const CPerforming&) = delete;
        ~CPerforming() { m_state.m_isPerforming = false; }

    private:
        CRunState& m_state;
    };

    bool isManaged() const noexcept { return m_isManaged; }

    /// Whether its transfer neither runs nor waits for its start.
    bool isFree() const noexcept { return !m_isPerforming && !m_isManaged && m_queues <= 0; }

    /// For a manager: of several who want the request one gets it. @return false when it is running already
    [[nodiscard]] bool claim() noexcept { return !m_isPerforming && !m_isManaged.exchange(true); }
    void leaveManager() noexcept { m_isManaged = false; }

    /// For a queue of a manager's thread, in turns: the request waits for its start there, and does so no longer.
    void enterQueue() noexcept { ++m_queues; }
    void leaveQueue() noexcept { --m_queues; }

    /// A request that performs by itself is no longer one that its queue can start, and whoever waits for it would wait
    /// for ever.
    /// @param functionName for the error
    void requireNotQueued(const char* functionName) const
    {
        if (m_queues > 0)
            throw kx::CError(kx::String::fromLatin1(functionName)
                + " was called while the request waits for its start in the background.");
    }

    /// A transfer that is reset while it runs would end as a success with half an answer.
    /// @param functionName for the error
    void requireIdle(const char* functionName) const
    {
        if (m_isPerforming || m_isManaged)
            throw kx::CError(
                kx::String::fromLatin1(functionName) + " was called while the request's transfer is running.");
    }

private:
    std::atomic<bool> m_isPerforming{false};
    std::atomic<bool> m_isManaged{false};
    std::atomic<int> m_queues{0};
};

} // namespace norla
