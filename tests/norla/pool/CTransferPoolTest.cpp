#include "norla/pool/CTransferPool.h"

#include "kx/base/CInvalidArgError.h"
#include "norla/core/CCURLError.h"
#include "norla/core/errorKind.h"
#include "norla/core/explain.h"
#include "norla/pool/CExecutorQueue.h"
#include "tests/norla/pool/CPoolFixture.h"
#include "tests/support/CBusyPort.h"
#include "tests/support/CLogRecorder.h"
#include "tests/support/CRawClient.h"
#include "tests/support/errorOf.h"
#include "tests/support/sleepingThread.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <future>
#include <limits>
#include <mutex>
#include <poll.h>
#include <set>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

using norla::CTransfer;
using norla::CTransferPool;
using norla::ErrorKind;
using norla::TransferState;
using support::messageOf;

class CTransferPoolTest : public CPoolFixture {
protected:
    /// As many options as each end counts in.
    CTransfer::Options countingEnds()
    {
        CTransfer::Options options;
        options.onDone = [this](CTransfer&) { ++m_ends; };
        return options;
    }

    std::atomic<int> m_ends{0};
};

TEST_F(CTransferPoolTest, runsATransfer)
{
    answer(ok("hello"));
    const auto request = newRequest();
    const auto transfer = pool().start(request.get());
    ASSERT_TRUE(transfer->wait(longest));
    EXPECT_EQ(failureOf(transfer), "");
    EXPECT_EQ(bodyOf(request), "hello");
    EXPECT_EQ(transfer->getState(), TransferState::Succeeded);
}

TEST_F(CTransferPoolTest, knowsItsRequest)
{
    answer(ok(""));
    const auto request = newRequest();
    const auto transfer = pool().start(request.get());
    EXPECT_EQ(&transfer->getRequest(), request.get());
    transfer->wait(longest);
}

TEST_F(CTransferPoolTest, tellsAFailure)
{
    answer("HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\n\r\n");
    const auto transfer = pool().start(newRequest().get());
    ASSERT_TRUE(transfer->wait(longest));
    EXPECT_EQ(transfer->getState(), TransferState::Failed);
    const auto error = support::errorOf([&] { transfer->check(); });
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(norla::getErrorKind(*error), ErrorKind::NotFound);
}

TEST_F(CTransferPoolTest, tellsAURLThatIsRefused)
{
    const auto transfer = pool().start(badRequest().get());
    ASSERT_TRUE(transfer->wait(longest));
    EXPECT_EQ(transfer->getState(), TransferState::Failed);
}

TEST_F(CTransferPoolTest, isNotDoneWhileItRuns)
{
    const auto transfer = startStalled();
    EXPECT_FALSE(transfer->isDone());
    EXPECT_FALSE(transfer->wait(0));
    EXPECT_EQ(transfer->getState(), TransferState::Running);
    EXPECT_EQ(transfer->getError(), nullptr);
    EXPECT_NO_THROW(transfer->check());
}

TEST_F(CTransferPoolTest, tellsTheRequestsListenerAndSignalTheEnd)
{
    answer(ok("hello"));
    const auto request = newRequest();
    std::atomic<bool> isSuccess{false};
    const auto listener = kx::newObj<CActionListener>(
        [&](norla::CNetRequest*, const kx::CError* error) { isSuccess = error == nullptr; });
    request->setDoneListener(listener.get());
    pool().addRequest(request.get());
    EXPECT_TRUE(request->waitAsyncDone(longest));
    pool().stop(); // behind the listener
    EXPECT_EQ(listener->m_calls, 1);
    EXPECT_TRUE(isSuccess);
    EXPECT_EQ(resultOf(request), "success");
}

TEST_F(CTransferPoolTest, tellsTheEndAlsoWhenTheRequestsListenerThrows)
{
    const support::CLogRecorder log;
    answer(ok("hello"));
    const auto request = newRequest();
    const auto listener
        = kx::newObj<CActionListener>([](norla::CNetRequest*, const kx::CError*) { throw std::runtime_error("oops"); });
    request->setDoneListener(listener.get());
    const auto transfer = pool().start(request.get(), countingEnds());
    EXPECT_TRUE(transfer->wait(longest));
    pool().stop();
    EXPECT_EQ(m_ends, 1);
    EXPECT_EQ(resultOf(request), "success");
    EXPECT_EQ(log.lines(), std::vector<std::string>{"error: A done listener has thrown (ignored).: oops"});
}

