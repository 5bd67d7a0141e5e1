#include "norla/pool/await.h"

#include "kx/base/CInvalidArgError.h"
#include "norla/core/errorKind.h"
#include "norla/pool/CExecutorQueue.h"
#include "tests/norla/pool/CCoroutine.h"
#include "tests/norla/pool/CPoolFixture.h"
#include "tests/support/CLogRecorder.h"
#include "tests/support/errorOf.h"

#include <future>
#include <mutex>
#include <poll.h>

namespace {

using norla::CTransfer;
using norla::CTransferPool;
using norla::ErrorKind;

/// What comes of an awaited transfer.
struct COutcome {
    kx::P<CTransfer> transfer;
    kx::P<kx::CError> error;
    std::thread::id thread;
};

CCoroutine await(
    CTransferPool& pool, kx::P<norla::CNetRequest> request, COutcome& outcome, CTransfer::Options options = {})
{
    try {
        outcome.transfer = co_await pool.run(request.get(), options);
    } catch (const kx::CError& error) {
        outcome.error = error.clone();
    }
    outcome.thread = std::this_thread::get_id();
}

class AwaitTest : public CPoolFixture {
protected:
    ~AwaitTest() override { pool().stop(); }

    /// Waits until the server has got a request. Sockets that still connect libcurl closes behind the pool's back,
    /// which ThreadSanitizer takes for a race when another thread gets their numbers.
    void waitForRequest(size_t connection)
    {
        EXPECT_TRUE(waitUntil([&] { return !server().received(connection).empty(); }));
    }

    /// Runs what waits in the queue until the coroutine has ended.
    static bool runUntilEnd(norla::CExecutorQueue& queue, const CCoroutine& coroutine)
    {
        while (!coroutine.hasEnded() && waitForTasks(queue))
            queue.runPending();
        return coroutine.hasEnded();
    }

    static bool waitForTasks(const norla::CExecutorQueue& queue)
    {
        pollfd descriptor{queue.getDescriptor(), POLLIN, 0};
        return poll(&descriptor, 1, longest) == 1;
    }

    /// How the transfer of a request has ended that nobody awaits any more.
    std::string endOf(const Request& request)
    {
        EXPECT_TRUE(waitUntil([&] { return request->isAsyncDone(); }));
        return resultOf(request);
    }

