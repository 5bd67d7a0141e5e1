// How often a pool's thread wakes up when it has nothing to do.
#include "norla/pool/CTransferLanes.h"
#include "tests/curlcalls/CWaitCalls.h"
#include "tests/norla/pool/CPoolFixture.h"
#include "tests/support/CPathServer.h"
#include "tests/support/sleepingThread.h"

#include <algorithm>
#include <chrono>
#include <future>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

class PoolIdleTest : public CPoolFixture {
protected:
    /// Lets nothing happen for a while. @return how often pools have begun to wait meanwhile
    static size_t waitsWhileNothingHappens()
    {
        support::CWaitCalls calls;
        std::promise<void> never;
        never.get_future().wait_for(std::chrono::milliseconds(300)); // the time is what is measured
        const auto waits = calls.takeWaits();
        return static_cast<size_t>(std::count_if(waits.begin(), waits.end(),
            [](const std::string& wait) { return wait.starts_with("epoll ") && wait.ends_with(" norla.pool"); }));
    }

    /// Waits until the pool's thread waits. @return for how long at most, "-1" without limit
    static std::string lastWait(support::CWaitCalls& calls)
    {
        std::string last;
        EXPECT_TRUE(waitUntil([&] {
            for (const std::string& wait : calls.takeWaits())
                if (wait.ends_with(" norla.pool"))
                    last = wait;
            return !last.empty();
        }));
        return last;
    }

    /// Waits until the newest wait of the pool's thread has no limit.
    static bool waitsWithoutLimitAtLast(support::CWaitCalls& calls)
    {
        bool without = false;
        return waitUntil([&] {
            for (const std::string& wait : calls.takeWaits())
                if (wait.ends_with(" norla.pool"))
                    without = wait == "epoll -1 norla.pool";
            return without;
        });
    }
};

TEST_F(PoolIdleTest, sleepsWithoutEndWhenItIsNew)
{
    support::CWaitCalls calls;
    replacePool({});
    EXPECT_EQ(lastWait(calls), "epoll -1 norla.pool");
}

TEST_F(PoolIdleTest, doesNotWakeUpWhenItHasNothingToDo)
{
    answer(ok("hello"));
    ASSERT_TRUE(pool().start(newRequest().get())->wait(longest));
    pool().start(badRequest().get())->wait(longest);
    ASSERT_TRUE(waitUntil([] { return waitsWhileNothingHappens() == 0; }));
    EXPECT_EQ(waitsWhileNothingHappens(), 0U);
}

TEST_F(PoolIdleTest, hardlyWakesUpForATransferOfWhichNothingComes)
{
    const auto transfer = startStalled();
    EXPECT_LE(waitsWhileNothingHappens(), 3U); // libcurl looks once a second how fast it is
    EXPECT_FALSE(transfer->isDone());
}

TEST_F(PoolIdleTest, hardlyWakesUpForManyTransfersOfWhichNothingComes)
{
    for (int count = 0; count < 50; ++count)
        startStalled();
    EXPECT_LE(waitsWhileNothingHappens(), 100U);
}

TEST_F(PoolIdleTest, doesNotWakeUpForTransfersThatWaitForRoom)
{
    replacePool({.atOnce = 1});
    startStalled();
    for (int count = 0; count < 50; ++count)
        pool().start(newRequest().get());
    EXPECT_LE(waitsWhileNothingHappens(), 3U);
}

TEST_F(PoolIdleTest, sleepsWithoutEndWhenTheConnectionsThatAHostNeededInPlentyHaveClosed)
{
    constexpr int count = norla::CTransferLanes::width + 1;
    support::CPathServer paths({{"/", ok("hello")}});
    std::vector<Transfer> transfers;
    for (int number = 0; number < count; ++number)
        transfers.push_back(pool().start(requestTo(paths.url("/")).get()));
    support::CWaitCalls calls;
    paths.start(); // all at once, since nobody had an answer
    for (const Transfer& transfer : transfers)
        ASSERT_TRUE(transfer->wait(longest));
    ASSERT_TRUE(waitUntil([&paths] { return paths.openCount() == count - 1; }));
    EXPECT_TRUE(waitsWithoutLimitAtLast(calls));
}

// The descriptor that wakes it belongs to both processes.
TEST_F(PoolIdleTest, doesNotWakeUpWhenAChildProcessHasLetItGo)
{
    const auto transfer = startStalled();
    const pid_t child = fork();
    if (child == 0) {
        transfer->cancel();
        destroyPool();
        _exit(0);
    }
    waitpid(child, nullptr, 0);
    EXPECT_LE(waitsWhileNothingHappens(), 3U);
    EXPECT_FALSE(transfer->isDone());
}

} // namespace
