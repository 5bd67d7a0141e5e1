#pragma once

#include <chrono>
#include <mutex>

namespace norla {

class COpenSockets;

/// Knows which call to libcurl a thread is in, so that another thread can end one in which libcurl waits for what a
/// server says. Used by any thread.
class CCallWatch {
public:
    /// One call, as long as it lives; on the thread that calls, one at a time.
    class CCall {
    public:
        /// @param sockets of the connections that the call may wait for
        CCall(CCallWatch& watch, COpenSockets& sockets) noexcept;
        CCall(const CCall&) = delete;
        CCall& operator=(const CCall&) = delete;
        ~CCall();

    private:
        CCallWatch& m_watch;
    };

    /// To be asked again and again by who waits for the thread's end. When a call has lasted since it was asked the
    /// last time, this one and all that follow read no more from their connections.
    void endLongCalls() noexcept;

    /// Whether it has ended a call, so that connections may have come to an end that are no server's.
    bool hasEndedCalls() const noexcept
    {
        const std::lock_guard lock(m_mutex);
        return m_endsCalls;
    }

    /// When the last call began. For the thread that calls.
    std::chrono::steady_clock::time_point getStart() const noexcept { return m_start; }

private:
    mutable std::mutex m_mutex;
    COpenSockets* m_sockets = nullptr; // of the call; null: there is none
    unsigned long long m_count = 0;    // of calls so far
    unsigned long long m_seen = 0;     // the count when a call was seen that had not ended
    bool m_endsCalls = false;
    std::chrono::steady_clock::time_point m_start; // for the thread that calls alone
};

} // namespace norla
