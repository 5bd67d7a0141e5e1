// A hundred thousand transfers that succeed, fail, are tried again and are cancelled at any moment, in pools that are
// stopped or go at any moment; as many of them as the time allows. NORLA_STRESS_TRANSFERS sets another number,
// NORLA_STRESS_SECONDS another time, NORLA_STRESS_SEED the order of the first decisions.
#include "norla/core/CNetRequest.h"
#include "norla/core/errorKind.h"
#include "norla/pool/CTransferPool.h"
#include "tests/support/CLogRecorder.h"
#include "tests/support/CPathServer.h"
#include "tests/support/CRefusedPort.h"
#include "tests/support/libcurlWords.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace {

using norla::CNetRequest;
using norla::CTransfer;
using norla::CTransferPool;
using norla::TransferState;
using Random = std::minstd_rand;
using Pool = kx::P<CTransferPool>;
using Transfer = kx::P<CTransfer>;

#ifdef __SANITIZE_THREAD__ // which sees most of what can go wrong here
constexpr unsigned usualSeconds = 30;
#else
constexpr unsigned usualSeconds = 12;
#endif
constexpr auto longestEnd = std::chrono::seconds(60);
constexpr unsigned usualTransfers = 100'000;
constexpr int leastTransfers = 1'000; // what the slowest machine makes in that time; fewer say little
constexpr int ownerCount = 4;         // threads that start and cancel
constexpr size_t subjectsPerOwner = 24;
constexpr int roundsPerEpisode = 8; // that an owner makes with one pool

unsigned settingOf(const char* name, unsigned usual)
{
    const char* const setting = std::getenv(name);
    return setting ? static_cast<unsigned>(std::atoi(setting)) : usual;
}

/// A URL, and how a transfer of it must end unless somebody ends it before.
struct CTarget {
    std::string url;
    TransferState state = TransferState::Succeeded;
    std::string text = {}; ///< the body, or what the error's message starts with
    bool ends = true;      ///< false: by itself never
};

/// One request with all its starts, of which each must be told its end; used again and again by one owner.
class CSubject : public kx::CBase {
public:
    /// @return whether it was started: a pool that was stopped takes nothing
    bool start(const Pool& pool, const CTarget& target, Random& random, bool mayBeCancelled)
    {
        m_pool = pool.get();
        m_target = &target;
        m_mayBeCancelled = mayBeCancelled;
        m_again = random() % 8 == 0 ? 2 : 0;
        m_request->reset();
        m_request->setURL(kx::String::fromUTF8(target.url));
        m_options = randomOptions(random);
        return startOnce();
    }

    void wait() const
    {
        const auto end = std::chrono::steady_clock::now() + longestEnd;
        while (m_ends < m_starts && std::chrono::steady_clock::now() < end)
            std::this_thread::yield();
        ASSERT_EQ(m_ends, m_starts) << m_target->url << " has no end";
    }

    /// In one of the ways that there are.
    void cancel(unsigned way)
    {
        m_mayBeCancelled = true;
        const Transfer transfer = getTransfer();
        if (way % 2 == 0 && transfer)
            transfer->cancel();
        else
            m_pool->removeRequest(m_request.get());
    }

    /// From now on its end may be that of its pool.
    void expectCancel() { m_mayBeCancelled = true; }

    bool endsByItself() const { return m_target->ends; }

    void checkAfterThePool()
    {
        EXPECT_EQ(m_ends, m_starts) << m_target->url;
        EXPECT_FALSE(m_request->isManaged());
        m_options = {};
        const std::lock_guard lock(m_mutex);
        m_transfer = nullptr;
    }

private:
    static CTransfer::Options randomOptions(Random& random)
    {
        CTransfer::Options options;
        options.priority = static_cast<int>(random() % 3);
        if (random() % 2 == 0)
            options.retries = {.attempts = 2, .firstPause = kx::CTimeSpan::fromMilliseconds(1)};
        options.onProgress = [](const norla::CTransferProgress&) {};
        if (random() % 8 == 0)
            options.onProgress = [](const norla::CTransferProgress&) { throw std::runtime_error("progress throws"); };
        return options;
    }