TEST_F(CTransferPoolTest, tellsTheEndOnce)
{
    answer(ok("hello"));
    const auto transfer = pool().start(newRequest().get(), countingEnds());
    transfer->wait(longest);
    pool().stop();
    EXPECT_EQ(m_ends, 1);
}

TEST_F(CTransferPoolTest, takesARequestThatHasRunBefore)
{
    answer(ok("first"));
    answer(ok("second"));
    const auto request = newRequest();
    pool().start(request.get())->wait(longest);
    const auto transfer = pool().start(request.get());
    EXPECT_TRUE(transfer->wait(longest));
    EXPECT_EQ(bodyOf(request), "second");
}

TEST_F(CTransferPoolTest, aRequestThatWaitsForItsStartIsNotDone)
{
    replacePool({.atOnce = 1});
    answer(ok("first"));
    const auto request = newRequest();
    pool().start(request.get())->wait(longest);
    startStalled();
    const auto transfer = pool().start(request.get());
    EXPECT_FALSE(request->isAsyncDone());
    EXPECT_EQ(transfer->getState(), TransferState::Queued);
}

TEST_F(CTransferPoolTest, refusesARequestThatRuns)
{
    const auto running = startStalled();
    const auto error = support::errorOf([&] { pool().start(&running->getRequest()); });
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getDomain(), "curlm");
    EXPECT_EQ(error->getCode(), CURLM_ADDED_ALREADY);
    EXPECT_EQ(running->getState(), TransferState::Running);
}

TEST_F(CTransferPoolTest, refusesNoRequest)
{
    EXPECT_THROW(pool().start(nullptr), kx::CInvalidArgError);
    EXPECT_THROW(pool().addRequest(nullptr), kx::CInvalidArgError);
}

TEST_F(CTransferPoolTest, refusesOptionsThatMakeNoSense)
{
    EXPECT_EQ(messageOf([] { kx::newObj<CTransferPool>(CTransferPool::Options{.threads = 0}); }),
        "Invalid argument passed to 'norla::CTransferPool': the option 'threads' is less than 1.");
}

TEST_F(CTransferPoolTest, refusesToStartAfterItsStop)
{
    pool().stop();
    const auto request = newRequest();
    EXPECT_EQ(messageOf([&] { pool().start(request.get()); }), "A transfer cannot be started: its pool was stopped.");
    EXPECT_FALSE(request->isManaged());
}

TEST_F(CTransferPoolTest, cancelsATransferThatRuns)
{
    const auto transfer = startStalled(countingEnds());
    transfer->cancel();
    ASSERT_TRUE(transfer->wait(longest));
    EXPECT_EQ(transfer->getState(), TransferState::Cancelled);
    EXPECT_EQ(failureOf(transfer), "Operation was aborted by an application callback: the transfer was cancelled");
    EXPECT_EQ(norla::getErrorKind(*transfer->getError()), ErrorKind::Cancelled);
    pool().stop();
    EXPECT_EQ(m_ends, 1);
}

TEST_F(CTransferPoolTest, explainsInASentenceThatATransferWasCancelled)
{
    const auto transfer = startStalled();
    transfer->cancel();
    ASSERT_TRUE(transfer->wait(longest));
    EXPECT_EQ(norla::explain(*transfer->getError()),
        kx::String::fromUTF8(
            "The transfer with the server 127.0.0.1:" + std::to_string(server().getPort()) + " was cancelled."));
}

TEST_F(CTransferPoolTest, cancelsATransferThatWaitsForRoom)
{
    replacePool({.atOnce = 1});
    startStalled();
    const auto transfer = pool().start(newRequest().get());
    transfer->cancel();
    ASSERT_TRUE(transfer->wait(longest));
    EXPECT_EQ(transfer->getState(), TransferState::Cancelled);
    EXPECT_EQ(server().connectionCount(), 1U);
}

