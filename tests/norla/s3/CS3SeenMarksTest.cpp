#include "norla/s3/CS3SeenMarks.h"

#include <gtest/gtest.h>

namespace {

using norla::CS3SeenMarks;

constexpr size_t most = CS3SeenMarks::most;

/// Walks from 0 on. @return how often it has gone on when it comes to a place that it knows; 0 when it never does
size_t walk(CS3SeenMarks& marks, size_t steps, size_t circleStart, size_t circleLength)
{
    size_t place = 0;
    for (size_t step = 0; step < steps; ++step) {
        if (marks.has(std::to_string(place)))
            return step;
        marks.add(std::to_string(place));
        ++place;
        if (place == circleStart + circleLength)
            place = circleStart;
    }
    return 0;
}

TEST(CS3SeenMarksTest, findsAShortCircleAtOnce)
{
    CS3SeenMarks marks;
    EXPECT_EQ(walk(marks, 10, 1, 3), 4U);
}

TEST(CS3SeenMarksTest, findsACircleThatItCannotRemember)
{
    CS3SeenMarks marks;
    const size_t found = walk(marks, 10 * most, 3 * most, 2 * most);
    EXPECT_GT(found, 5 * most);
}

TEST(CS3SeenMarksTest, remembersNoMoreThanThat)
{
    CS3SeenMarks marks;
    EXPECT_EQ(walk(marks, 2 * most - 1, 0, 9 * most), 0U);
    EXPECT_TRUE(marks.has(std::to_string(most - 1)));
    EXPECT_FALSE(marks.has(std::to_string(most)));
}

TEST(CS3SeenMarksTest, forgetsTheOldestForTheNewest)
{
    CS3SeenMarks marks;
    EXPECT_EQ(walk(marks, 2 * most, 0, 9 * most), 0U);
    EXPECT_FALSE(marks.has("0"));
    EXPECT_TRUE(marks.has(std::to_string(2 * most - 1)));
}

} // namespace