    bool startOnce()
    {
        auto options = m_options;
        options.onDone = [self = kx::P<CSubject>(this)](CTransfer& transfer) { self->onDone(transfer); };
        ++m_starts;
        try {
            const Transfer transfer = m_pool->start(m_request.get(), options);
            const std::lock_guard lock(m_mutex);
            m_transfer = transfer;
        } catch (const kx::CError& error) {
            EXPECT_EQ(error.getMessage(), "A transfer cannot be started: its pool was stopped.");
            --m_starts;
            return false;
        }
        return true;
    }

    void onDone(CTransfer& transfer)
    {
        EXPECT_TRUE(transfer.isDone());
        EXPECT_TRUE(m_request->isAsyncDone() || m_mayBeCancelled);
        checkEnd(transfer);
        const bool throws = m_again == 1;
        if (m_again-- > 0 && !m_mayBeCancelled)
            startOnce();
        ++m_ends; // the last that it does with the request: the owner may take it now
        if (throws)
            throw std::runtime_error("done throws");
    }

    void checkEnd(const CTransfer& transfer) const
    {
        const kx::P<kx::CError> error = transfer.getError();
        const std::string message = error ? error->getMessage().toUTF8() : std::string();
        const TransferState state = transfer.getState();
        EXPECT_EQ(state == TransferState::Succeeded, !error);
        if (state == TransferState::Cancelled) {
            EXPECT_TRUE(m_mayBeCancelled) << m_target->url << ": " << message;
            return;
        }
        if (message == "progress throws")
            return;
        EXPECT_EQ(state, m_target->state) << m_target->url << ": " << message;
        if (error)
            EXPECT_TRUE(message.starts_with(m_target->text)) << m_target->url << ": " << message;
        else
            EXPECT_EQ(body(), m_target->text);
    }

    std::string body() const
    {
        const auto buffer = m_request->getDefaultReceiveBuffer();
        return {reinterpret_cast<const char*>(buffer->getData()), buffer->getSize()};
    }

    Transfer getTransfer()
    {
        const std::lock_guard lock(m_mutex);
        return m_transfer;
    }

    const kx::P<CNetRequest> m_request = kx::newObj<CNetRequest>();
    CTransferPool* m_pool = nullptr;
    const CTarget* m_target = nullptr;
    CTransfer::Options m_options;
    int m_again = 0;
    std::atomic<int> m_starts{0};
    std::atomic<int> m_ends{0};
    std::atomic<bool> m_mayBeCancelled{false};
    std::mutex m_mutex; // guards the last transfer
    Transfer m_transfer;
};

class PoolStressTest : public testing::Test {
protected:
    using Subjects = std::array<kx::P<CSubject>, subjectsPerOwner>;

    PoolStressTest()
        : m_server({{"/ok", support::CPathServer::answer("200 OK", "0123456789")},
                       {"/404", support::CPathServer::answer("404 Not Found", "no")},
                       {"/503", support::CPathServer::answer("503 Service Unavailable", "")}, {"/drop", ""},
                       {"/half", "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nabc"}},
            2)
        , m_targets({{
              {m_server.url("/ok", 0), TransferState::Succeeded, "0123456789"},
              {m_server.url("/ok", 1), TransferState::Succeeded, "0123456789"},
              {m_server.url("/404", 0), TransferState::Failed,
                  "HTTP response code said error (response code: http 404)"},
              {m_server.url("/503", 1), TransferState::Failed,
                  "HTTP response code said error (response code: http 503)"},
              {m_server.url("/drop", 0), TransferState::Failed, ""}, // in one of several ways
              {m_refused.url(), TransferState::Failed, support::libcurlSays("Couldn't connect to server")},
              {"nonsense://127.0.0.1/", TransferState::Failed, "Unsupported protocol"},
              {m_server.url("/silent", 1), TransferState::Failed, "never", false},
              {m_server.url("/half", 0), TransferState::Failed, "never", false},
          }})
    {
        for (Subjects& subjects : m_subjects)
            for (kx::P<CSubject>& subject : subjects)
                subject = kx::newObj<CSubject>();
        m_server.start();
    }

