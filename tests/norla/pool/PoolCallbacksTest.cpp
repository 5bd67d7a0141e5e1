// What a pool tells, where, and how its callbacks end it.
#include "norla/core/errorKind.h"
#include "norla/pool/CExecutorQueue.h"
#include "norla/pool/CTransferPool.h"
#include "tests/norla/pool/CPoolFixture.h"
#include "tests/support/CLogRecorder.h"
#include "tests/support/errorOf.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <poll.h>
#include <string>
#include <utility>
#include <vector>

namespace {

using norla::CTransfer;
using norla::TransferState;

class PoolCallbacksTest : public CPoolFixture {};

TEST_F(PoolCallbacksTest, tellsAllEndsWhenItIsStopped)
{
    replacePool({.atOnce = 1});
    startStalled(countingEnds());
    for (int count = 0; count < 10; ++count)
        pool().start(newRequest().get(), countingEnds());
    pool().stop();
    EXPECT_EQ(m_ends, 11);
}

TEST_F(PoolCallbacksTest, tellsAllEndsWhenItGoes)
{
    const auto transfer = startStalled(countingEnds());
    destroyPool();
    EXPECT_EQ(m_ends, 1);
    EXPECT_EQ(transfer->getState(), TransferState::Cancelled);
}

TEST_F(PoolCallbacksTest, mayBeStoppedInACallback)
{
    answer(ok(""));
    CTransfer::Options options;
    options.onDone = [this](CTransfer&) { pool().stop(); };
    const auto transfer = pool().start(newRequest().get(), options);
    EXPECT_TRUE(transfer->wait(longest));
    pool().stop();
    EXPECT_THROW(pool().start(newRequest().get()), kx::CError);
}

TEST_F(PoolCallbacksTest, mayGoInACallback)
{
    answer(ok(""));
    std::promise<void> gone;
    CTransfer::Options options;
    options.onDone = [&](CTransfer&) {
        destroyPool();
        gone.set_value();
    };
    pool().start(newRequest().get(), options);
    EXPECT_EQ(gone.get_future().wait_for(std::chrono::seconds(20)), std::future_status::ready);
}

TEST_F(PoolCallbacksTest, startsAnotherInACallback)
{
    answer(ok("first"));
    answer(ok("second"));
    std::promise<Transfer> second;
    CTransfer::Options options;
    options.onDone = [&](CTransfer&) { second.set_value(pool().start(newRequest().get())); };
    pool().start(newRequest().get(), options);
    const Transfer transfer = second.get_future().get();
    EXPECT_TRUE(transfer->wait(longest));
    EXPECT_EQ(bodyOf(Transfer(transfer) ? Request(&transfer->getRequest()) : Request()), "second");
}

TEST_F(PoolCallbacksTest, logsWhatOnDoneThrows)
{
    const support::CLogRecorder log;
    answer(ok(""));
    CTransfer::Options options;
    options.onDone = [](CTransfer&) { throw std::runtime_error("oops"); };
    const auto transfer = pool().start(newRequest().get(), options);
    transfer->wait(longest);
    pool().stop();
    EXPECT_EQ(transfer->getState(), TransferState::Succeeded);
    EXPECT_EQ(log.lines().size(), 1U);
}

TEST_F(PoolCallbacksTest, callsBackOnTheExecutor)
{
    answer(ok(""));
    const auto queue = kx::newObj<norla::CExecutorQueue>();
    replacePool({.executor = queue});
    const auto transfer = pool().start(newRequest().get(), countingEnds());
    transfer->wait(longest);
    pollfd descriptor{queue->getDescriptor(), POLLIN, 0};
    EXPECT_EQ(poll(&descriptor, 1, longest), 1);
    EXPECT_EQ(m_ends, 0);
    queue->runPending();
    EXPECT_EQ(m_ends, 1);
}

/// Runs the first task on a thread of its own, and takes no other.
class CClosedExecutor : public kx::CBase, public virtual norla::IExecutor {
public:
    void execute(std::function<void()> task) override
    {
        if (m_thread.joinable())
            throw kx::CError("closed");
        m_thread = std::thread(std::move(task));
    }