TEST_F(CTransferPoolTest, cancelsATransferInItsOwnSink)
{
    server().onConnection().readHead().send("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nabc").stall();
    const auto request = newRequest();
    std::promise<CTransfer*> started; // a reference would keep the request, and with it the sink
    auto future = started.get_future().share();
    const auto sink = kx::newObj<CActionSink>([future] { future.get()->cancel(); });
    request->setReceiveDataSink(sink.get());
    const auto transfer = pool().start(request.get());
    started.set_value(transfer.get());
    ASSERT_TRUE(transfer->wait(longest));
    EXPECT_EQ(transfer->getState(), TransferState::Cancelled);
}

TEST_F(CTransferPoolTest, leavesATransferAloneThatIsCancelledAfterItsEnd)
{
    answer(ok("hello"));
    const auto transfer = pool().start(newRequest().get(), countingEnds());
    transfer->wait(longest);
    transfer->cancel();
    pool().stop();
    transfer->cancel();
    EXPECT_EQ(transfer->getState(), TransferState::Succeeded);
    EXPECT_EQ(m_ends, 1);
}

TEST_F(CTransferPoolTest, withdrawsARequestWithoutTellingItsOwner)
{
    const auto transfer = startStalled(countingEnds());
    const auto listener = kx::newObj<CActionListener>([](norla::CNetRequest*, const kx::CError*) {});
    norla::CNetRequest& request = transfer->getRequest();
    EXPECT_TRUE(pool().removeRequest(&request));
    EXPECT_FALSE(request.isManaged());
    EXPECT_FALSE(request.isAsyncDone());
    EXPECT_FALSE(pool().removeRequest(&request));
    EXPECT_EQ(transfer->getState(), TransferState::Cancelled);
    pool().stop();
    EXPECT_EQ(m_ends, 1);
}

TEST_F(CTransferPoolTest, runsNoMoreAtOnceThanItMay)
{
    replacePool({.atOnce = 2});
    const auto first = startStalled();
    startStalled();
    answer(ok("third"));
    const auto third = pool().start(newRequest().get());
    EXPECT_EQ(third->getState(), TransferState::Queued);
    first->cancel();
    EXPECT_TRUE(third->wait(longest));
    EXPECT_EQ(third->getState(), TransferState::Succeeded);
}

TEST_F(CTransferPoolTest, isNotHeldUpByAHostThatIsSlow)
{
    replacePool({.perHost = 1});
    startStalled();
    const auto waiting = pool().start(newRequest().get());
    support::CScriptedServer other;
    other.onConnection().readHead().send(ok("quick"));
    const auto quick = pool().start(requestTo(other.url()).get());
    EXPECT_TRUE(quick->wait(longest));
    EXPECT_EQ(waiting->getState(), TransferState::Queued);
}

TEST_F(CTransferPoolTest, startsTheHigherPriorityFirst)
{
    replacePool({.atOnce = 1});
    const auto running = startStalled();
    std::vector<int> order;
    std::vector<Transfer> transfers;
    for (const int priority : {0, 2, 1, 2}) {
        answer(ok(""));
        CTransfer::Options options;
        options.priority = priority;
        options.onDone = [&order, priority](CTransfer&) { order.push_back(priority); };
        transfers.push_back(pool().start(newRequest().get(), options));
    }
    running->cancel();
    for (const Transfer& transfer : transfers)
        EXPECT_TRUE(transfer->wait(longest));
    pool().stop();
    EXPECT_EQ(order, (std::vector{2, 2, 1, 0}));
}

TEST_F(CTransferPoolTest, endsAnAttemptAtItsDeadline)
{
    CTransfer::Options options;
    options.attemptDeadline = kx::CTimeSpan::fromMilliseconds(50);
    const auto transfer = startStalled(options);
    ASSERT_TRUE(transfer->wait(longest));
    EXPECT_EQ(failureOf(transfer),
        "Timeout was reached: The transfer with 127.0.0.1:" + std::to_string(server().getPort())
            + " was not done within 50 milliseconds, the time for one attempt.");
    EXPECT_EQ(norla::getErrorKind(*transfer->getError()), ErrorKind::TotalTimeout);
}

