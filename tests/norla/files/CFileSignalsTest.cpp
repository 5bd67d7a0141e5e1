#include "norla/files/CFileSignals.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

namespace {

using norla::CFileSignals;
using norla::FileState;
using Clock = CFileSignals::Clock;

double secondsBetween(Clock::time_point start, Clock::time_point end)
{
    return std::chrono::duration<double>(end - start).count();
}

/// So much later; the clock alone is waited for.
Clock::time_point waitForClock(std::chrono::milliseconds span)
{
    const auto start = Clock::now();
    while (Clock::now() - start < span)
        std::this_thread::yield();
    return Clock::now();
}

TEST(CFileSignalsTest, tellsHowFastTheFileMovesAndHowLongItTakes)
{
    CFileSignals signals;
    const auto before = Clock::now();
    signals.begin();
    signals.setStart(1'000'000); // of an earlier attempt, and no part of the rate
    const auto start = Clock::now();
    signals.setProgress(1'200'000, 3'000'000);
    const auto asked = waitForClock(std::chrono::milliseconds(50));
    const auto progress = signals.getProgress();
    EXPECT_LE(progress.bytesPerSecond, 200'000 / secondsBetween(start, asked));
    EXPECT_GE(progress.bytesPerSecond, 200'000 / secondsBetween(before, Clock::now()));
    ASSERT_TRUE(progress.secondsLeft);
    EXPECT_DOUBLE_EQ(*progress.secondsLeft, 1'800'000 / progress.bytesPerSecond);
}

TEST(CFileSignalsTest, knowsNoTimeLeftWithoutATotalOrAMove)
{
    CFileSignals signals;
    signals.begin();
    signals.setProgress(0, 1000);
    EXPECT_EQ(signals.getProgress().bytesPerSecond, 0);
    EXPECT_FALSE(signals.getProgress().secondsLeft);
    signals.setProgress(500, {});
    EXPECT_GT(signals.getProgress().bytesPerSecond, 0);
    EXPECT_FALSE(signals.getProgress().secondsLeft);
}

TEST(CFileSignalsTest, hasARateWhileItRunsAlone)
{
    CFileSignals signals;
    signals.begin();
    signals.setProgress(500, 1000);
    EXPECT_GT(signals.getProgress().bytesPerSecond, 0);
    signals.setState(FileState::Paused);
    EXPECT_EQ(signals.getProgress().bytesPerSecond, 0);
    EXPECT_FALSE(signals.getProgress().secondsLeft);
    signals.waitForResume();
    signals.setState(FileState::Running);
    EXPECT_EQ(signals.getProgress().bytesPerSecond, 0); // nothing has moved since
}

} // namespace