    void join() { m_thread.join(); }

private:
    std::thread m_thread;
};

TEST_F(PoolCallbacksTest, letsNoCallbackGoWhileItRuns)
{
    const auto executor = kx::newObj<CClosedExecutor>();
    std::promise<void> begun;
    std::promise<void> gate;
    bool isThere = false;
    CTransfer::Options options{.executor = executor};
    options.onProgress = [&, held = std::make_shared<int>(), calls = 0](const norla::CTransferProgress&) mutable {
        if (calls++ != 0)
            return; // the last one, told on the pool's thread
        const std::weak_ptr<int> itself = held;
        begun.set_value();
        gate.get_future().wait();
        isThere = !itself.expired();
    };
    pool().start(stalledRequest().get(), std::exchange(options, {}));
    begun.get_future().wait();
    pool().stop();
    gate.set_value();
    executor->join();
    EXPECT_TRUE(isThere);
}

/// Runs what it is given, and says that it has not.
class CFickleExecutor : public kx::CBase, public virtual norla::IExecutor {
public:
    void execute(std::function<void()> task) override
    {
        task();
        throw kx::CError("closed");
    }
};

TEST_F(PoolCallbacksTest, tellsTheEndOnceWhereAnExecutorThrowsBehindIt)
{
    const support::CLogRecorder log;
    answer(ok(""));
    CTransfer::Options options = countingEnds();
    options.executor = kx::newObj<CFickleExecutor>();
    const auto transfer = pool().start(newRequest().get(), options);
    EXPECT_TRUE(transfer->wait(longest));
    pool().stop();
    EXPECT_EQ(m_ends, 1);
    EXPECT_EQ(transfer->getState(), TransferState::Succeeded);
}

TEST_F(PoolCallbacksTest, letsCallbacksGoWithTheEnd)
{
    answer(ok(""));
    auto held = std::make_shared<int>(0);
    CTransfer::Options options;
    options.onDone = [held](CTransfer&) {};
    const auto transfer = pool().start(newRequest().get(), options);
    options = {};
    transfer->wait(longest);
    pool().stop();
    EXPECT_EQ(held.use_count(), 1);
}

TEST_F(PoolCallbacksTest, tellsProgressWhileItRunsAndAtTheEnd)
{
    std::promise<void> gate;
    server()
        .onConnection()
        .readHead()
        .send("HTTP/1.1 200 OK\r\nContent-Length: 6\r\n\r\nabc")
        .waitFor(gate.get_future().share())
        .send("def");
    std::vector<long long> received;
    std::atomic<bool> isTold{false};
    CTransfer::Options options;
    options.onProgress = [&](const norla::CTransferProgress& progress) {
        received.push_back(progress.received);
        EXPECT_EQ(progress.toReceive.value_or(6), 6);
        isTold = isTold || progress.received == 3;
    };
    const auto transfer = pool().start(newRequest().get(), options);
    EXPECT_TRUE(waitUntil([&] { return isTold.load(); }));
    gate.set_value();
    transfer->wait(longest);
    pool().stop();
    EXPECT_EQ(received.back(), 6);
}

TEST_F(PoolCallbacksTest, tellsProgressAtMostEvery100Milliseconds)
{
    using Clock = std::chrono::steady_clock;
    constexpr int count = 4;
    const auto start = Clock::now();
    std::atomic<int> told{0};
    std::atomic<bool> isTooEarly{false};
    CTransfer::Options options;
    options.onProgress = [&](const norla::CTransferProgress&) {
        if (told < count && Clock::now() < start + (told + 1) * std::chrono::milliseconds(100))
            isTooEarly = true;
        ++told;
    };
    const auto transfer = startStalled(options);
    EXPECT_TRUE(waitUntil([&] { return told >= 1; }));
    transfer->getProgress(); // which asks for none
    EXPECT_TRUE(waitUntil([&] { return told >= count; }));
    EXPECT_FALSE(isTooEarly);
    pool().stop();
}

/// What is told at the end alone, since callbacks are called where the test looks, and in which order: p for
/// onProgress, d for onDone.
class PoolLastProgressTest : public CPoolFixture {
protected:
    PoolLastProgressTest() { replacePool({.atOnce = 1}); }

    CTransfer::Options recording()
    {
        CTransfer::Options options{.executor = m_queue};
        options.onProgress = [this](const norla::CTransferProgress& progress) {
            m_calls += 'p';
            m_last = progress;
        };
        options.onDone = [this](CTransfer&) { m_calls += 'd'; };
        return options;
    }

    void expectProgressBeforeTheEnd(long long received)
    {
        pool().stop();
        m_queue->runPending();
        EXPECT_EQ(m_calls, "pd");
        EXPECT_EQ(m_last.received, received);
    }

