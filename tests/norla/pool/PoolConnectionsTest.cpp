// Which connections and threads a pool's transfers use.
#include "norla/pool/CTransferLanes.h"
#include "tests/norla/pool/CPoolFixture.h"
#include "tests/support/CDescriptor.h"
#include "tests/support/CPathServer.h"
#include "tests/support/libcurlWords.h"
#include "tests/support/sanitized.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <sys/resource.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

using norla::CTransfer;

/// Takes all small numbers for descriptors, as long as it lives.
class CSmallNumbersTaken {
public:
    explicit CSmallNumbersTaken(int first)
    {
        getrlimit(RLIMIT_NOFILE, &m_before);
        rlimit more = m_before;
        more.rlim_cur = std::min<rlim_t>(static_cast<rlim_t>(first) + 500, more.rlim_max);
        setrlimit(RLIMIT_NOFILE, &more);
        do
            m_taken.emplace_back(dup(STDERR_FILENO));
        while (m_taken.back().get() != -1 && m_taken.back().get() < first);
    }
    CSmallNumbersTaken(const CSmallNumbersTaken&) = delete;
    CSmallNumbersTaken& operator=(const CSmallNumbersTaken&) = delete;
    ~CSmallNumbersTaken() { setrlimit(RLIMIT_NOFILE, &m_before); }

    int last() const { return m_taken.back().get(); }

private:
    rlimit m_before{};
    std::vector<support::CDescriptor> m_taken;
};

class PoolConnectionsTest : public CPoolFixture {
protected:
    void expectSuccess(const std::string& url)
    {
        const auto transfer = pool().start(requestTo(url).get());
        EXPECT_TRUE(transfer->wait(longest));
        EXPECT_EQ(failureOf(transfer), "");
    }

    /// Answers so many requests over one connection.
    static void answerAll(support::CScriptedServer& server, int count)
    {
        support::CScript& script = server.onConnection();
        for (int number = 0; number < count; ++number)
            script.readHead().send(ok(""));
        script.readToEnd();
    }

    /// How often two servers are connected to that are asked in turn, twice.
    size_t connectionsForTwoServers()
    {
        support::CScriptedServer other;
        for (int number = 0; number < 2; ++number) {
            answerAll(server(), 2);
            answerAll(other, 2);
        }
        for (const std::string& url : {server().url(), other.url(), server().url(), other.url()})
            expectSuccess(url);
        return server().connectionCount() + other.connectionCount();
    }
};

TEST_F(PoolConnectionsTest, areOfAnyNumber)
{
    const CSmallNumbersTaken taken(3 * FD_SETSIZE);
    ASSERT_GE(taken.last(), 3 * FD_SETSIZE);
    replacePool({});
    answerAll(server(), 1);
    expectSuccess(server().url());
}

TEST_F(PoolConnectionsTest, stayOpenForLaterTransfers)
{
    EXPECT_EQ(connectionsForTwoServers(), 2U);
}

TEST_F(PoolConnectionsTest, stayOpenInNoGreaterNumberThanTheyMay)
{
    replacePool({.idleConnections = 1});
    EXPECT_GT(connectionsForTwoServers(), 2U);
}

TEST_F(PoolConnectionsTest, areSharedByAllTransfersToOneHostOnSeveralThreads)
{
    constexpr int count = 12;
    replacePool({.threads = 4});
    answerAll(server(), count);
    for (int number = 0; number < count; ++number)
        expectSuccess(server().url("/" + std::to_string(number)));
    EXPECT_EQ(server().connectionCount(), 1U);
}

/// So many transfers to one host at once that they take several lanes.
class PoolLanesTest : public CPoolFixture {
protected:
    static constexpr int count = 300;

    PoolLanesTest() { replacePool({.atOnce = count, .idleConnections = count}); }

    support::CPathServer& paths() { return m_paths; }

    std::vector<Transfer> startAll(const std::string& path, const CTransfer::Options& options = {})
    {
        std::vector<Transfer> transfers;
        for (int number = 0; number < count; ++number)
            transfers.push_back(pool().start(requestTo(m_paths.url(path)).get(), options));
        return transfers;
    }

