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

    /// The longest time, without what the thread has waited for a processor that others had. On a system that does not
    /// tell that (/proc/thread-self/schedstat) it is in here.
    Clock::duration longestPause() const { return m_longest; }

    /// With it.
    Clock::duration longestWithProcessorWaits() const { return m_longestOnTheClock; }

    /// In a line.
    kx::String report() const;

private:
    static gint poll(GPollFD* descriptors, guint count, gint timeout);

    /// What the thread has waited for a processor since it began.
    Clock::duration processorWaits() const;

    void beginTurn();
    void endTurn();

    const GPollFunc m_poll;
    const int m_statistics;
    Clock::time_point m_turnBegan;
    Clock::duration m_waitsAtTurn{};
    Clock::duration m_longest{};
    Clock::duration m_longestOnTheClock{};
    long long m_turns = 0;
};
