#pragma once

#include <chrono>
#include <deque>

namespace norla {

/// The rate of the last five seconds, from counts that are told now and then. Used by one thread at a time.
class CRateMeter {
public:
    using Clock = std::chrono::steady_clock;
    using Moment = Clock::time_point;

    /// Nothing is known until the second count.
    void forget() { m_samples.clear(); }

    /// @param bytes all in all until then; fewer than before make all that was before void
    void add(Moment now, long long bytes);

    /// 0 while nothing is known, and when nothing has moved.
    double bytesPerSecond(Moment now) const;

private:
    static constexpr auto window = std::chrono::seconds(5);
    static constexpr auto grain = std::chrono::milliseconds(100); // as many as fifty samples are kept

    struct CSample {
        Moment moment;
        long long bytes;
    };

    std::deque<CSample> m_samples; // the first one is the newest that is five seconds old, or the first of all
};

} // namespace norla