    /// All of which the server has, and leaves without an answer.
    std::vector<Transfer> startStalledOnes()
    {
        if (!std::exchange(m_isStarted, true))
            m_paths.start();
        const int before = m_paths.requestCount();
        auto transfers = startAll("/silent");
        EXPECT_TRUE(waitUntil([this, before] { return m_paths.requestCount() == before + count; }));
        return transfers;
    }

    static int countCancelled(const std::vector<Transfer>& transfers)
    {
        return static_cast<int>(std::count_if(transfers.begin(), transfers.end(),
            [](const Transfer& transfer) { return transfer->getState() == norla::TransferState::Cancelled; }));
    }

    std::chrono::steady_clock::duration timeOfStop()
    {
        replacePool({.atOnce = count});
        const auto transfers = startStalledOnes();
        const auto start = std::chrono::steady_clock::now();
        pool().stop();
        const auto time = std::chrono::steady_clock::now() - start;
        EXPECT_EQ(countCancelled(transfers), count);
        return time;
    }

    /// @return how many have succeeded
    int runAll()
    {
        const auto transfers = startAll("/");
        if (m_paths.connectionCount() == 0)
            m_paths.start(); // all at once, since nobody had an answer
        int succeeded = 0;
        for (const Transfer& transfer : transfers)
            succeeded += transfer->wait(longest) && failureOf(transfer).empty() ? 1 : 0;
        return succeeded;
    }

private:
    bool m_isStarted = false; // by startStalledOnes()
    support::CPathServer m_paths{{{"/", support::CPathServer::answer("200 OK", "hello")},
        {"/busy", support::CPathServer::answer("503 Busy", "")}}};
};

TEST_F(PoolLanesTest, keepTheirConnectionsForLaterTransfers)
{
    for (int round = 0; round < 3; ++round)
        EXPECT_EQ(runAll(), count);
    EXPECT_EQ(paths().connectionCount(), count);
}

TEST_F(PoolLanesTest, besideTheFirstCloseTheirConnectionsWhenNobodyUsesThem)
{
    runAll();
    EXPECT_TRUE(waitUntil([this] { return paths().openCount() == norla::CTransferLanes::width; }))
        << paths().openCount();
}

TEST_F(PoolLanesTest, openAgainAfterTheyHaveClosed)
{
    runAll();
    ASSERT_TRUE(waitUntil([this] { return paths().openCount() == norla::CTransferLanes::width; }));
    EXPECT_EQ(runAll(), count);
}

TEST_F(PoolLanesTest, letAllGoThatAreCancelled)
{
    const auto transfers = startStalledOnes();
    pool().cancelAll();
    for (const Transfer& transfer : transfers)
        EXPECT_TRUE(transfer->wait(longest));
    EXPECT_EQ(countCancelled(transfers), count);
    EXPECT_TRUE(waitUntil([this] { return paths().openCount() == 0; }));
}

TEST_F(PoolLanesTest, endWithThePoolsStopAtOnce)
{
    constexpr std::chrono::steady_clock::duration longestStop = std::chrono::milliseconds(250) * support::slowdown;
    auto quickest = std::chrono::steady_clock::duration::max();
    for (int tries = 0; tries < 5 && quickest > longestStop && !HasFailure(); ++tries)
        quickest = std::min(quickest, timeOfStop());
    EXPECT_LE(quickest, longestStop);
}

TEST_F(PoolLanesTest, tryAgainInWhicheverHasRoom)
{
    CTransfer::Options options;
    options.retries = {.attempts = 3, .firstPause = kx::CTimeSpan::fromMilliseconds(1)};
    const auto transfers = startAll("/busy", options);
    paths().start();
    int attempts = 0;
    for (const Transfer& transfer : transfers) {
        EXPECT_TRUE(transfer->wait(longest));
        attempts += static_cast<int>(transfer->getAttempts().size());
    }
    EXPECT_EQ(attempts, 3 * count);
    EXPECT_EQ(paths().requestCount(), 3 * count);
}

class PoolThreadsTest : public CPoolFixture {
protected:
    /// All of the process, whatever their names, without those of pools before.
    static long countAllThreads()
    {
        EXPECT_TRUE(waitUntil([] { return countThreads() == 0; }));
        return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
    }

