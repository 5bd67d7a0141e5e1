// What a coroutine that awaits a transfer gets when something fails once, each allocation and each call in turn.
#include "kx/log/log.h"
#include "norla/core/CNetRequest.h"
#include "norla/pool/CExecutorQueue.h"
#include "norla/pool/await.h"
#include "tests/norla/pool/CCoroutine.h"
#include "tests/norla/pool/CFailingCall.h"
#include "tests/norla/pool/letFail.h"
#include "tests/support/CPathServer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace {

using norla::CNetRequest;
using norla::CTransfer;
using norla::CTransferPool;

/// How a transfer is awaited, and what is done meanwhile.
struct CAwaiting {
    enum Meanwhile { Nothing, Destruction, Stop };

    std::string name;
    std::string path;
    Meanwhile meanwhile = Nothing;
    bool hasExecutor = false;
};

void PrintTo(const CAwaiting& awaiting, std::ostream* out)
{
    *out << awaiting.name;
}

const std::vector<CAwaiting>& awaitings()
{
    static const std::vector<CAwaiting> all
        = {{"Success", "/ok"}, {"Failure", "/404"}, {"Executor", "/ok", CAwaiting::Nothing, true},
            {"Destruction", "/silent", CAwaiting::Destruction, true}, {"Stop", "/silent", CAwaiting::Stop}};
    return all;
}

/// A request that tells when it goes: behind all that knows it.
class CLeavingRequest : public CNetRequest {
public:
    explicit CLeavingRequest(std::shared_ptr<bool> gone)
        : m_gone(std::move(gone))
    {
    }
    ~CLeavingRequest() override { *m_gone = true; }

private:
    const std::shared_ptr<bool> m_gone;
};

/// Counts the ends of requests.
class CEndCounter : public kx::CBase, public virtual CNetRequest::IDoneListener {
public:
    void onNetRequestDone(CNetRequest*, const kx::CError*) override { ++count; }

    std::atomic<int> count{0};
};

/// Of a coroutine that awaits.
struct CTold {
    std::atomic<int> successes{0};
    std::atomic<int> failures{0};
};

CCoroutine await(CTransferPool& pool, CNetRequest* request, CTold& told, CTransfer::Options options)
{
    bool hasSucceeded = false;
    try {
        hasSucceeded = static_cast<bool>(co_await pool.run(request, options));
    } catch (const std::exception&) {
        hasSucceeded = false;
    }
    ++(hasSucceeded ? told.successes : told.failures);
}

/// One start of a request, what is awaited of it and what is told.
struct CAwaited {
    explicit CAwaited(const std::string& url)
    {
        request->setURL(kx::String::fromUTF8(url));
        request->setDoneListener(counter.get());
        options.onDone = [this, held = held](CTransfer&) { ++ends; };
    }
    CAwaited(const CAwaited&) = delete;
    CAwaited& operator=(const CAwaited&) = delete;

    /// The frame of a coroutine is memory as well.
    void begin(CTransferPool& pool)
    {
        try {
            CFailingCall::inLibrary([&] { coroutine.emplace(await(pool, request.get(), told, options)); });
            hasBegun = true;
        } catch (const std::exception&) {
            EXPECT_FALSE(request->isManaged());
        }
    }

    /// Also one that has not been told yet.
    bool isOver() const { return counter->count != 0 || coroutine->hasEnded(); }

    /// Once the pool is gone: whoever awaits was told once, or, once it was destroyed, not at all.
    void check()
    {
        queue->runPending();
        EXPECT_EQ(told.successes + told.failures, hasBegun && coroutine ? 1 : 0);
        EXPECT_LE(counter->count, 1);
        EXPECT_LE(told.successes, counter->count);
        EXPECT_EQ(ends, hasBegun && !coroutine ? 0 : counter->count.load()) << "one end for each start";
        EXPECT_FALSE(request->isManaged());
        coroutine.reset();
        options = {};
        EXPECT_EQ(held.use_count(), 1) << "callbacks stay behind";
    }

    const std::shared_ptr<bool> isGone = std::make_shared<bool>(false);
    const std::shared_ptr<int> held = std::make_shared<int>(0);
    const kx::P<CEndCounter> counter = kx::newObj<CEndCounter>();
    const kx::P<norla::CExecutorQueue> queue = kx::newObj<norla::CExecutorQueue>();
    kx::P<CNetRequest> request = kx::newObj<CLeavingRequest>(isGone);
    CTransfer::Options options;
    std::atomic<int> ends{0};
    CTold told;
    bool hasBegun = false;
    std::optional<CCoroutine> coroutine; // none any more: it was destroyed
};