TEST_F(CTransferPoolTest, countsADeadlineFromTheStartAndNotFromTheQueue)
{
    replacePool({.atOnce = 1});
    const auto running = startStalled();
    answer(ok("late"));
    CTransfer::Options options;
    options.deadline = kx::CTimeSpan::fromSeconds(2);
    options.attemptDeadline = kx::CTimeSpan::fromSeconds(2);
    const auto transfer = pool().start(newRequest().get(), options);
    EXPECT_FALSE(transfer->wait(2'100));
    running->cancel();
    EXPECT_TRUE(transfer->wait(longest));
    EXPECT_EQ(failureOf(transfer), "");
}

TEST_F(CTransferPoolTest, takesDeadlinesThatNobodyLivesToSee)
{
    const auto never = kx::CTimeSpan::fromMicroseconds(std::numeric_limits<long long>::max());
    CTransfer::Options options{.attemptDeadline = never, .deadline = never};
    options.retries.budget = never;
    answer(ok("hello"));
    const auto transfer = pool().start(newRequest().get(), options);
    ASSERT_TRUE(transfer->wait(longest));
    EXPECT_EQ(failureOf(transfer), "");
}

TEST_F(CTransferPoolTest, takesPausesThatNobodyLivesToSee)
{
    CTransfer::Options options;
    options.retries = {.attempts = 2,
        .firstPause = kx::CTimeSpan::infinite(),
        .longestPause = kx::CTimeSpan::infinite(),
        .jitter = false};
    answer("HTTP/1.1 503 Busy\r\nContent-Length: 0\r\n\r\n");
    const auto transfer = pool().start(newRequest().get(), options);
    EXPECT_TRUE(waitUntil([&] { return transfer->getState() == TransferState::Pausing; }));
    EXPECT_FALSE(transfer->wait(100));
    EXPECT_EQ(transfer->getState(), TransferState::Pausing);
}

TEST_F(CTransferPoolTest, endsAtOnceWhatHasLessThanNoTime)
{
    CTransfer::Options options;
    options.retries.budget = kx::CTimeSpan::fromSeconds(-1);
    const auto transfer = pool().start(stalledRequest().get(), options);
    ASSERT_TRUE(transfer->wait(longest));
    EXPECT_EQ(norla::getErrorKind(*transfer->getError()), ErrorKind::TotalTimeout);
}

TEST_F(CTransferPoolTest, tellsAllEndsWhenItIsStopped)
{
    replacePool({.atOnce = 1});
    startStalled(countingEnds());
    for (int count = 0; count < 10; ++count)
        pool().start(newRequest().get(), countingEnds());
    pool().stop();
    EXPECT_EQ(m_ends, 11);
}

TEST_F(CTransferPoolTest, tellsAllEndsWhenItGoes)
{
    const auto transfer = startStalled(countingEnds());
    destroyPool();
    EXPECT_EQ(m_ends, 1);
    EXPECT_EQ(transfer->getState(), TransferState::Cancelled);
}

TEST_F(CTransferPoolTest, mayBeStoppedInACallback)
{
    answer(ok(""));
    CTransfer::Options options;
    options.onDone = [this](CTransfer&) { pool().stop(); };
    const auto transfer = pool().start(newRequest().get(), options);
    EXPECT_TRUE(transfer->wait(longest));
    pool().stop();
    EXPECT_THROW(pool().start(newRequest().get()), kx::CError);
}

TEST_F(CTransferPoolTest, mayGoInACallback)
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

TEST_F(CTransferPoolTest, startsAnotherInACallback)
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

TEST_F(CTransferPoolTest, logsWhatOnDoneThrows)
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

TEST_F(CTransferPoolTest, callsBackOnTheExecutor)
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

TEST_F(CTransferPoolTest, letsNoCallbackGoWhileItRuns)
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

TEST_F(CTransferPoolTest, letsCallbacksGoWithTheEnd)
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

TEST_F(CTransferPoolTest, tellsProgressWhileItRunsAndAtTheEnd)
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

TEST_F(CTransferPoolTest, tellsProgressAtMostEvery100Milliseconds)
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

TEST_F(CTransferPoolTest, callsNobodyAfterItsStop)
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

TEST_F(CTransferPoolTest, endsATransferWhoseProgressThrows)
{
    const support::CLogRecorder log;
    CTransfer::Options options;
    options.onProgress = [](const norla::CTransferProgress&) { throw std::runtime_error("enough"); };
    const auto transfer = startStalled(options);
    ASSERT_TRUE(transfer->wait(longest));
    EXPECT_EQ(failureOf(transfer), "enough");
    EXPECT_EQ(transfer->getState(), TransferState::Failed);
}

TEST_F(CTransferPoolTest, letsARequestGoWithTheEnd)
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

TEST_F(CTransferPoolTest, letsARequestGoWhoseProgressThrowsAfterTheEndOfThePool)
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

TEST_F(CTransferPoolTest, answersHowFarItIs)
{
    server().onConnection().readHead().send("HTTP/1.1 200 OK\r\nContent-Length: 6\r\n\r\nabc").stall();
    const auto transfer = pool().start(newRequest().get());
    EXPECT_TRUE(waitUntil([&] { return transfer->getProgress().received == 3; }));
    EXPECT_EQ(transfer->getProgress().toReceive, 6);
}

TEST_F(CTransferPoolTest, triesAgain)
{
    answer("HTTP/1.1 503 Busy\r\nContent-Length: 0\r\n\r\n");
    answer(ok("at last"));
    CTransfer::Options options = countingEnds();
    options.retries = {.attempts = 2, .firstPause = kx::CTimeSpan::fromMilliseconds(1)};
    const auto request = newRequest();
    const auto transfer = pool().start(request.get(), options);
    ASSERT_TRUE(transfer->wait(longest));
    EXPECT_EQ(bodyOf(request), "at last");
    const auto attempts = transfer->getAttempts();
    ASSERT_EQ(attempts.size(), 2U);
    EXPECT_NE(attempts[0].error, nullptr);
    EXPECT_EQ(attempts[1].error, nullptr);
    pool().stop();
    EXPECT_EQ(m_ends, 1);
}

TEST_F(CTransferPoolTest, cancelsATransferInThePauseBeforeAnotherAttempt)
{
    answer("HTTP/1.1 503 Busy\r\nContent-Length: 0\r\n\r\n");
    CTransfer::Options options;
    options.retries = {.attempts = 2,
        .firstPause = kx::CTimeSpan::fromSeconds(100),
        .longestPause = kx::CTimeSpan::infinite(),
        .jitter = false};
    const auto transfer = pool().start(newRequest().get(), options);
    ASSERT_TRUE(waitUntil([&] { return transfer->getState() == TransferState::Pausing; }));
    transfer->cancel();
    ASSERT_TRUE(transfer->wait(longest));
    EXPECT_EQ(transfer->getState(), TransferState::Cancelled);
    EXPECT_EQ(norla::getErrorKind(*transfer->getError()), ErrorKind::Cancelled);
}

TEST_F(CTransferPoolTest, makesRoomWhileOnePauses)
{
    replacePool({.atOnce = 1});
    answer("HTTP/1.1 503 Busy\r\nContent-Length: 0\r\n\r\n");
    CTransfer::Options options;
    options.retries = {.attempts = 2,
        .firstPause = kx::CTimeSpan::fromSeconds(100),
        .longestPause = kx::CTimeSpan::infinite(),
        .jitter = false};
    const auto pausing = pool().start(newRequest().get(), options);
    ASSERT_TRUE(waitUntil([&] { return pausing->getState() == TransferState::Pausing; }));
    answer(ok("meanwhile"));
    EXPECT_TRUE(pool().start(newRequest().get())->wait(longest));
}

TEST_F(CTransferPoolTest, doesNoHarmInAChildProcess)
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

TEST_F(CTransferPoolTest, refusesWhatWouldNeverEndInAChildProcess)
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

TEST_F(CTransferPoolTest, refusesToWaitForItselfOnItsOwnThread)
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
TEST_F(CTransferPoolTest, goesInAChildProcessWhateverTheParentsThreadsDo)
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

TEST_F(CTransferPoolTest, runsManyOnSeveralThreads)
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
TEST_F(CTransferPoolTest, goesOnWhenAnFTPServerSaysWhereItsDataAreBeforeItIsWaitedFor)
{
    support::CScriptedServer data;
    data.onConnection().send("one");
    data.onConnection().send("two");
    const std::string place = "229 Here (|||" + std::to_string(data.getPort()) + "|)\r\n";
    server()
        .onConnection()
        .send("220 Hello\r\n")
        .readUntil("\r\n")
        .send("230 In\r\n")
        .readUntil("PWD\r\n")
        .send("257 \"/\"\r\n")
        .readUntil("EPSV\r\n")
        .send(place)
        .readUntil("TYPE I\r\n")
        .send("200 Yes\r\n")
        .readUntil("\r\n")
        .send("213 3\r\n")
        .readUntil("\r\n")
        .send("150 Now\r\n226 Done\r\n" + place) // which answers the next EPSV
        .readUntil("EPSV\r\n")
        .readUntil("\r\n")
        .send("213 3\r\n")
        .readUntil("\r\n")
        .send("150 Now\r\n226 Done\r\n")
        .readToEnd();
    for (const char* body : {"one", "two"}) {
        const auto request = requestTo(server().url("/file", "ftp"));
        const auto transfer = pool().start(request.get());
        ASSERT_TRUE(transfer->wait(longest)) << body;
        EXPECT_EQ(failureOf(transfer), "");
        EXPECT_EQ(bodyOf(request), body);
    }
}

/// Takes data connections that the server makes, whose sockets libcurl opens and closes itself.
class ActiveFTPTest : public CTransferPoolTest {
protected:
    static constexpr int pieces = 10;

    /// What the server says on one connection, beside the data.
    void expectDownloads(int count)
    {
        support::CScript& script = server().onConnection();
        script.send("220 Hello\r\n").readUntil("\r\n").send("230 In\r\n").readUntil("PWD\r\n").send("257 \"/\"\r\n");
        for (int number = 0; number < count; ++number) {
            script.readUntil("EPRT ").readUntil("\r\n").send("200 Yes\r\n");
            if (number == 0)
                script.readUntil("TYPE I\r\n").send("200 Yes\r\n");
            script.readUntil("\r\n").send("213 10\r\n").readUntil("RETR").readUntil("\r\n");
            script.send("150 Now\r\n226 Done\r\n");
        }
        script.readUntil("QUIT\r\n");
    }

    /// Makes the data connection, on which a byte comes when the one before was taken.
    void sendPieces(int number, const std::atomic<int>& taken)
    {
        ASSERT_TRUE(waitUntil([&] { return countOf("RETR ") > number; }));
        support::CRawClient data(askedPort());
        for (int count = 0; count < pieces; ++count) {
            data.send("x");
            ASSERT_TRUE(waitUntil([&] { return taken > count; }));
        }
    }

private:
    int countOf(const std::string& text)
    {
        const std::string received = server().received(0);
        int count = 0;
        for (size_t at = received.find(text); at != std::string::npos; at = received.find(text, at + 1))
            ++count;
        return count;
    }

    /// Of the last "EPRT |1|127.0.0.1|port|".
    unsigned short askedPort()
    {
        const std::string received = server().received(0);
        const size_t end = received.rfind('|');
        const size_t begin = received.rfind('|', end - 1) + 1;
        return static_cast<unsigned short>(std::stoi(received.substr(begin, end - begin)));
    }
};

// Whose socket has the number of the first one's as a rule.
TEST_F(ActiveFTPTest, takesAtOnceWhatComesOverTheSecondConnection)
{
    constexpr int downloads = 2;
    expectDownloads(downloads);
    for (int number = 0; number < downloads; ++number) {
        std::atomic<int> taken{0};
        const auto request = requestTo(server().url("/file", "ftp"));
        request->setOptionString(CURLOPT_FTPPORT, "-");
        request->setReceiveDataSink(kx::newObj<CActionSink>([&taken] { ++taken; }).get());
        const auto transfer = pool().start(request.get(), {.attemptDeadline = kx::CTimeSpan::fromSeconds(5)});
        sendPieces(number, taken); // libcurl looks once a second without being told
        ASSERT_TRUE(transfer->wait(longest));
        EXPECT_EQ(failureOf(transfer), "");
    }
}

/// A transfer that its own sink pauses, and that another one's end lets go on.
class PausedTransferTest : public CTransferPoolTest {
protected:
    std::chrono::steady_clock::duration timeToItsEnd()
    {
        const auto request = newRequest();
        CURL* const handle = request->getEasyHandle();
        std::atomic<bool> isPaused{false};
        request->setReceiveDataSink(kx::newObj<CActionSink>([&isPaused, handle] {
            if (!isPaused.exchange(true))
                curl_easy_pause(handle, CURLPAUSE_RECV);
        }).get());
        answer(ok("hello")); // after which its socket has nothing to say
        const auto paused = pool().start(request.get());
        EXPECT_TRUE(waitUntil([&isPaused] { return isPaused.load(); }));
        EXPECT_FALSE(paused->wait(300)); // libcurl looks by itself in the beginning
        const auto start = letGoOn(handle);
        EXPECT_TRUE(paused->wait(longest));
        EXPECT_EQ(failureOf(paused), "");
        return std::chrono::steady_clock::now() - start;
    }

private:
    std::chrono::steady_clock::time_point letGoOn(CURL* handle)
    {
        std::promise<std::chrono::steady_clock::time_point> moment;
        answer(ok(""));
        CTransfer::Options options;
        options.onDone = [&moment, handle](CTransfer&) {
            curl_easy_pause(handle, CURLPAUSE_CONT);
            moment.set_value(std::chrono::steady_clock::now());
        };
        pool().start(newRequest().get(), options);
        return moment.get_future().get();
    }
};

// libcurl looks once a second without being told.
TEST_F(PausedTransferTest, goesOnAtOnceWhenACallbackOfAnotherOneLetsIt)
{
    constexpr auto shortest = std::chrono::milliseconds(150);
    auto quickest = std::chrono::steady_clock::duration::max();
    for (int count = 0; count < 10 && quickest > shortest; ++count)
        quickest = std::min(quickest, timeToItsEnd());
    EXPECT_LE(quickest, shortest);
}

/// A transfer behind one that was given up while it was connecting, whose socket's number it has as a rule.
class GivenUpConnectionTest : public CTransferPoolTest {
protected:
    using Request = CAsyncFixture::Request;

    /// Without a watch libcurl looks again after 200 ms, each time; a busy machine takes that long now and then.
    /// then.
    void expectQuickEnd(const std::function<Request(const std::string&)>& makeRequest)
    {
        constexpr auto shortest = std::chrono::milliseconds(150);
        auto quickest = std::chrono::steady_clock::duration::max();
        for (int count = 0; count < 10 && quickest > shortest; ++count)
            quickest = std::min(quickest, timeOfTransfer(makeRequest));
        EXPECT_LE(quickest, shortest);
    }

private:
    std::chrono::steady_clock::duration timeOfTransfer(const std::function<Request(const std::string&)>& makeRequest)
    {
        const auto givenUp = pool().start(makeRequest(m_busy.url()).get());
        EXPECT_FALSE(givenUp->wait(100)); // it has come to wait for the connection
        givenUp->cancel();
        givenUp->wait(longest);
        answer("HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: 0\r\n\r\n");
        const auto start = std::chrono::steady_clock::now();
        EXPECT_TRUE(pool().start(makeRequest(server().url()).get())->wait(longest));
        return std::chrono::steady_clock::now() - start;
    }

    const support::CBusyPort m_busy;
};

TEST_F(GivenUpConnectionTest, leavesItsNumberToOneThatIsWatched)
{
    expectQuickEnd(&GivenUpConnectionTest::requestTo);
}

TEST_F(GivenUpConnectionTest, leavesItsNumberToOneThatIsWatchedAlsoWhereTheApplicationOpensThem)
{
    expectQuickEnd([](const std::string& url) {
        const auto open = [](void*, curlsocktype, curl_sockaddr* address) {
            return static_cast<curl_socket_t>(::socket(address->family, address->socktype, address->protocol));
        };
        auto request = requestTo(url);
        request->setOptionPtr(CURLOPT_OPENSOCKETFUNCTION, reinterpret_cast<void*>(+open));
        return request;
    });
}

} // namespace