    static size_t countThreads()
    {
        size_t count = 0;
        for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
            std::string name;
            std::getline(std::ifstream(thread.path() / "comm"), name);
            count += name == "norla.pool" ? 1 : 0;
        }
        return count;
    }
};

TEST_F(PoolThreadsTest, shareTheHosts)
{
    replacePool({.threads = 3});
    std::mutex mutex;
    std::map<std::string, std::set<std::thread::id>> threads; // by host, guarded by the mutex
    for (int number = 0; number < 200; ++number) {
        const std::string host = "nonsense://127.0.0.1:" + std::to_string(1 + number % 50);
        CTransfer::Options options;
        options.onDone = [&mutex, &threads, host](CTransfer&) {
            const std::lock_guard lock(mutex);
            threads[host].insert(std::this_thread::get_id());
        };
        pool().start(requestTo(host + "/").get(), options);
    }
    pool().stop();
    std::set<std::thread::id> all;
    for (const auto& [host, its] : threads) {
        EXPECT_EQ(its.size(), 1U) << host;
        all.insert(its.begin(), its.end());
    }
    EXPECT_EQ(all.size(), 3U);
}

TEST_F(PoolThreadsTest, goWithThePoolsStop)
{
    replacePool({.threads = 3});
    startStalled();
    EXPECT_TRUE(waitUntil([] { return countThreads() == 3; })); // they give themselves their names
    pool().stop();
    EXPECT_TRUE(waitUntil([] { return countThreads() == 0; })); // the system takes a moment to forget them
}

TEST_F(PoolThreadsTest, areOneUnlessTheOptionsSayMore)
{
    destroyPool();
    const long before = countAllThreads();
    replacePool({});
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator("/proc/self/task"), {}), before + 1);
}

TEST_F(PoolThreadsTest, goWithThePool)
{
    destroyPool();
    const long before = countAllThreads();
    replacePool({.threads = 3});
    pool().start(badRequest().get())->wait(longest);
    destroyPool();
    EXPECT_EQ(countAllThreads(), before);
}

/// The descriptors that a pool needs for itself.
class PoolDescriptorsTest : public CPoolFixture {
protected:
    /// What the process has open, by what it is.
    static std::multiset<std::string> links()
    {
        std::multiset<std::string> links;
        for (const auto& descriptor : std::filesystem::directory_iterator("/proc/self/fd")) {
            std::error_code gone; // that of this loop
            links.insert(std::filesystem::read_symlink(descriptor.path(), gone).string());
        }
        return links;
    }

    /// Those of the system that are no sockets, so that they do not change with the test's server.
    static std::map<std::string, size_t> countEvents()
    {
        std::map<std::string, size_t> counts;
        for (const std::string& link : links()) {
            if (link.starts_with("anon_inode:"))
                ++counts[link];
        }
        return counts;
    }

    // libcurl's own way to wake its handle: two sockets, or an event descriptor, which nothing here needs.
    const size_t m_ofLibcurl = support::isLibcurlSince(8, 9) ? 1 : 2;
};

TEST_F(PoolDescriptorsTest, areAFewForEachThread)
{
    destroyPool();
    const size_t before = links().size();
    replacePool({});
    EXPECT_EQ(links().size(), before + 2 + m_ofLibcurl);
    replacePool({.threads = 3});
    EXPECT_EQ(links().size(), before + 3 * (2 + m_ofLibcurl));
    destroyPool();
    EXPECT_EQ(links().size(), before);
}

TEST_F(PoolDescriptorsTest, areNotMoreBehindManyTransfers)
{
    destroyPool();
    auto events = countEvents();
    events["anon_inode:[eventpoll]"] += 1;
    events["anon_inode:[eventfd]"] += m_ofLibcurl == 1 ? 2 : 1;
    replacePool({});
    EXPECT_EQ(countEvents(), events);
    for (int count = 0; count < 100; ++count) {
        answer("HTTP/1.1 200 OK\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
        EXPECT_TRUE(pool().start(newRequest().get())->wait(longest));
    }
    EXPECT_EQ(countEvents(), events);
}

} // namespace