    static inline const std::string cancelled
        = "Operation was aborted by an application callback: the transfer was cancelled";
    COutcome m_outcome;
};

TEST_F(AwaitTest, givesTheTransferAfterItsSuccess)
{
    answer(ok("hello"));
    const auto request = newRequest();
    const CCoroutine coroutine = await(pool(), request, m_outcome);
    ASSERT_TRUE(coroutine.wait());
    ASSERT_NE(m_outcome.transfer, nullptr);
    EXPECT_EQ(&m_outcome.transfer->getRequest(), request.get());
    EXPECT_EQ(bodyOf(request), "hello");
}

TEST_F(AwaitTest, throwsTheErrorOfAFailure)
{
    answer("HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\n\r\n");
    const CCoroutine coroutine = await(pool(), newRequest(), m_outcome);
    ASSERT_TRUE(coroutine.wait());
    ASSERT_NE(m_outcome.error, nullptr);
    EXPECT_EQ(norla::getErrorKind(*m_outcome.error), ErrorKind::NotFound);
}

TEST_F(AwaitTest, throwsWhatRefusesTheStart)
{
    const CCoroutine coroutine = await(pool(), nullptr, m_outcome);
    ASSERT_NE(m_outcome.error, nullptr);
    EXPECT_EQ(m_outcome.error->getMessage(), support::messageOf([this] { pool().start(nullptr); }));
}

TEST_F(AwaitTest, throwsThatThePoolWasStopped)
{
    pool().stop();
    const CCoroutine coroutine = await(pool(), newRequest(), m_outcome);
    ASSERT_NE(m_outcome.error, nullptr);
    EXPECT_EQ(m_outcome.error->getMessage(), "A transfer cannot be started: its pool was stopped.");
}

TEST_F(AwaitTest, startsNothingThatIsNotAwaited)
{
    const auto request = newRequest();
    {
        const auto awaiter = pool().run(request.get());
        EXPECT_FALSE(request->isManaged());
    }
    EXPECT_FALSE(request->isManaged());
}

template <typename TPool>
concept TakesOptionsInBraces = requires(TPool& pool)
{
    pool.run(nullptr, CTransfer::Options{});
};

TEST_F(AwaitTest, takesNoOptionsThatACompilerWouldDestroyTwice)
{
    EXPECT_FALSE(TakesOptionsInBraces<CTransferPool>);
}

TEST_F(AwaitTest, goesOnOnThePoolsThreadWithoutAnExecutor)
{
    answer(ok(""));
    std::thread::id poolsThread;
    CTransfer::Options options;
    options.onDone = [&](CTransfer&) { poolsThread = std::this_thread::get_id(); };
    const CCoroutine coroutine = await(pool(), newRequest(), m_outcome, options);
    ASSERT_TRUE(coroutine.wait());
    EXPECT_EQ(m_outcome.thread, poolsThread);
    EXPECT_NE(m_outcome.thread, std::this_thread::get_id());
}

TEST_F(AwaitTest, goesOnWhereThePoolsExecutorRunsIt)
{
    answer(ok(""));
    const auto queue = kx::newObj<norla::CExecutorQueue>();
    replacePool({.executor = queue});
    const CCoroutine coroutine = await(pool(), newRequest(), m_outcome);
    ASSERT_TRUE(runUntilEnd(*queue, coroutine));
    EXPECT_EQ(m_outcome.thread, std::this_thread::get_id());
}

TEST_F(AwaitTest, goesOnWhereTheExecutorOfTheOptionsRunsIt)
{
    answer(ok(""));
    const auto queue = kx::newObj<norla::CExecutorQueue>();
    const CCoroutine coroutine = await(pool(), newRequest(), m_outcome, {.executor = queue});
    ASSERT_TRUE(runUntilEnd(*queue, coroutine));
    EXPECT_EQ(m_outcome.thread, std::this_thread::get_id());
}

TEST_F(AwaitTest, goesOnBehindTheOtherCallbacks)
{
    answer(ok("hello"));
    std::vector<std::string> told;
    CTransfer::Options options;
    options.onProgress
        = [&](const norla::CTransferProgress& progress) { told.push_back(std::to_string(progress.received)); };
    options.onDone = [&](CTransfer& transfer) {
        told.emplace_back("done");
        EXPECT_FALSE(transfer.getError());
        EXPECT_EQ(m_outcome.transfer, nullptr);
    };
    const CCoroutine coroutine = await(pool(), newRequest(), m_outcome, options);
    ASSERT_TRUE(coroutine.wait());
    ASSERT_GE(told.size(), 2U);
    EXPECT_EQ(told[told.size() - 2], "5");
    EXPECT_EQ(told.back(), "done");
    EXPECT_EQ(std::count(told.begin(), told.end(), "done"), 1);
}

TEST_F(AwaitTest, goesOnAfterAnOnDoneThatThrows)
{
    const support::CLogRecorder log;
    answer(ok(""));
    CTransfer::Options options;
    options.onDone = [](CTransfer&) { throw std::runtime_error("oops"); };
    const CCoroutine coroutine = await(pool(), newRequest(), m_outcome, options);
    ASSERT_TRUE(coroutine.wait());
    EXPECT_NE(m_outcome.transfer, nullptr);
    EXPECT_EQ(log.lines().size(), 1U);
}

TEST_F(AwaitTest, throwsThatThePoolHasCancelledIt)
{
    const CCoroutine coroutine = await(pool(), stalledRequest(), m_outcome);
    waitForRequest(0);
    pool().stop();
    ASSERT_TRUE(coroutine.hasEnded());
    ASSERT_NE(m_outcome.error, nullptr);
    EXPECT_EQ(norla::getErrorKind(*m_outcome.error), ErrorKind::Cancelled);
}

CCoroutine awaitEach(CTransferPool& pool, std::vector<kx::P<norla::CNetRequest>> requests, std::string& bodies)
{
    for (const auto& request : requests) {
        co_await pool.run(request.get());
        const auto body = request->getDefaultReceiveBuffer();
        bodies.append(reinterpret_cast<const char*>(body->getData()), body->getSize());
    }
}

TEST_F(AwaitTest, awaitsOneTransferAfterTheOther)
{
    std::vector<Request> requests;
    for (const char* const body : {"one ", "two ", "three"}) {
        answer(ok(body));
        requests.push_back(newRequest());
    }
    std::string bodies;
    const CCoroutine coroutine = awaitEach(pool(), requests, bodies);
    ASSERT_TRUE(coroutine.wait());
    EXPECT_EQ(bodies, "one two three");
}

TEST_F(AwaitTest, aCoroutineThatIsDestroyedCancelsItsTransfer)
{
    const auto request = stalledRequest();
    CCoroutine coroutine = await(pool(), request, m_outcome);
    waitForRequest(0);
    coroutine.destroy();
    EXPECT_EQ(endOf(request), cancelled);
    pool().stop();
    EXPECT_EQ(m_outcome.error, nullptr);
}

TEST_F(AwaitTest, aCoroutineThatIsDestroyedAfterTheEndIsNotToldOfIt)
{
    answer(ok(""));
    const auto queue = kx::newObj<norla::CExecutorQueue>();
    int calls = 0;
    CTransfer::Options options;
    options.executor = queue;
    options.onProgress = [&](const norla::CTransferProgress&) { ++calls; };
    options.onDone = [&](CTransfer&) { ++calls; };
    CCoroutine coroutine = await(pool(), newRequest(), m_outcome, options);
    ASSERT_TRUE(waitForTasks(*queue));
    pool().stop();
    coroutine.destroy();
    queue->runPending();
    EXPECT_EQ(calls, 0);
    EXPECT_EQ(m_outcome.transfer, nullptr);
}

TEST_F(AwaitTest, aCoroutineMayBeDestroyedInOnDone)
{
    answer(ok(""));
    const auto queue = kx::newObj<norla::CExecutorQueue>();
    CCoroutine* itself = nullptr;
    CTransfer::Options options;
    options.executor = queue;
    options.onDone = [&](CTransfer&) { itself->destroy(); };
    CCoroutine coroutine = await(pool(), newRequest(), m_outcome, options);
    itself = &coroutine;
    ASSERT_TRUE(waitForTasks(*queue));
    pool().stop();
    queue->runPending();
    EXPECT_EQ(m_outcome.transfer, nullptr);
}

TEST_F(AwaitTest, letsEverythingGoWhenAnExecutorDropsTheEnd)
{
    answer(ok(""));
    auto queue = kx::newObj<norla::CExecutorQueue>();
    auto held = std::make_shared<int>(0);
    {
        const CCoroutine coroutine
            = await(pool(), newRequest(), m_outcome, {.onDone = [held](CTransfer&) {}, .executor = queue});
        ASSERT_TRUE(waitForTasks(*queue));
        pool().stop();
        queue = nullptr;
        EXPECT_FALSE(coroutine.hasEnded());
    }
    EXPECT_EQ(held.use_count(), 1);
}

/// Runs its tasks at once, and none while somebody holds it.
class CHeldExecutor : public kx::CBase, public virtual norla::IExecutor {
public:
    void execute(std::function<void()> task) override
    {
        const std::lock_guard lock(mutex);
        task();
    }

    std::mutex mutex;
};

CCoroutine countEnd(CTransferPool& pool, kx::P<norla::CNetRequest> request, kx::P<CHeldExecutor> executor, int& ends)
{
    const CTransfer::Options options{.executor = std::move(executor)};
    co_await pool.run(request.get(), options);
    ++ends;
}

TEST_F(AwaitTest, coroutinesMayGoWhileTheirTransfersEnd)
{
    const auto executor = kx::newObj<CHeldExecutor>();
    for (size_t round = 0; round < 100; ++round) {
        answer(ok(""));
        int ends = 0;
        const auto request = newRequest();
        CCoroutine coroutine = countEnd(pool(), request, executor, ends);
        waitForRequest(round);
        const bool isAfterTheEnd = round % 2 == 0;
        EXPECT_TRUE(waitUntil([&] { return !isAfterTheEnd || request->isAsyncDone(); }));
        const std::lock_guard lock(executor->mutex);
        EXPECT_EQ(ends, coroutine.hasEnded() ? 1 : 0);
        coroutine.destroy();
    }
}

} // namespace
