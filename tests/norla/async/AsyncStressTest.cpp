// Ten thousand transfers that succeed, fail, follow each other and are withdrawn at any moment, on transfer threads
// that are stopped, ended by an error or destroyed at any moment. NORLA_STRESS_TRANSFERS sets another number.
#include "norla/async/CAsyncNetRequestThread.h"
#include "norla/core/CNetRequest.h"
#include "tests/support/CLogRecorder.h"
#include "tests/support/CNginxServer.h"
#include "tests/support/CRefusedPort.h"
#include "tests/support/libcurlWords.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

using norla::CAsyncNetRequestThread;
using norla::CNetRequest;
using Random = std::minstd_rand;
using ThreadPtr = kx::P<CAsyncNetRequestThread>;

constexpr int usualTransfers = 10'000;
constexpr int ownerCount = 8; // threads that add and remove
constexpr size_t subjectsPerOwner = 8;
constexpr int roundsPerEpisode = 6; // that an owner makes with one transfer thread

int transferCount()
{
    const char* const setting = std::getenv("NORLA_STRESS_TRANSFERS");
    return setting ? std::atoi(setting) : usualTransfers;
}

/// A URL, and how a transfer of it must end.
struct CTarget {
    std::string url;
    std::string result; ///< what the error's message starts with
    std::string body = {};
    bool ends = true; ///< false: so slowly that nobody waits for it
};

/// One request with what it has told; used again and again by one owner.
class CSubject : public kx::CBase, public virtual CNetRequest::IDoneListener {
public:
    /// Adds it; its listener adds it so many times again.
    void start(const ThreadPtr& thread, const CTarget& target, int again)
    {
        m_thread = thread.get();
        m_target = &target;
        m_again = again;
        m_expected = 1 + again;
        m_reports = 0;
        m_withdrawn = false;
        m_request->reset();
        m_request->setURL(kx::String::fromUTF8(target.url));
        // On a used connection libcurl tries a few times what the server drops, and says something else then.
        m_request->setOptionInt(CURLOPT_FRESH_CONNECT, target.url.ends_with("/drop"));
        m_request->setDoneListener(this);
        m_thread->addRequest(m_request.get());
    }

    void onNetRequestDone(CNetRequest* request, const kx::CError* error) override
    {
        EXPECT_FALSE(m_withdrawn) << m_target->url << " has ended after it was withdrawn";
        EXPECT_TRUE(request->isAsyncDone());
        const std::string result = error ? error->getMessage().toUTF8() : "success";
        EXPECT_TRUE(result.starts_with(m_target->result)) << m_target->url << ": " << result;
        const auto buffer = request->getDefaultReceiveBuffer();
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(buffer->getData()), buffer->getSize()), m_target->body);
        if (m_again-- > 0)
            m_thread->addRequest(request);
        ++m_reports; // the last that it does with the request: the owner may take it now
    }

    /// Waits for all its ends, or for the end of the thread.
    void wait()
    {
        while (m_reports < m_expected && m_thread->isAlive())
            std::this_thread::yield();
    }

    /// Withdraws it. Whatever the answer is, nothing may come afterwards.
    void withdraw()
    {
        const bool withdrawn = m_thread->removeRequest(m_request.get());
        if (!m_thread->isAlive())
            return; // nothing is known
        m_withdrawn = true;
        EXPECT_LE(m_reports, m_expected);
        EXPECT_EQ(m_reports == m_expected, !withdrawn) << m_target->url;
    }

    /// Ends the circle of request and listener.
    void letGo() { m_request->setDoneListener(nullptr); }

    bool endsByItself() const { return m_target->ends; }

    /// Once its thread is gone: whatever it has told must be all.
    void checkAfterTheThread() const { EXPECT_LE(m_reports, m_expected); }

private:
    const kx::P<CNetRequest> m_request = kx::newObj<CNetRequest>();
    CAsyncNetRequestThread* m_thread = nullptr;
    const CTarget* m_target = nullptr;
    int m_again = 0;
    int m_expected = 0;
    std::atomic<int> m_reports{0};
    std::atomic<bool> m_withdrawn{false};
};

class CThrowingListener : public kx::CBase, public virtual CNetRequest::IDoneListener {
public:
    void onNetRequestDone(CNetRequest*, const kx::CError*) override { throw kx::CError("listener failed"); }
};