    /// One pool from its construction to its end.
    void runEpisode(Random& random)
    {
        Pool pool = kx::newObj<CTransferPool>(CTransferPool::Options{.threads = 1 + static_cast<int>(random() % 3),
            .atOnce = 8 + static_cast<int>(random() % 64),
            .perHost = static_cast<int>(random() % 32)});
        const int endAt = m_started + static_cast<int>(random() % (ownerCount * subjectsPerOwner * roundsPerEpisode));
        std::vector<std::jthread> owners;
        m_owning = ownerCount;
        m_isStopping = false;
        for (Subjects& subjects : m_subjects) {
            owners.emplace_back([this, pool, &subjects, seed = random()] { own(pool, subjects, Random(seed)); });
        }
        if (random() % 4 == 0)
            stopAt(endAt, *pool);
        owners.clear(); // waits for them
        pool = nullptr;
        for (Subjects& subjects : m_subjects)
            for (const kx::P<CSubject>& subject : subjects)
                subject->checkAfterThePool();
    }

    std::atomic<int> m_started{0};

private:
    void stopAt(int count, CTransferPool& pool)
    {
        while (m_started < count && m_owning > 0)
            std::this_thread::yield();
        m_isStopping = true;
        for (Subjects& subjects : m_subjects)
            for (const kx::P<CSubject>& subject : subjects)
                subject->expectCancel();
        pool.stop();
    }

    /// One owner's share of an episode. Leaves its last transfers as they are, running and waiting.
    void own(const Pool& pool, Subjects& subjects, Random random)
    {
        for (int round = 1; round < roundsPerEpisode; ++round) {
            if (!startAll(pool, subjects, random, m_isStopping))
                break;
            for (const kx::P<CSubject>& subject : subjects) {
                if (!subject->endsByItself() || random() % 4 == 0)
                    subject->cancel(static_cast<unsigned>(random()));
            }
            for (const kx::P<CSubject>& subject : subjects)
                subject->wait();
        }
        for (const kx::P<CSubject>& subject : subjects)
            subject->wait(); // where a pool that was stopped has taken only some
        --m_owning;
        while (m_owning > 0)
            std::this_thread::yield(); // for those for which such as have no end would leave no room
        startAll(pool, subjects, random, true);
    }

    /// @return false when the pool was stopped
    bool startAll(const Pool& pool, Subjects& subjects, Random& random, bool mayBeCancelled)
    {
        for (const kx::P<CSubject>& subject : subjects) {
            const CTarget& target = m_targets[random() % m_targets.size()];
            if (!subject->start(pool, target, random, mayBeCancelled || m_isStopping))
                return false;
            ++m_started;
        }
        return true;
    }

    support::CRefusedPort m_refused;
    support::CPathServer m_server;
    const std::array<CTarget, 9> m_targets;
    std::array<Subjects, ownerCount> m_subjects;
    std::atomic<int> m_owning{0};
    std::atomic<bool> m_isStopping{false};
};

TEST_F(PoolStressTest, tellsOneEndOfEachStart)
{
    const support::CLogRecorder log; // what callbacks throw
    const unsigned seed = settingOf("NORLA_STRESS_SEED", std::random_device()());
    const int count = static_cast<int>(settingOf("NORLA_STRESS_TRANSFERS", usualTransfers));
    std::cout << "NORLA_STRESS_SEED=" << seed << std::endl;
    Random random(seed);
    const std::chrono::seconds longest(settingOf("NORLA_STRESS_SECONDS", usualSeconds));
    const auto end = std::chrono::steady_clock::now() + longest;
    int episodes = 0;
    for (; m_started < count && !HasFailure() && std::chrono::steady_clock::now() < end; ++episodes)
        runEpisode(random);
    std::cout << m_started << " transfers in " << episodes << " pools\n";
    EXPECT_GE(m_started, std::min(count, leastTransfers));
    const auto lines = log.lines();
    EXPECT_EQ(std::set<std::string>(lines.begin(), lines.end()),
        (std::set<std::string>{"error: A transfer's onDone has thrown (ignored).: done throws",
            "error: A transfer's onProgress has thrown at its end (ignored).: progress throws"}));
}

} // namespace
