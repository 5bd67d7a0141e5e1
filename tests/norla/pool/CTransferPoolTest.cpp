#include "norla/pool/CTransferPool.h"

#include "kx/base/CInvalidArgError.h"
#include "norla/core/errorKind.h"
#include "norla/core/explain.h"
#include "tests/norla/pool/CPoolFixture.h"
#include "tests/support/CLogRecorder.h"
#include "tests/support/errorOf.h"

#include <atomic>
#include <future>
#include <limits>
#include <vector>

namespace {

using norla::CTransfer;
using norla::CTransferPool;
using norla::ErrorKind;
using norla::TransferState;
using support::messageOf;

class CTransferPoolTest : public CPoolFixture {};

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

TEST_F(CTransferPoolTest, leavesRoomBesideAHostThatIsSlow)
{
    constexpr int all = 256;
    for (int count = 0; count < all; ++count) {
        server().onConnection().stall();
        pool().start(newRequest().get());
    }
    support::CScriptedServer other;
    other.onConnection().readHead().send(ok("quick"));
    EXPECT_TRUE(pool().start(requestTo(other.url()).get())->wait(longest));
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

} // namespace