    const kx::P<norla::CExecutorQueue> m_queue = kx::newObj<norla::CExecutorQueue>();
    std::string m_calls;
    norla::CTransferProgress m_last;
};

TEST_F(PoolLastProgressTest, isThatOfATransferThatFails)
{
    server().onConnection().readHead().send("HTTP/1.1 200 OK\r\nContent-Length: 6\r\n\r\nabc").close();
    const auto transfer = pool().start(newRequest().get(), recording());
    EXPECT_TRUE(transfer->wait(longest));
    EXPECT_EQ(transfer->getState(), TransferState::Failed);
    expectProgressBeforeTheEnd(3);
}

TEST_F(PoolLastProgressTest, isThatOfATransferThatIsStopped)
{
    server().onConnection().readHead().send("HTTP/1.1 200 OK\r\nContent-Length: 6\r\n\r\nabc").stall();
    const auto transfer = pool().start(newRequest().get(), recording());
    EXPECT_TRUE(waitUntil([&] { return transfer->getProgress().received == 3; }));
    expectProgressBeforeTheEnd(3);
}

TEST_F(PoolLastProgressTest, isToldOfATransferThatIsCancelledBeforeItBegins)
{
    startStalled();
    const auto transfer = pool().start(newRequest().get(), recording());
    transfer->cancel();
    EXPECT_TRUE(transfer->wait(longest));
    expectProgressBeforeTheEnd(0);
}

TEST_F(PoolLastProgressTest, isToldOfATransferThatIsStoppedBeforeItBegins)
{
    startStalled();
    pool().start(newRequest().get(), recording());
    expectProgressBeforeTheEnd(0);
}

TEST_F(PoolLastProgressTest, isNotThatOfTheRequestsTransferBefore)
{
    answer(ok("hello"));
    const auto request = newRequest();
    EXPECT_TRUE(pool().start(request.get())->wait(longest));
    startStalled();
    const auto transfer = pool().start(request.get(), recording());
    transfer->cancel();
    EXPECT_TRUE(transfer->wait(longest));
    expectProgressBeforeTheEnd(0);
    EXPECT_FALSE(m_last.toReceive);
    EXPECT_EQ(transfer->getProgress().received, 0);
}

TEST_F(PoolCallbacksTest, callsNobodyAfterItsStop)
{
    server().onConnection().readHead().send("HTTP/1.1 200 OK\r\nContent-Length: 6\r\n\r\nabc").stall();
    const auto held = std::make_shared<std::atomic<int>>(0);
    CTransfer::Options options;
    options.onProgress = [held](const norla::CTransferProgress&) { ++*held; };
    options.onDone = [held](CTransfer&) { ++*held; };
    const auto transfer = pool().start(newRequest().get(), options);
    options = {};
    EXPECT_TRUE(waitUntil([&] { return *held > 0; }));
    pool().stop();
    EXPECT_EQ(held.use_count(), 1);
}

TEST_F(PoolCallbacksTest, endsATransferWhoseProgressThrows)
{
    const support::CLogRecorder log;
    CTransfer::Options options;
    options.onProgress = [](const norla::CTransferProgress&) { throw std::runtime_error("enough"); };
    const auto transfer = startStalled(options);
    ASSERT_TRUE(transfer->wait(longest));
    EXPECT_EQ(failureOf(transfer), "enough");
    EXPECT_EQ(transfer->getState(), TransferState::Failed);
}

TEST_F(PoolCallbacksTest, letsARequestGoWithTheEnd)
{
    const auto gone = std::make_shared<std::atomic<bool>>(false);
    {
        answer(ok(""));
        const auto request = kx::newObj<CWatchedRequest>(gone);
        request->setURL(newRequest()->getURL());
        EXPECT_TRUE(pool().start(request.get())->wait(longest));
    }
    destroyPool();
    EXPECT_TRUE(*gone);
}

TEST_F(PoolCallbacksTest, letsARequestGoWhoseProgressThrowsAfterTheEndOfThePool)
{
    const auto gone = std::make_shared<std::atomic<bool>>(false);
    {
        const auto queue = kx::newObj<norla::CExecutorQueue>();
        const auto request = kx::newObj<CWatchedRequest>(gone);
        request->setURL(stalledRequest()->getURL());
        CTransfer::Options options{.executor = queue};
        options.onProgress = [this](const norla::CTransferProgress&) {
            pool().stop();
            throw kx::CError("no more");
        };
        const auto transfer = pool().start(request.get(), options);
        EXPECT_TRUE(waitUntil([&] { return queue->runPending() != 0; }));
        queue->runPending(); // the end
        EXPECT_TRUE(transfer->isDone());
    }
    destroyPool();
    EXPECT_TRUE(*gone);
}

} // namespace
