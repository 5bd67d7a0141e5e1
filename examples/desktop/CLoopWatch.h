#pragma once

#include "kx/text/String.h"

#include <chrono>
#include <glib.h>

/// Measures for how long the default main loop has been unable to answer keys and clicks: the time between two waits
/// for events. One at a time, on the loop's thread; it begins when it is made.
class CLoopWatch {
public:
    using Clock = std::chrono::steady_clock;

    CLoopWatch();
    CLoopWatch(const CLoopWatch&) = delete;
    CLoopWatch& operator=(const CLoopWatch&) = delete;
    ~CLoopWatch();

    /// In a line: the longest pause, without what the thread itself has waited for a processor that others had (which
    /// is in it where the system does not tell: /proc/thread-self/schedstat); how much of a pause was work at the most,
    /// the rest being waits for locks, disks and the display; and how many pauses people may notice.
    kx::String report() const;

private:
    static gint poll(GPollFD* descriptors, guint count, gint timeout);

    /// What the thread has waited for a processor since it began.
    Clock::duration processorWaits() const;

    /// For how long it has worked.
    static Clock::duration work();

    void beginTurn();
    void endTurn();

    const GPollFunc m_poll;
    const int m_statistics;
    Clock::time_point m_turnBegan;
    Clock::duration m_waitsAtTurn{};
    Clock::duration m_workAtTurn{};
    Clock::duration m_longestPause{};
    Clock::duration m_longestWork{};
    long long m_turns = 0;
    long long m_noticeable = 0;
};
