#include "norla/files/CByteRanges.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using norla::CByteRanges;
using Ranges = std::map<long long, long long>;

CByteRanges rangesOf(const std::vector<std::pair<long long, long long>>& all)
{
    CByteRanges ranges;
    for (const auto& [start, end] : all)
        ranges.add(start, end);
    return ranges;
}

TEST(CByteRangesTest, joinsWhatTouches)
{
    EXPECT_EQ(rangesOf({{0, 10}, {20, 30}, {10, 20}}).getAll(), (Ranges{{0, 30}}));
}

TEST(CByteRangesTest, joinsWhatOverlaps)
{
    EXPECT_EQ(rangesOf({{5, 15}, {30, 40}, {0, 35}}).getAll(), (Ranges{{0, 40}}));
}

TEST(CByteRangesTest, keepsWhatLiesWithinAnother)
{
    EXPECT_EQ(rangesOf({{0, 100}, {10, 20}}).getAll(), (Ranges{{0, 100}}));
}

TEST(CByteRangesTest, keepsGaps)
{
    EXPECT_EQ(rangesOf({{20, 30}, {0, 10}}).getAll(), (Ranges{{0, 10}, {20, 30}}));
}

TEST(CByteRangesTest, takesNoEmptyRange)
{
    EXPECT_TRUE(rangesOf({{5, 5}, {7, 3}}).isEmpty());
}

TEST(CByteRangesTest, countsTheBytesOfAll)
{
    EXPECT_EQ(rangesOf({{0, 10}, {20, 30}}).getSize(), 20);
}

TEST(CByteRangesTest, coversWhatLiesInOneOfThem)
{
    const CByteRanges ranges = rangesOf({{0, 10}, {20, 30}});
    EXPECT_TRUE(ranges.covers(20, 30));
    EXPECT_TRUE(ranges.covers(15, 15));
    EXPECT_FALSE(ranges.covers(5, 25));
    EXPECT_FALSE(ranges.covers(9, 11));
}

TEST(CByteRangesTest, findsTheFirstGap)
{
    const CByteRanges ranges = rangesOf({{0, 10}, {20, 30}});
    const auto gap = ranges.gapFrom(0, 100);
    ASSERT_TRUE(gap);
    EXPECT_EQ(gap->start, 10);
    EXPECT_EQ(gap->end, 20);
}

TEST(CByteRangesTest, theLastGapGoesUpToTheEnd)
{
    const auto gap = rangesOf({{0, 10}, {20, 30}}).gapFrom(25, 100);
    ASSERT_TRUE(gap);
    EXPECT_EQ(gap->start, 30);
    EXPECT_EQ(gap->end, 100);
}

TEST(CByteRangesTest, hasNoGapWhereAllIsThere)
{
    EXPECT_FALSE(rangesOf({{0, 100}}).gapFrom(0, 100));
    EXPECT_FALSE(rangesOf({{0, 100}}).gapFrom(0, 50));
    EXPECT_FALSE(CByteRanges().gapFrom(0, 0));
}

TEST(CByteRangesTest, countsWithoutAGapFromAPositionAndBeforeIt)
{
    const CByteRanges ranges = rangesOf({{0, 10}, {20, 30}});
    EXPECT_EQ(ranges.sizeFrom(0), 10);
    EXPECT_EQ(ranges.sizeFrom(10), 0);
    EXPECT_EQ(ranges.sizeFrom(25), 5);
    EXPECT_EQ(ranges.sizeBefore(30), 10);
    EXPECT_EQ(ranges.sizeBefore(25), 5);
    EXPECT_EQ(ranges.sizeBefore(20), 0);
    EXPECT_EQ(ranges.sizeBefore(35), 0);
}

TEST(CByteRangesTest, whatIsCutIsNotThere)
{
    CByteRanges ranges;
    ranges.cut(5);
    EXPECT_TRUE(ranges.isEmpty());
    ranges.add(0, 10);
    ranges.add(20, 30);
    ranges.add(40, 50);
    ranges.cut(60);
    EXPECT_EQ(ranges.getSize(), 30);
    ranges.cut(29);
    EXPECT_EQ(ranges.getSize(), 19);
    ranges.cut(20);
    EXPECT_EQ(ranges.getSize(), 10);
    ranges.cut(15);
    EXPECT_EQ(ranges.getSize(), 10);
    ranges.cut(0);
    EXPECT_TRUE(ranges.isEmpty());
}

} // namespace