class CCountingProgress : public kx::CBase, public virtual CAsyncNetRequestThread::IProgressHandler {
public:
    void onProgress() override { ++m_passes; }
    int m_passes = 0;
};

class AsyncStressTest : public testing::Test {
protected:
    enum class Ending { Destroyed, Stopped, ListenerThrows };

    AsyncStressTest()
        : m_targets({{
            {m_server.url("/digits.txt"), "success", "0123456789"},
            {m_server.url("/chain/2"), "success", "0123456789"},
            {m_server.url("/status/404"), "HTTP response code said error (response code: http 404)",
                "<html><body><h1>Not here</h1></body></html>"},
            {m_server.url("/drop"), "Server returned nothing"},
            {m_refused.url(), support::libcurlSays("Couldn't connect to server")},
            {"nonsense://127.0.0.1/", "Unsupported protocol"},
            {m_server.url("/slow.bin"), "never", "", false},
        }})
    {
        for (auto& subjects : m_subjects)
            for (auto& subject : subjects)
                subject = kx::newObj<CSubject>();
    }

    ~AsyncStressTest() override
    {
        for (auto& subjects : m_subjects)
            for (auto& subject : subjects)
                subject->letGo();
    }

    /// One transfer thread from its construction to its end.
    void runEpisode(Random& random)
    {
        ThreadPtr thread = kx::newObj<CAsyncNetRequestThread>(kx::newObj<CCountingProgress>().get());
        thread->start();
        const auto ending = static_cast<Ending>(random() % 3);
        const int endAt = m_started + static_cast<int>(random() % (ownerCount * subjectsPerOwner * roundsPerEpisode));
        std::vector<std::jthread> owners;
        m_owning = ownerCount;
        for (auto& subjects : m_subjects) {
            owners.emplace_back([this, thread, &subjects, seed = random()] {
                own(thread, subjects, Random(seed));
                --m_owning;
            });
        }
        if (ending != Ending::Destroyed) {
            while (m_started < endAt && m_owning > 0)
                std::this_thread::yield();
            end(*thread, ending);
        }
        owners.clear(); // waits for them
        thread = nullptr;
        for (auto& subjects : m_subjects)
            for (auto& subject : subjects)
                subject->checkAfterTheThread();
    }

private:
    using Subjects = std::array<kx::P<CSubject>, subjectsPerOwner>;

    static void end(CAsyncNetRequestThread& thread, Ending ending)
    {
        if (ending == Ending::Stopped) {
            thread.stop(true);
            return;
        }
        const auto request = kx::newObj<CNetRequest>();
        request->setURL("nonsense://127.0.0.1/");
        request->setDoneListener(kx::newObj<CThrowingListener>().get());
        thread.addRequest(request.get());
        while (thread.isAlive())
            std::this_thread::yield();
    }

    /// One owner's share of an episode. Leaves the last round as it is, running and pending.
    void own(const ThreadPtr& thread, Subjects& subjects, Random random)
    {
        for (int round = 0; round < roundsPerEpisode && thread->isAlive(); ++round) {
            for (const auto& subject : subjects) {
                subject->start(thread, m_targets[random() % m_targets.size()], random() % 8 == 0 ? 2 : 0);
                ++m_started;
            }
            for (const auto& subject : subjects) {
                if (round + 1 == roundsPerEpisode)
                    return;
                if (subject->endsByItself() && random() % 3 != 0)
                    subject->wait();
                else
                    subject->withdraw();
            }
        }
    }

    support::CNginxServer m_server;
    support::CRefusedPort m_refused;
    const std::array<CTarget, 7> m_targets;
    std::array<Subjects, ownerCount> m_subjects;

protected:
    std::atomic<int> m_owning{0};
    std::atomic<int> m_started{0};
};

TEST_F(AsyncStressTest, tellsEveryEndOnceAndNoneOfAWithdrawnTransfer)
{
    const support::CLogRecorder log; // the threads that a listener ends say so
    Random random(20);
    while (m_started < transferCount() && !HasFailure())
        runEpisode(random);
    for (const std::string& line : log.lines())
        EXPECT_EQ(line, "error: An error has ended the thread 'norla.asyncNetRequest'.: listener failed");
}

} // namespace
