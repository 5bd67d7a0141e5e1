#include "norla/core/CRunState.h"

#include "tests/support/errorOf.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace {

using norla::CRunState;

TEST(CRunStateTest, isIdleAtFirst)
{
    const CRunState state;
    EXPECT_FALSE(state.isManaged());
    EXPECT_NO_THROW(state.requireIdle("f"));
}

TEST(CRunStateTest, namesWhoCallsWhileItPerforms)
{
    CRunState state;
    {
        const CRunState::CPerforming performing(state);
        EXPECT_EQ(support::messageOf([&] { state.requireIdle("CNetRequest::reset"); }),
            "CNetRequest::reset was called while the request's transfer is running.");
        EXPECT_FALSE(state.claim());
    }
    EXPECT_NO_THROW(state.requireIdle("f"));
}

TEST(CRunStateTest, namesWhoCallsWhileItWaitsForItsStart)
{
    CRunState state;
    EXPECT_NO_THROW(state.requireNotQueued("f"));
    state.enterQueue();
    state.enterQueue();
    state.leaveQueue();
    EXPECT_EQ(support::messageOf([&] { state.requireNotQueued("CNetRequest::perform"); }),
        "CNetRequest::perform was called while the request waits for its start in the background.");
    state.leaveQueue();
    EXPECT_NO_THROW(state.requireNotQueued("f"));
}

TEST(CRunStateTest, isClaimedOnce)
{
    CRunState state;
    EXPECT_TRUE(state.claim());
    EXPECT_FALSE(state.claim());
    EXPECT_TRUE(state.isManaged());
    EXPECT_THROW(state.requireIdle("f"), kx::CError);
    state.leaveManager();
    EXPECT_NO_THROW(state.requireIdle("f"));
    EXPECT_TRUE(state.claim());
}

TEST(CRunStateTest, isFreeWhileNothingRunsOrWaits)
{
    CRunState state;
    EXPECT_TRUE(state.isFree());
    {
        const CRunState::CPerforming performing(state);
        EXPECT_FALSE(state.isFree());
    }
    state.enterQueue();
    EXPECT_FALSE(state.isFree());
    state.leaveQueue();
    EXPECT_TRUE(state.claim());
    EXPECT_FALSE(state.isFree());
    state.leaveManager();
    EXPECT_TRUE(state.isFree());
}

TEST(CRunStateTest, isClaimedByOneOfManyThreads)
{
    for (int round = 0; round < 100; ++round) {
        CRunState state;
        std::atomic<int> claims{0};
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i)
            threads.emplace_back([&] { claims += state.claim() ? 1 : 0; });
        for (std::thread& thread : threads)
            thread.join();
        ASSERT_EQ(claims, 1);
    }
}

} // namespace
