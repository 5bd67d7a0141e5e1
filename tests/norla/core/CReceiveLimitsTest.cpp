#include "norla/core/CReceiveLimits.h"

#include <gtest/gtest.h>

namespace {

class CReceiveLimitsTest : public testing::Test {
protected:
    norla::CReceiveLimits m_limits;
};

TEST_F(CReceiveLimitsTest, areNoneAtFirst)
{
    EXPECT_EQ(m_limits.excessOfLine(size_t{1} << 40), "");
    EXPECT_EQ(m_limits.excessOfBody(size_t{1} << 40, size_t{1} << 40, 1LL << 40), "");
}

TEST_F(CReceiveLimitsTest, holdForAllLinesTogether)
{
    m_limits.set(0, 10);
    EXPECT_EQ(m_limits.excessOfLine(6), "");
    EXPECT_EQ(m_limits.excessOfLine(4), "");
    EXPECT_EQ(
        m_limits.excessOfLine(1), "the header and reply lines of the transfer have 11 bytes and more, and may have 10");
}

TEST_F(CReceiveLimitsTest, holdForEachTransfer)
{
    m_limits.set(0, 10);
    m_limits.excessOfLine(10);
    m_limits.begin();
    EXPECT_EQ(m_limits.excessOfLine(10), "");
}

TEST_F(CReceiveLimitsTest, holdForTheBodyAsItIsInMemory)
{
    m_limits.set(10, 0);
    EXPECT_EQ(m_limits.excessOfBody(6, 4, -1), "");
    EXPECT_EQ(m_limits.excessOfBody(6, 5, 3), "the body has 11 bytes or more, and the default receive buffer takes 10");
}

TEST_F(CReceiveLimitsTest, holdForTheBodyAsItWasAnnounced)
{
    m_limits.set(10, 0);
    EXPECT_EQ(m_limits.excessOfBody(0, 1, 10), "");
    EXPECT_EQ(
        m_limits.excessOfBody(0, 1, 11), "the body has 11 bytes or more, and the default receive buffer takes 10");
}

TEST_F(CReceiveLimitsTest, areToldToPersonsWithoutBuffers)
{
    m_limits.set(10, 0);
    EXPECT_EQ(m_limits.plainExcessOfBody(0, 1, 10), "");
    EXPECT_EQ(m_limits.plainExcessOfBody(6, 5, 3), "the body has 11 bytes or more, and at most 10 are taken");
}

} // namespace
