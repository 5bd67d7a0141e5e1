// What a pool does when memory fails it once, or libcurl: in each allocation and in each call in turn. A program of its
// own, because it replaces operator new.
#include "kx/log/log.h"
#include "norla/core/CNetRequest.h"
#include "norla/pool/CExecutorQueue.h"
#include "norla/pool/CTransferPool.h"
#include "tests/curlcalls/CCurlCalls.h"
#include "tests/support/CPathServer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <dlfcn.h>
#include <functional>
#include <iostream>
#include <new>
#include <poll.h>
#include <pthread.h>
#include <string>
#include <string_view>
#include <sys/epoll.h>
#include <thread>
#include <vector>

namespace {

std::atomic<bool> isArmed{false};
std::atomic<long> allocationsLeft{0}; // until the one that fails
std::atomic<bool> isArmedForWatches{false};
std::atomic<long> watchesLeft{0}; // the same of sockets that are to be watched
thread_local bool isInLibrary = false;

/// The pool's threads are the library's alone.
bool isThreadOfPool()
{
    static thread_local bool isKnown = false;
    if (!isKnown) {
        char name[16] = "";
        pthread_getname_np(pthread_self(), name, sizeof name);
        isKnown = std::string_view(name) == "norla.pool";
    }
    return isKnown;
}

} // namespace

void* operator new(size_t size)
{
    if (isArmed && (isInLibrary || isThreadOfPool()) && allocationsLeft-- == 0)
        throw std::bad_alloc();
    if (void* const block = std::malloc(size))
        return block;
    throw std::bad_alloc();
}

extern "C" int epoll_ctl(int events, int operation, int descriptor, epoll_event* event) noexcept
{
    if (isArmedForWatches && operation != EPOLL_CTL_DEL && isThreadOfPool() && watchesLeft-- == 0) {
        errno = ENOMEM;
        return -1;
    }
    using Function = int (*)(int, int, int, epoll_event*);
    static const auto original = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "epoll_ctl"));
    return original(events, operation, descriptor, event);
}

void operator delete(void* block) noexcept
{
    std::free(block);
}

void operator delete(void* block, size_t) noexcept
{
    std::free(block);
}

namespace {

using norla::CNetRequest;
using norla::CTransfer;
using norla::CTransferPool;
using norla::TransferState;

constexpr int longest = 20'000; // milliseconds

/// Calls the library, whose allocations count.
template <typename TAction>
void inLibrary(TAction action)
{
    isInLibrary = true;
    try {
        action();
    } catch (...) {
        isInLibrary = false;
        throw;
    }
    isInLibrary = false;
}

/// One start of a request, and who has been told its end how often.
class CWitness : public kx::CBase, public virtual CNetRequest::IDoneListener {
public:
    explicit CWitness(const std::string& url)
    {
        request->setURL(kx::String::fromUTF8(url));
        request->setDoneListener(this);
        options.onDone = [this](CTransfer&) { ++ends; };
    }

    void onNetRequestDone(CNetRequest*, const kx::CError* error) override
    {
        ++requestEnds;
        hasSucceeded = !error;
    }

    /// @return whether the pool has taken it
    bool start(CTransferPool& pool)
    {
        try {
            inLibrary([&] { transfer = pool.start(request.get(), options); });
        } catch (const std::exception&) {
            EXPECT_FALSE(request->isManaged());
        }
        return static_cast<bool>(transfer);
    }

    void wait() const { EXPECT_TRUE(!transfer || transfer->wait(longest)) << "no end"; }

    bool isOver() const { return !transfer || transfer->isDone(); }

    /// Once the pool is gone.
    void check()
    {
        request->setDoneListener(nullptr); // the end of the circle
        options = {};
        EXPECT_FALSE(request->isManaged());
        queue->runPending();
        EXPECT_EQ(ends, transfer ? 1 : 0);
        EXPECT_EQ(requestEnds, transfer && !isWithdrawn ? 1 : 0);
        if (!transfer)
            return;
        const bool isSuccess = transfer->getState() == TransferState::Succeeded;
        EXPECT_EQ(transfer->getError() == nullptr, isSuccess);
        EXPECT_EQ(hasSucceeded, isSuccess);
        if (isWithdrawn)
            return; // of which the request says nothing
        EXPECT_TRUE(request->isAsyncDone());
        EXPECT_EQ(isResultGood(), isSuccess);
    }

