#include "norla/files/CRateMeter.h"

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals; // 1s
using norla::CRateMeter;

constexpr CRateMeter::Moment start{};

TEST(CRateMeterTest, knowsNothingAtFirst)
{
    CRateMeter meter;
    EXPECT_EQ(meter.bytesPerSecond(start), 0);
    meter.add(start, 1000);
    EXPECT_EQ(meter.bytesPerSecond(start + 1s), 0);
}

TEST(CRateMeterTest, tellsTheRateSinceTheFirstCount)
{
    CRateMeter meter;
    meter.add(start, 1000);
    meter.add(start + 2s, 3000);
    EXPECT_DOUBLE_EQ(meter.bytesPerSecond(start + 2s), 1000);
}

TEST(CRateMeterTest, forgetsWhatIsOlderThanFiveSeconds)
{
    CRateMeter meter;
    meter.add(start, 0);
    for (int second = 1; second <= 10; ++second)
        meter.add(start + second * 1s, 1'000'000);
    for (int second = 11; second <= 20; ++second)
        meter.add(start + second * 1s, 1'000'000 + (second - 10) * 100);
    EXPECT_DOUBLE_EQ(meter.bytesPerSecond(start + 20s), 100);
}

TEST(CRateMeterTest, fallsWhileNothingIsCounted)
{
    CRateMeter meter;
    meter.add(start, 0);
    meter.add(start + 1s, 1000);
    EXPECT_DOUBLE_EQ(meter.bytesPerSecond(start + 2s), 500);
    EXPECT_EQ(meter.bytesPerSecond(start + 7s), 0);
}

TEST(CRateMeterTest, beginsAnewWhereTheCountGoesBack)
{
    CRateMeter meter;
    meter.add(start, 0);
    meter.add(start + 1s, 1'000'000);
    meter.add(start + 2s, 100);
    meter.add(start + 3s, 200);
    EXPECT_DOUBLE_EQ(meter.bytesPerSecond(start + 3s), 100);
}

TEST(CRateMeterTest, manyCountsAreOne)
{
    CRateMeter meter;
    for (int i = 0; i <= 1'000'000; ++i)
        meter.add(start + i * 1us, i);
    EXPECT_NEAR(meter.bytesPerSecond(start + 1s), 1e6, 1);
}

} // namespace
