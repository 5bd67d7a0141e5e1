// A transfer is cancelled, and its pool stopped and destroyed, wherever the transfer is.
#include "norla/core/errorKind.h"
#include "tests/norla/async/CLookupGate.h"
#include "tests/norla/pool/CPoolFixture.h"
#include "tests/support/CBusyPort.h"
#include "tests/support/sleepingThread.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <future>
#include <iostream>
#include <mutex>
#include <set>
#include <string>
#include <thread>

namespace {

using norla::CTransfer;
using norla::TransferState;

enum class Place { Queued, Resolving, Connecting, InTLS, InHeaders, InTheBody, InThePause };

struct CPlaceRow {
    Place place;
    const char* name;
};

constexpr CPlaceRow places[] = {{Place::Queued, "Queued"}, {Place::Resolving, "Resolving"},
    {Place::Connecting, "Connecting"}, {Place::InTLS, "InTLS"}, {Place::InHeaders, "InHeaders"},
    {Place::InTheBody, "InTheBody"}, {Place::InThePause, "InThePause"}};

void PrintTo(const CPlaceRow& row, std::ostream* out)
{
    *out << row.name;
}

using CTime = std::chrono::steady_clock::duration;

constexpr CTime longestCancel = std::chrono::milliseconds(20);
constexpr CTime longestStop = std::chrono::milliseconds(250);

/// The best of some, since the machine may be busy. @param measure what takes time
CTime quickestOf(CTime limit, const std::function<CTime()>& measure)
{
    constexpr int tries = 10;
    CTime quickest = CTime::max();
    for (int count = 0; count < tries && quickest > limit && !testing::Test::HasFailure(); ++count)
        quickest = std::min(quickest, measure());
    return quickest;
}

class PoolCancelTest : public CPoolFixture, public testing::WithParamInterface<CPlaceRow> {
protected:
    /// A transfer that is there, and goes no further.
    Transfer startTo(Place place)
    {
        switch (place) {
        case Place::Queued:
            replacePool({.atOnce = 1});
            startStalled();
            return start(newRequest());
        case Place::Resolving:
            return startResolving();
        case Place::Connecting:
            return startConnecting();
        case Place::InTLS:
            server().onConnection().readBytes(1).stall();
            return startUntilReceived(requestTo(server().url("/", "https")));
        case Place::InHeaders:
            server().onConnection().readHead().send("HTTP/1.1 200 OK\r\nA: ").stall();
            return startUntilReceived(newRequest());
        case Place::InTheBody:
            return startBody();
        case Place::InThePause:
            return startPause();
        }
        return nullptr;
    }

    /// Does something that ends the transfer, which is to be told, and done, so soon.
    template <typename TAction>
    void expectCancelledBy(TAction action, CTime limit)
    {
        const CTime time = quickestOf(limit, [&] { return timeOfCancelBy(action); });
        std::cout << std::chrono::duration_cast<std::chrono::microseconds>(time).count() << " microseconds\n";
        EXPECT_LE(time, limit);
    }

private:
    template <typename TAction>
    CTime timeOfCancelBy(TAction action)
    {
        replacePool({});
        m_ends = 0;
        CLookupGate::get().shut();
        const Transfer transfer = startTo(GetParam().place);
        EXPECT_FALSE(transfer->isDone());
        waitUntilPoolSleeps();
        const auto begin = std::chrono::steady_clock::now();
        action(*transfer);
        EXPECT_TRUE(transfer->wait(longest));
        const auto time = std::chrono::steady_clock::now() - begin;
        EXPECT_EQ(transfer->getState(), TransferState::Cancelled);
        EXPECT_EQ(norla::getErrorKind(*transfer->getError()), norla::ErrorKind::Cancelled);
        destroyPool();
        EXPECT_EQ(m_ends, 1);
        EXPECT_EQ(CLookupGate::get().isHolding(), GetParam().place == Place::Resolving)
            << "it has waited for the lookup";
        CLookupGate::get().open();
        return time;
    }

