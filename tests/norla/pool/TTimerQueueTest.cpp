#include "norla/pool/TTimerQueue.h"

#include <gtest/gtest.h>

namespace {

using Timers = norla::TTimerQueue<int>;
using Moment = Timers::CMoment;

class TTimerQueueTest : public testing::Test {
protected:
    static Moment at(int seconds) { return Moment(std::chrono::seconds(seconds)); }

    Timers m_timers;
    int m_one = 1;
    int m_two = 2;
    std::optional<Moment> m_ofOne;
    std::optional<Moment> m_ofTwo;
};

TEST_F(TTimerQueueTest, wakesNobodyWhenEmpty)
{
    EXPECT_EQ(m_timers.getFirst(), std::nullopt);
    EXPECT_EQ(m_timers.getDue(at(100)), nullptr);
}

TEST_F(TTimerQueueTest, wakesTheEarliestFirst)
{
    m_timers.set(&m_one, m_ofOne, at(20));
    m_timers.set(&m_two, m_ofTwo, at(10));
    EXPECT_EQ(m_timers.getFirst(), at(10));
    EXPECT_EQ(m_timers.getDue(at(30)), &m_two);
}

TEST_F(TTimerQueueTest, wakesAtTheMomentAndNotBefore)
{
    m_timers.set(&m_one, m_ofOne, at(20));
    EXPECT_EQ(m_timers.getDue(at(20) - std::chrono::nanoseconds(1)), nullptr);
    EXPECT_EQ(m_timers.getDue(at(20)), &m_one);
}

TEST_F(TTimerQueueTest, replacesTheMomentThatWasSet)
{
    m_timers.set(&m_one, m_ofOne, at(10));
    m_timers.set(&m_one, m_ofOne, at(20));
    EXPECT_EQ(m_ofOne, at(20));
    EXPECT_EQ(m_timers.getFirst(), at(20));
}

TEST_F(TTimerQueueTest, wakesNobodyWhoWasCleared)
{
    m_timers.set(&m_one, m_ofOne, at(10));
    m_timers.clear(&m_one, m_ofOne);
    EXPECT_EQ(m_ofOne, std::nullopt);
    EXPECT_EQ(m_timers.getFirst(), std::nullopt);
}

TEST_F(TTimerQueueTest, keepsTwoOfTheSameMomentApart)
{
    m_timers.set(&m_one, m_ofOne, at(10));
    m_timers.set(&m_two, m_ofTwo, at(10));
    m_timers.clear(&m_one, m_ofOne);
    EXPECT_EQ(m_timers.getDue(at(10)), &m_two);
}

} // namespace
