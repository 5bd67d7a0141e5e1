// A pool beside other threads, and in a child process.
#include "norla/core/errorKind.h"
#include "norla/pool/CTransferPool.h"
#include "tests/norla/pool/CPoolFixture.h"
#include "tests/support/errorOf.h"
#include "tests/support/sleepingThread.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <future>
#include <mutex>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

using norla::CTransfer;
using norla::TransferState;
using support::messageOf;

class PoolProcessTest : public CPoolFixture {};

TEST_F(PoolProcessTest, doesNoHarmInAChildProcess)
{
    std::promise<void> gate;
    server().onConnection().readHead().waitFor(gate.get_future().share()).send(ok("hello"));
    const auto request = newRequest();
    const auto transfer = pool().start(request.get());
    EXPECT_TRUE(waitUntil([this] { return !server().received(0).empty(); }));
    const pid_t child = fork();
    if (child == 0) {
        destroyPool();
        _exit(0);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    gate.set_value();
    ASSERT_TRUE(transfer->wait(longest));
    EXPECT_EQ(bodyOf(request), "hello");
}

TEST_F(PoolProcessTest, refusesWhatWouldNeverEndInAChildProcess)
{
    const auto transfer = startStalled();
    const pid_t child = fork();
    if (child == 0) {
        alarm(10); // ends it where it hangs
        const bool isStartRefused = support::messageOf([this] { pool().start(newRequest().get()); })
            == "A transfer pool works in the process alone that has made it, not in a child of that.";
        const bool isWaitRefused = support::messageOf([&] { transfer->wait(); })
            == "The end of a transfer cannot be waited for in a child process, which has no thread of the pool.";
        _exit((isStartRefused ? 0 : 1) + (isWaitRefused ? 0 : 2));
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

TEST_F(PoolProcessTest, refusesToWaitForItselfOnItsOwnThread)
{
    answer(ok(""));
    std::promise<kx::String> said;
    CTransfer::Options options;
    options.onDone = [this, &said](CTransfer& ended) {
        EXPECT_TRUE(ended.wait());
        const auto next = pool().start(newRequest().get());
        EXPECT_FALSE(next->wait(0));
        said.set_value(support::messageOf([&next] { next->wait(); }));
        next->cancel();
    };
    ASSERT_TRUE(pool().start(newRequest().get(), options)->wait(longest));
    EXPECT_EQ(said.get_future().get(),
        "The end of a transfer cannot be waited for on the pool's own thread, which brings it about.");
}

// Which has the locks of threads that it does not have.
TEST_F(PoolProcessTest, goesInAChildProcessWhateverTheParentsThreadsDo)
{
    constexpr int children = 100;
    std::atomic<bool> isOver{false};
    std::thread user([this, &isOver] {
        const auto unknown = newRequest();
        while (!isOver)
            pool().removeRequest(unknown.get());
    });
    int status = 0;
    for (int count = 0; count < children && status == 0; ++count) {
        const pid_t child = fork();
        if (child == 0) {
            alarm(10); // ends it where it hangs
            destroyPool();
            _exit(0);
        }
        waitpid(child, &status, 0);
    }
    isOver = true;
    user.join();
    EXPECT_EQ(status, 0);
}

// The C library gives the new thread the place of one that is not there, and with it its number.
TEST_F(PoolProcessTest, goesInAChildProcessThatHasMadeOneOfItsOwn)
{
    const pid_t child = fork();
    if (child == 0) {
        alarm(10); // ends it where it hangs
        replacePool({});
        destroyPool();
        _exit(0);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

TEST_F(PoolProcessTest, runsManyOnSeveralThreads)
{
    replacePool({.threads = 3, .atOnce = 20});
    constexpr int count = 200;
    std::vector<Transfer> transfers;
    for (int number = 0; number < count; ++number) {
        answer(ok("x"));
        transfers.push_back(pool().start(newRequest().get(), countingEnds()));
    }
    for (const Transfer& transfer : transfers) {
        EXPECT_TRUE(transfer->wait(longest));
        EXPECT_EQ(transfer->getState(), TransferState::Succeeded) << failureOf(transfer);
    }
    pool().stop();
    EXPECT_EQ(m_ends, count);
}

/// A pool of two threads, which are in callbacks at once.
class PoolOfTwoThreadsTest : public CPoolFixture {
protected:
    /// Waits until the other thread is here too.
    /// @return the place of the calling one: 0, 1, or 2 when it has been here before
    size_t meet()
    {
        std::unique_lock lock(m_mutex);
        if (std::find(m_threads.begin(), m_threads.end(), gettid()) != m_threads.end())
            return 2;
        const size_t place = m_threads.size();
        m_threads.push_back(gettid());
        m_changed.notify_all();
        m_changed.wait_for(lock, std::chrono::seconds(20), [this] { return m_threads.size() == 2; });
        return place;
    }

    /// Starts transfers that end at once, on both threads. Returns when all callbacks have.
    void callOnBoth(const std::function<void()>& callback)
    {
        constexpr int count = 32; // hosts enough
        std::promise<void> start;
        std::atomic<int> ends{0};
        CTransfer::Options options;
        options.onDone = [&callback, &ends, started = start.get_future().share()](CTransfer&) {
            started.wait();
            callback();
            ++ends;
        };
        replacePool({.threads = 2});
        for (int port = 1; port <= count; ++port)
            pool().start(requestTo("nonsense://127.0.0.1:" + std::to_string(port) + "/").get(), options);
        start.set_value();
        EXPECT_TRUE(waitUntil([&] { return ends == count; }));
    }

    /// The system's numbers; not changed any more when both have met.
    const std::vector<pid_t>& threads() const { return m_threads; }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<pid_t> m_threads; // guarded by the mutex
};

TEST_F(PoolOfTwoThreadsTest, waitsForTheOtherWhereItGoesInACallback)
{
    std::atomic<bool> hasOtherReturned{false};
    std::atomic<bool> hadOtherReturned{false};
    callOnBoth([&] {
        const size_t place = meet();
        if (place == 0) {
            destroyPool();
            hadOtherReturned = hasOtherReturned.load();
        } else if (place == 1) {
            support::waitUntilAsleep(threads().front());
            hasOtherReturned = true;
        }
    });
    EXPECT_TRUE(hadOtherReturned);
}

// libcurl 7.88 makes no data connection then until something happens to the other one.

} // namespace