/// @return whether it has become true in time
bool waitFor(const std::function<bool()>& condition)
{
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= limit)
            return false;
        std::this_thread::yield();
    }
    return true;
}

/// Awaits transfers with pools of their own, on a server that is the same for all.
class CAwaitTorture {
public:
    CAwaitTorture()
        : m_server({{"/ok", support::CPathServer::answer("200 OK", "hello")},
            {"/404", support::CPathServer::answer("404 Not Found", "no")}})
    {
        kx::setLogHandler([](const kx::CLogEntry&) {}); // which says what could not be done
        m_server.start();
    }
    CAwaitTorture(const CAwaitTorture&) = delete;
    CAwaitTorture& operator=(const CAwaitTorture&) = delete;
    ~CAwaitTorture() { kx::setLogHandler({}); }

    /// Libcurl may keep a request for ever.
    void requestsMayBeLost() noexcept { m_mayBeLost = true; }

    Play playOf(const CAwaiting& awaiting)
    {
        return [&](const auto& arm, const auto& disarm) { play(awaiting, arm, disarm); };
    }

private:
    void play(const CAwaiting& awaiting, const std::function<void()>& arm, const std::function<void()>& disarm)
    {
        CAwaited awaited(m_server.url(awaiting.path));
        if (awaiting.hasExecutor)
            awaited.options.executor = awaited.queue;
        const int before = m_server.requestCount();
        arm();
        kx::P<CTransferPool> pool = newPool();
        if (pool)
            awaited.begin(*pool);
        if (awaited.hasBegun)
            act(awaiting, awaited, [&] { return m_server.requestCount() != before; });
        CFailingCall::inLibrary([&] { pool = nullptr; });
        disarm();
        awaited.check();
        letGo(awaited);
    }

    static kx::P<CTransferPool> newPool()
    {
        kx::P<CTransferPool> pool;
        try {
            CFailingCall::inLibrary([&] { pool = kx::newObj<CTransferPool>(); });
        } catch (const std::exception&) {
            return nullptr; // which is a way to say it
        }
        return pool;
    }

    static void act(const CAwaiting& awaiting, CAwaited& awaited, const std::function<bool()>& hasCome)
    {
        const bool isInTime = waitFor([&] {
            if (awaiting.meanwhile != CAwaiting::Nothing)
                return hasCome() || awaited.isOver();
            awaited.queue->runPending();
            return awaited.coroutine->hasEnded();
        });
        EXPECT_TRUE(isInTime) << "it does not go on";
        if (awaiting.meanwhile == CAwaiting::Destruction && !awaited.coroutine->hasEnded())
            CFailingCall::inLibrary([&] { awaited.coroutine.reset(); });
    }

    void letGo(CAwaited& awaited) const
    {
        if (m_mayBeLost) {
            static auto* const kept = new std::vector<kx::P<CNetRequest>>;
            kept->push_back(awaited.request);
            return;
        }
        awaited.request = nullptr;
        EXPECT_TRUE(*awaited.isGone) << "somebody keeps it";
    }

    support::CPathServer m_server;
    bool m_mayBeLost = false;
};

class PoolTortureAwaitTest : public testing::TestWithParam<CAwaiting> {
protected:
    CAwaitTorture m_torture;
};

TEST_P(PoolTortureAwaitTest, tellsOnceWhicheverAllocationFails)
{
    EXPECT_GT(letFail(GetParam().name, m_torture.playOf(GetParam()), CFailingCall::allocation), 20);
}

TEST_P(PoolTortureAwaitTest, tellsOnceWhicheverSystemCallFails)
{
    long count = 0;
    for (const std::string& function : CFailingCall::functions()) {
        if (!HasFailure())
            count += letFail(GetParam().name, m_torture.playOf(GetParam()), function);
    }
    EXPECT_GT(count, 5);
}

TEST_P(PoolTortureAwaitTest, tellsOnceWhicheverCallToLibcurlFails)
{
    m_torture.requestsMayBeLost();
    int count = 0;
    std::set<std::string> options;
    for (const std::string& function : functionsOfLibcurl()) {
        if (!HasFailure())
            count += letFailOfLibcurls(GetParam().name, m_torture.playOf(GetParam()), function, options);
    }
    EXPECT_GT(count, 5);
}

INSTANTIATE_TEST_SUITE_P(Awaitings, PoolTortureAwaitTest, testing::ValuesIn(awaitings()),
    [](const testing::TestParamInfo<CAwaiting>& awaiting) { return awaiting.param.name; });

} // namespace