    /// Its thread has come to wait for whatever happens next.
    static void waitUntilPoolSleeps()
    {
        for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
            std::string name;
            std::getline(std::ifstream(thread.path() / "comm"), name);
            if (name == "norla.pool")
                support::waitUntilAsleep(std::stoi(thread.path().filename().string()));
        }
    }

    Transfer start(const Request& request, CTransfer::Options options = {})
    {
        options.onDone = [this](CTransfer&) { ++m_ends; };
        return pool().start(request.get(), options);
    }

    Transfer startUntilReceived(const Request& request)
    {
        const size_t connection = server().connectionCount();
        auto transfer = start(request);
        EXPECT_TRUE(waitUntil([&] { return !server().received(connection).empty(); }));
        return transfer;
    }

    Transfer startResolving()
    {
        auto transfer = start(requestTo("http://hanging.test/"));
        EXPECT_TRUE(CLookupGate::get().waitForLookup());
        return transfer;
    }

    Transfer startConnecting()
    {
        auto transfer = start(requestTo(m_busy.url()));
        EXPECT_TRUE(waitUntil([&] { return transfer->getState() == TransferState::Running; }));
        return transfer;
    }

    Transfer startBody()
    {
        server().onConnection().readHead().send("HTTP/1.1 200 OK\r\nContent-Length: 6\r\n\r\nabc").stall();
        auto transfer = start(newRequest());
        EXPECT_TRUE(waitUntil([&] { return transfer->getProgress().received == 3; }));
        return transfer;
    }

    Transfer startPause()
    {
        answer("HTTP/1.1 503 Busy\r\nContent-Length: 0\r\n\r\n");
        CTransfer::Options options;
        options.retries = {.attempts = 2, .firstPause = kx::CTimeSpan::fromSeconds(30), .jitter = false};
        auto transfer = start(newRequest(), options);
        EXPECT_TRUE(waitUntil([&] { return transfer->getState() == TransferState::Pausing; }));
        return transfer;
    }

    const support::CBusyPort m_busy;
    std::atomic<int> m_ends{0};
};

TEST_P(PoolCancelTest, isToldAtOnce)
{
    expectCancelledBy([](CTransfer& transfer) { transfer.cancel(); }, longestCancel);
}

TEST_P(PoolCancelTest, comesWithTheStopOfThePoolAtOnce)
{
    expectCancelledBy([this](CTransfer&) { pool().stop(); }, longestStop);
}

TEST_P(PoolCancelTest, comesWithTheEndOfThePoolAtOnce)
{
    expectCancelledBy([this](CTransfer&) { destroyPool(); }, longestStop);
}

/// What ends the transfer is called by the transfer itself.
class PoolCallbackTest : public CPoolFixture {
protected:
    void expectCancelledInTheSinkBy(const std::function<void()>& action)
    {
        server().onConnection().readHead().send("HTTP/1.1 200 OK\r\nContent-Length: 6\r\n\r\nabc").stall();
        const auto request = newRequest();
        const auto sink = kx::newObj<CActionSink>(action);
        request->setReceiveDataSink(sink.get());
        const auto transfer = pool().start(request.get());
        EXPECT_TRUE(transfer->wait(longest));
        EXPECT_EQ(transfer->getState(), TransferState::Cancelled);
    }
};

TEST_F(PoolCallbackTest, cancelsItsTransferAtOnce)
{
    EXPECT_LE(
        quickestOf(longestCancel,
            [this] {
                server().onConnection().readHead().send("HTTP/1.1 200 OK\r\nContent-Length: 6\r\n\r\nabc").stall();
                const auto request = newRequest();
                std::promise<CTransfer*> started; // a reference would keep the request, and with it the sink
                const auto future = started.get_future().share();
                std::promise<std::chrono::steady_clock::time_point> begin;
                const auto sink = kx::newObj<CActionSink>([&begin, future] {
                    begin.set_value(std::chrono::steady_clock::now());
                    future.get()->cancel();
                });
                request->setReceiveDataSink(sink.get());
                const auto transfer = pool().start(request.get());
                started.set_value(transfer.get());
                EXPECT_TRUE(transfer->wait(longest));
                return std::chrono::steady_clock::now() - begin.get_future().get();
            }),
        longestCancel);
}