    const kx::P<CNetRequest> request = kx::newObj<CNetRequest>();
    const kx::P<norla::CExecutorQueue> queue = kx::newObj<norla::CExecutorQueue>();
    CTransfer::Options options;
    kx::P<CTransfer> transfer;
    std::atomic<int> ends{0};
    std::atomic<int> requestEnds{0};
    std::atomic<bool> hasSucceeded{false};
    bool isWithdrawn = false;

private:
    bool isResultGood() const
    {
        try {
            request->checkAsyncResult();
        } catch (const std::exception&) {
            return false;
        }
        return true;
    }
};

using Witness = kx::P<CWitness>;
using Pool = kx::P<CTransferPool>;

/// Where a scenario plays.
struct CStage {
    CTransferPool& pool;
    const std::vector<Witness>& witnesses;
    const support::CPathServer& server;
    const int requestsBefore;
};

/// What is done with a pool while something may fail once.
struct CScenario {
    std::string name;
    int atOnce = 0;
    std::vector<std::string> paths;
    std::function<void(const CStage&)> act;
};

void PrintTo(const CScenario& scenario, std::ostream* out)
{
    *out << scenario.name;
}

void waitForAll(const CStage& stage)
{
    for (const Witness& witness : stage.witnesses)
        witness->wait();
}

/// Waits until the server has the first request, which it does not answer, or until that has failed.
void waitForFirst(const CStage& stage)
{
    const Witness& first = stage.witnesses.front();
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (stage.server.requestCount() == stage.requestsBefore && !first->isOver()
        && std::chrono::steady_clock::now() < limit)
        std::this_thread::yield();
}

/// Waits until the executor, or without one the callback, has each end.
void waitForCallbacks(const CStage& stage)
{
    waitForAll(stage);
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    for (const Witness& witness : stage.witnesses) {
        pollfd waiting{witness->queue->getDescriptor(), POLLIN, 0};
        while (witness->transfer && witness->ends == 0 && poll(&waiting, 1, 0) == 0
            && std::chrono::steady_clock::now() < limit)
            std::this_thread::yield();
    }
}

void cancelAllOfThem(const CStage& stage)
{
    for (const Witness& witness : stage.witnesses) {
        if (witness->transfer)
            inLibrary([&] { witness->transfer->cancel(); });
    }
    waitForAll(stage);
}

void cancelWhileTheFirstRuns(const CStage& stage)
{
    waitForFirst(stage);
    cancelAllOfThem(stage);
}

void cancelInThePause(const CStage& stage)
{
    const Witness& first = stage.witnesses.front();
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!first->isOver() && first->transfer->getState() != TransferState::Pausing
        && std::chrono::steady_clock::now() < limit)
        std::this_thread::yield();
    cancelAllOfThem(stage);
}

void askForProgress(const CStage& stage)
{
    waitForFirst(stage);
    for (const Witness& witness : stage.witnesses) {
        if (witness->transfer)
            inLibrary([&] { witness->transfer->getProgress(); });
    }
    cancelAllOfThem(stage);
}

void withdraw(const CStage& stage)
{
    waitForFirst(stage);
    for (const Witness& witness : stage.witnesses) {
        inLibrary([&] { witness->isWithdrawn = stage.pool.removeRequest(witness->request.get()); });
        EXPECT_EQ(witness->isWithdrawn, witness->transfer && witness->transfer->getState() == TransferState::Cancelled);
    }
}

class PoolTortureTest : public testing::TestWithParam<CScenario> {
protected:
    PoolTortureTest()
        : m_server({{"/ok", support::CPathServer::answer("200 OK", "hello")},
            {"/ok?queue", support::CPathServer::answer("200 OK", "hello")},
            {"/404", support::CPathServer::answer("404 Not Found", "no")},
            {"/503", support::CPathServer::answer("503 Busy", "")},
            {"/503?long", support::CPathServer::answer("503 Busy", "")},
            {"/half", "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nabc"}})
    {
        kx::setLogHandler([](const kx::CLogEntry&) {}); // which says what could not be done
        m_server.start();
    }
    ~PoolTortureTest() override { kx::setLogHandler({}); }

    /// The scenario once. @param arm lets something fail from now on, and @param disarm no longer
    void play(const std::function<void()>& arm, const std::function<void()>& disarm)
    {
        std::vector<Witness> witnesses;
        for (const std::string& path : GetParam().paths)
            witnesses.push_back(newWitness(path));
        const int requestsBefore = m_server.requestCount();
        arm();
        Pool pool = newPool();
        if (pool) {
            for (const Witness& witness : witnesses)
                witness->start(*pool);
            GetParam().act({*pool, witnesses, m_server, requestsBefore});
            disarm();
            if (std::all_of(witnesses.begin(), witnesses.end(), [](const Witness& its) { return its->isOver(); }))
                witnesses.push_back(useOnceMore(*pool));
            arm();
            inLibrary([&] { pool->stop(); });
            inLibrary([&] { pool = nullptr; });
        }
        disarm();
        for (const Witness& witness : witnesses) {
            witness->check();
            keptForever().push_back(witness->request); // some of them libcurl has kept
        }
    }

private:
    static std::vector<kx::P<CNetRequest>>& keptForever()
    {
        static auto* const kept = new std::vector<kx::P<CNetRequest>>;
        return *kept;
    }

    Witness newWitness(const std::string& path)
    {
        auto witness = kx::newObj<CWitness>(m_server.url(path));
        if (path == "/503")
            witness->options.retries = {.attempts = 2, .firstPause = kx::CTimeSpan::fromMilliseconds(1)};
        if (path == "/silent?briefly")
            witness->options.attemptDeadline = kx::CTimeSpan::fromMilliseconds(1);
        if (path == "/ok?queue")
            witness->options.executor = witness->queue;
        if (path == "/503?long")
            witness->options.retries = {.attempts = 2, .firstPause = kx::CTimeSpan::fromSeconds(30), .jitter = false};
        return witness;
    }

    static Pool newPool()
    {
        Pool pool;
        try {
            inLibrary([&] { pool = kx::newObj<CTransferPool>(CTransferPool::Options{.atOnce = GetParam().atOnce}); });
        } catch (const std::exception&) {
            return nullptr; // which is a way to say it
        }
        return pool;
    }

    Witness useOnceMore(CTransferPool& pool)
    {
        auto witness = newWitness("/ok");
        EXPECT_TRUE(witness->start(pool));
        witness->wait();
        EXPECT_EQ(witness->transfer->getState(), TransferState::Succeeded) << "unusable afterwards";
        return witness;
    }

    support::CPathServer m_server;
};

TEST_P(PoolTortureTest, outlivesEachAllocationThatFails)
{
    long failing = 0;
    for (bool hasFailed = true; hasFailed && !HasFailure(); ++failing) {
        allocationsLeft = failing;
        play([] { isArmed = true; }, [] { isArmed = false; });
        hasFailed = allocationsLeft < 0;
        if (HasFailure())
            std::cout << "in the allocation of number " << failing << '\n';
    }
    EXPECT_GT(failing, 20);
}

TEST_P(PoolTortureTest, outlivesEachCallOfLibcurlsThatFails)
{
    for (const char* const function : {"curl_multi_init", "curl_multi_add_handle", "curl_multi_remove_handle",
             "curl_multi_socket_action", "curl_multi_assign"}) {
        int failing = 0;
        for (bool hasFailed = true; hasFailed && !HasFailure(); ++failing) {
            support::CCurlCalls calls;
            int armedCalls = 0;
            int before = 0;
            play(
                [&] {
                    before = calls.countOf(function);
                    if (armedCalls <= failing)
                        calls.fail(function, failing - armedCalls, 1);
                },
                [&] {
                    armedCalls += calls.countOf(function) - before;
                    calls.succeed();
                });
            hasFailed = armedCalls > failing;
            if (HasFailure())
                std::cout << "in the call of number " << failing << " of " << function << '\n';
        }
        EXPECT_GT(failing, 0) << function;
    }
}

/// Those that come to watch sockets for certain.
class PoolTortureBySocketsTest : public PoolTortureTest {};

TEST_P(PoolTortureBySocketsTest, outlivesEachSocketThatCannotBeWatched)
{
    long failing = 0;
    for (bool hasFailed = true; hasFailed && !HasFailure(); ++failing) {
        watchesLeft = failing;
        play([] { isArmedForWatches = true; }, [] { isArmedForWatches = false; });
        hasFailed = watchesLeft < 0;
        if (HasFailure())
            std::cout << "with the socket of number " << failing << '\n';
    }
    EXPECT_GT(failing, 1);
}

const CScenario scenarios[] = {{"Success", 0, {"/ok", "/ok"}, &waitForAll}, {"Failure", 0, {"/404"}, &waitForAll},
    {"Retry", 0, {"/503"}, &waitForAll}, {"QueuedSuccess", 1, {"/ok", "/ok"}, &waitForAll},
    {"Deadline", 0, {"/silent?briefly"}, &waitForAll}, {"Executor", 0, {"/ok?queue"}, &waitForCallbacks},
    {"CancelAtOnce", 0, {"/silent"}, &cancelAllOfThem}, {"Cancel", 0, {"/silent"}, &cancelWhileTheFirstRuns},
    {"Progress", 0, {"/half"}, &askForProgress}, {"CancelInTheQueue", 1, {"/silent", "/ok"}, &cancelWhileTheFirstRuns},
    {"CancelInThePause", 0, {"/503?long"}, &cancelInThePause}, {"Withdrawal", 1, {"/silent", "/ok"}, &withdraw},
    {"Stop", 1, {"/silent", "/ok"}, &waitForFirst}};

constexpr auto nameOf = [](const testing::TestParamInfo<CScenario>& scenario) { return scenario.param.name; };

INSTANTIATE_TEST_SUITE_P(All, PoolTortureTest, testing::ValuesIn(scenarios), nameOf);
INSTANTIATE_TEST_SUITE_P(ThoseWithSockets, PoolTortureBySocketsTest,
    testing::Values(scenarios[0], scenarios[1], scenarios[2], scenarios[3], scenarios[7], scenarios[12]), nameOf);

} // namespace