// The sink falls through by itself, so that a cancel that waits for it fails here and does not hang.
TEST_F(PoolCallbackTest, isNotWaitedForByACancel)
{
    server().onConnection().readHead().send("HTTP/1.1 200 OK\r\nContent-Length: 6\r\n\r\nabc").stall();
    const auto request = newRequest();
    std::promise<void> gate;
    std::atomic<bool> isHeld{false};
    const auto sink = kx::newObj<CActionSink>([&isHeld, opened = gate.get_future().share()] {
        isHeld = true;
        opened.wait_for(std::chrono::seconds(5));
        isHeld = false;
    });
    request->setReceiveDataSink(sink.get());
    const auto transfer = pool().start(request.get());
    EXPECT_TRUE(waitUntil([&isHeld] { return isHeld.load(); }));
    transfer->cancel();
    EXPECT_TRUE(isHeld);
    EXPECT_FALSE(transfer->isDone());
    gate.set_value();
    EXPECT_TRUE(transfer->wait(longest));
    EXPECT_EQ(transfer->getState(), TransferState::Cancelled);
}

TEST_F(PoolCallbackTest, stopsThePool)
{
    expectCancelledInTheSinkBy([this] { pool().stop(); });
}

TEST_F(PoolCallbackTest, endsThePool)
{
    expectCancelledInTheSinkBy([this] { destroyPool(); });
}

// Its thread is in one call of libcurl's for so long that the connection is ended, which ends such a body as well.
TEST_F(PoolCallbackTest, hasABodyWithoutALengthCutOffByAStopAndNotEnded)
{
    server().onConnection().readHead().send("HTTP/1.1 200 OK\r\nConnection: close\r\n\r\nabc").stall();
    const auto request = newRequest();
    std::atomic<bool> isHeld{false};
    const auto sink = kx::newObj<CActionSink>([&isHeld] {
        isHeld = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(200)); // as a slow disk does
    });
    request->setReceiveDataSink(sink.get());
    const auto transfer = pool().start(request.get(), countingEnds());
    EXPECT_TRUE(waitUntil([&isHeld] { return isHeld.load(); }));
    pool().stop();
    EXPECT_EQ(transfer->getState(), TransferState::Cancelled) << failureOf(transfer);
    EXPECT_EQ(m_ends, 1);
}

TEST_F(PoolCallbackTest, stopsThePoolOnTwoOfItsThreadsAtOnce)
{
    replacePool({.threads = 2});
    std::mutex mutex;
    std::condition_variable changed;
    std::set<std::thread::id> threads; // guarded by the mutex
    std::atomic<int> stopped{0};
    CTransfer::Options options;
    std::promise<void> start;
    const auto started = start.get_future().share();
    options.onDone = [&](CTransfer&) {
        started.wait();
        {
            std::unique_lock lock(mutex);
            if (!threads.insert(std::this_thread::get_id()).second)
                return;
            changed.notify_all();
            changed.wait_for(lock, std::chrono::seconds(20), [&] { return threads.size() == 2; });
        }
        pool().stop();
        ++stopped;
    };
    for (int port = 1; port < 32; ++port) // hosts enough for both threads
        pool().start(requestTo("nonsense://127.0.0.1:" + std::to_string(port) + "/").get(), options);
    start.set_value();
    EXPECT_TRUE(waitUntil([&] { return stopped == 2; }));
    pool().stop();
}

TEST_F(PoolCallbackTest, everyStopTellsEveryEnd)
{
    constexpr int count = 3000;
    for (int number = 0; number < count; ++number) {
        replacePool({});
        const auto transfer = pool().start(badRequest().get());
        for (std::atomic<int> turns = 0; turns < number; ++turns) {
        } // so that it comes at another moment each time
        pool().stop();
        ASSERT_TRUE(transfer->isDone()) << number;
    }
}

INSTANTIATE_TEST_SUITE_P(Places, PoolCancelTest, testing::ValuesIn(places),
    [](const testing::TestParamInfo<CPlaceRow>& row) { return row.param.name; });

} // namespace
