#include "norla/async/CAsyncNetRequestThread.h"

#include "tests/curlcalls/CCurlCalls.h"
#include "tests/curlcalls/CLockCalls.h"
#include "tests/curlcalls/CWaitCalls.h"
#include "tests/norla/async/CAsyncFixture.h"
#include "tests/support/CLogRecorder.h"
#include "tests/support/errorOf.h"
#include "tests/support/loopback.h"

#include <future>
#include <mutex>
#include <optional>

namespace {

using norla::CAsyncNetRequestManager;
using norla::CAsyncNetRequestThread;
using norla::CNetRequest;
using support::messageOf;
using Strings = std::vector<std::string>;

class CActionProgress : public kx::CBase, public virtual CAsyncNetRequestThread::IProgressHandler {
public:
    explicit CActionProgress(std::function<void()> action)
        : m_action(std::move(action))
    {
    }

    void onProgress() override
    {
        m_action();
        ++m_calls;
    }

    std::atomic<int> m_calls{0};

private:
    const std::function<void()> m_action;
};

/// Counts the references that are taken to it, also those that are gone.
class CCountingRequest : public CNetRequest {
public:
    void addRef() const noexcept override
    {
        CNetRequest::addRef();
        ++m_taken;
    }

    mutable std::atomic<int> m_taken{0};
};

/// Runs the test's own code when it goes.
class CActionAtEnd : public kx::CBase {
public:
    explicit CActionAtEnd(std::function<void()> action)
        : m_action(std::move(action))
    {
    }
    ~CActionAtEnd() override { m_action(); }

private:
    const std::function<void()> m_action;
};

/// Writes down what its hooks see.
class CHookedThread : public CAsyncNetRequestThread {
public:
    using CAsyncNetRequestThread::CAsyncNetRequestThread;
    ~CHookedThread() override { stop(true); }

    Strings takeSteps()
    {
        const std::lock_guard lock(m_mutex);
        return std::exchange(m_steps, {});
    }

    void addStep(const std::string& step)
    {
        const std::lock_guard lock(m_mutex);
        m_steps.push_back(step);
    }

    std::function<void()> m_atExit = [] {};
    CAsyncNetRequestManager::RequestArray m_finished; // looked at once the thread has ended

protected:
    void onThreadExit() override
    {
        addStep(getCurrentID() == getID() ? "exit" : "exit on another thread");
        m_atExit();
    }

    void handleManagerEvents(CAsyncNetRequestManager& manager) override
    {
        addStep("events");
        manager.handleEvents(&m_finished);
    }

private:
    std::mutex m_mutex;
    Strings m_steps;
};

class CAsyncNetRequestThreadTest : public CAsyncFixture {
protected:
    CAsyncNetRequestThread& thread() { return *m_thread; }
    void destroyThread() { m_thread = nullptr; }
    void replaceThread(CAsyncNetRequestThread* thread) { m_thread = thread; }

    /// A transfer whose request the server has, and which it leaves without an answer.
    Request addRunning()
    {
        const size_t connection = server().connectionCount();
        auto request = stalledRequest();
        thread().addRequest(request.get());
        EXPECT_TRUE(waitUntil([this, connection] { return !server().received(connection).empty(); }));
        return request;
    }

    static kx::P<CActionListener> neverCalled()
    {
        return kx::newObj<CActionListener>([](CNetRequest*, const kx::CError*) { ADD_FAILURE(); });
    }

    /// Waits until the thread has gone through so many more passes.
    void waitForPasses(const CActionProgress& progress, int count)
    {
        const int start = progress.m_calls;
        EXPECT_TRUE(waitUntil([&progress, start, count] { return progress.m_calls >= start + count; }));
    }

    void waitUntilDead()
    {
        EXPECT_TRUE(waitUntil([this] { return !thread().isAlive(); }));
    }

    support::CCurlCalls m_calls;
    support::CLogRecorder m_log;

private:
    kx::P<CAsyncNetRequestThread> m_thread = kx::newObj<CAsyncNetRequestThread>(nullptr);
};

// ---- construction, start, stop

TEST_F(CAsyncNetRequestThreadTest, hasItsName)
{
    EXPECT_EQ(thread().getName(), "norla.asyncNetRequest");
}

TEST_F(CAsyncNetRequestThreadTest, isStartedByItsOwner)
{
    thread().addRequest(badRequest().get());
    EXPECT_FALSE(thread().isAlive());
    EXPECT_EQ(m_calls.countOf("curl_multi_init"), 0);
}

TEST_F(CAsyncNetRequestThreadTest, runsATransferThatWasAddedBeforeTheStart)
{
    answer(ok("early"));
    const auto request = newRequest();
    thread().addRequest(request.get());
    thread().start();
    EXPECT_TRUE(request->waitAsyncDone(20'000));
    EXPECT_EQ(bodyOf(request), "early");
}

TEST_F(CAsyncNetRequestThreadTest, runsATransferThatIsAddedLater)
{
    answer(ok("late"));
    thread().start();
    const auto request = newRequest();
    thread().addRequest(request.get());
    EXPECT_TRUE(request->waitAsyncDone(20'000));
    EXPECT_EQ(resultOf(request), "success");
    EXPECT_EQ(bodyOf(request), "late");
}

TEST_F(CAsyncNetRequestThreadTest, callsBackOnItsOwnThread)
{
    answer(ok("x"));
    const auto request = newRequest();
    std::mutex mutex;
    std::vector<kx::CThread::ID> threads;
    const auto note = [&mutex, &threads] {
        const std::lock_guard lock(mutex);
        threads.push_back(kx::CThread::getCurrentID());
    };
    std::promise<void> told;
    request->setReceiveDataSink(kx::newObj<CActionSink>(note).get());
    request->setDoneListener(kx::newObj<CActionListener>([&](CNetRequest*, const kx::CError*) {
        note();
        told.set_value();
    }).get());
    thread().addRequest(request.get());
    thread().start();
    told.get_future().wait();
    const std::lock_guard lock(mutex);
    EXPECT_EQ(threads, (std::vector<kx::CThread::ID>{thread().getID(), thread().getID()}));
}

TEST_F(CAsyncNetRequestThreadTest, makesAndFreesItsMultiHandle)
{
    thread().start();
    EXPECT_TRUE(waitUntil([this] { return m_calls.countOf("curl_multi_perform") > 0; }));
    EXPECT_EQ(m_calls.countOf("curl_multi_init"), 1);
    thread().stop(true);
    EXPECT_EQ(m_calls.countOf("curl_multi_cleanup"), 1);
}

TEST_F(CAsyncNetRequestThreadTest, withdrawsWhatRunsWhenItIsStopped)
{
    thread().start();
    const auto request = addRunning();
    request->setDoneListener(neverCalled().get());
    thread().stop(true);
    EXPECT_FALSE(request->isAsyncDone());
    EXPECT_EQ(m_calls.countOf("curl_multi_remove_handle"), 1);
    EXPECT_EQ(m_calls.cleanUpMultis(), 0U);
}

TEST_F(CAsyncNetRequestThreadTest, neverStartsWhatIsAddedAfterTheStop)
{
    thread().start();
    thread().stop(true);
    const auto gone = std::make_shared<std::atomic<bool>>(false);
    auto request = kx::newObj<CWatchedRequest>(gone);
    thread().addRequest(request.get());
    request = nullptr;
    EXPECT_EQ(m_calls.countOf("curl_multi_add_handle"), 0);
    EXPECT_FALSE(*gone); // kept
    destroyThread();
    EXPECT_TRUE(*gone);
    EXPECT_EQ(m_calls.countOf("curl_multi_add_handle"), 0);
}

TEST_F(CAsyncNetRequestThreadTest, keepsNoReferenceOnceARemovalHasReturned)
{
    thread().start();
    for (int i = 0; i < 20; ++i) {
        const auto gone = std::make_shared<std::atomic<bool>>(false);
        auto request = kx::newObj<CWatchedRequest>(gone);
        EXPECT_FALSE(thread().removeRequest(request.get()));
        request = nullptr;
        EXPECT_TRUE(*gone);
    }
}

TEST_F(CAsyncNetRequestThreadTest, neverStartsWhatIsAddedInTheLastPass)
{
    std::optional<Request> late;
    const auto progress = kx::newObj<CActionProgress>([this, &late] {
        late = badRequest();
        thread().addRequest(late->get());
        thread().signalStop();
    });
    replaceThread(kx::newObj<CAsyncNetRequestThread>(progress.get()).get());
    thread().start();
    waitUntilDead();
    EXPECT_EQ(progress->m_calls, 1);
    EXPECT_EQ(m_calls.countOf("curl_multi_add_handle"), 0);
}

TEST_F(CAsyncNetRequestThreadTest, canBeStartedAgain)
{
    thread().start();
    thread().stop(true);
    const auto request = badRequest();
    thread().addRequest(request.get());
    thread().start();
    EXPECT_TRUE(request->waitAsyncDone(20'000));
}

TEST_F(CAsyncNetRequestThreadTest, isStoppedAlsoWhenItIsStartedMeanwhile)
{
    class CStartedMeanwhile : public CAsyncNetRequestThread {
    public:
        ~CStartedMeanwhile() override { stop(true); }

        void signalStop() override
        {
            CAsyncNetRequestThread::signalStop();
            if (!std::exchange(m_isStarted, true))
                start(); // as another thread could between the two steps of a stop
        }

    private:
        bool m_isStarted = false;
    };
    const auto thread = kx::newObj<CStartedMeanwhile>();
    const auto stopped = std::async(std::launch::async, [&thread] { thread->stop(true); });
    const bool isInTime = stopped.wait_for(std::chrono::seconds(20)) == std::future_status::ready;
    EXPECT_TRUE(isInTime);
    EXPECT_EQ(thread->isAlive(), !isInTime);
    if (!isInTime)
        thread->signalStop();
}

TEST_F(CAsyncNetRequestThreadTest, endsWithTransfersRunningAndOthersPendingWhenItIsDestroyed)
{
    thread().start();
    auto running = addRunning();
    const auto gone = std::make_shared<std::atomic<bool>>(false);
    for (int i = 0; i < 10; ++i)
        thread().addRequest(kx::newObj<CWatchedRequest>(gone).get());
    destroyThread();
    EXPECT_TRUE(*gone);
    EXPECT_FALSE(running->isAsyncDone());
    EXPECT_EQ(m_calls.cleanUpMultis(), 0U);
}

TEST_F(CAsyncNetRequestThreadTest, canBeDestroyedUnused)
{
    destroyThread();
    EXPECT_EQ(m_log.lines(), Strings());
}

TEST_F(CAsyncNetRequestThreadTest, logsAnErrorOfItsDestructionUnderItsName)
{
    support::CLockCalls locks(thread());
    locks.failNext(); // of the base class, when it is to stop
    destroyThread();
    ASSERT_EQ(m_log.lines().size(), 1U);
    EXPECT_TRUE(m_log.lines().front().starts_with(
        "error: Exception in the destructor of norla::CAsyncNetRequestThread (ignored).: "))
        << m_log.lines().front();
}

// ---- adding

TEST_F(CAsyncNetRequestThreadTest, refusesNull)
{
    EXPECT_EQ(messageOf([this] { thread().addRequest(nullptr); }),
        "Invalid argument passed to 'CAsyncNetRequestThread::addRequest': request is null.");
}

TEST_F(CAsyncNetRequestThreadTest, startsRequestsThatWereAddedTogetherNewestFirst)
{
    std::vector<int> order;
    std::atomic<size_t> ended{0};
    std::vector<Request> requests;
    for (int i = 0; i < 3; ++i) {
        requests.push_back(badRequest());
        requests.back()->setDoneListener(
            kx::newObj<CActionListener>([&order, &ended, i](CNetRequest*, const kx::CError*) {
                order.push_back(i);
                ++ended;
            }).get());
        thread().addRequest(requests.back().get());
    }
    thread().start();
    EXPECT_TRUE(waitUntil([&ended] { return ended == 3; }));
    EXPECT_EQ(order, (std::vector<int>{2, 1, 0}));
}

TEST_F(CAsyncNetRequestThreadTest, keepsARequestAliveUntilItsEndAndNoLonger)
{
    const auto gone = std::make_shared<std::atomic<bool>>(false);
    const auto goneInside = std::make_shared<std::atomic<bool>>(false);
    auto request = kx::newObj<CWatchedRequest>(gone);
    request->setURL("nonsense://127.0.0.1/");
    request->setDoneListener(kx::newObj<CActionListener>([gone, goneInside](CNetRequest*, const kx::CError*) {
        *goneInside = gone->load();
    }).get());
    thread().addRequest(request.get());
    request = nullptr;
    EXPECT_FALSE(*gone);
    thread().start();
    EXPECT_TRUE(waitUntil([&gone] { return gone->load(); }));
    EXPECT_FALSE(*goneInside);
}

TEST_F(CAsyncNetRequestThreadTest, leavesTheLastResultOfARequestUntilItTakesItUp)
{
    const auto request = badRequest();
    thread().addRequest(request.get());
    thread().start();
    EXPECT_TRUE(request->waitAsyncDone(20'000));
    thread().stop(true);
    thread().addRequest(request.get());
    EXPECT_TRUE(request->isAsyncDone());
}

TEST_F(CAsyncNetRequestThreadTest, letsASourceAddOthersWhenItsRequestStarts)
{
    class CAddingSource : public kx::CBase, public virtual CNetRequest::IDataSource {
    public:
        explicit CAddingSource(std::function<void()> action)
            : m_action(std::move(action))
        {
        }
        int read(unsigned char*, int, const CNetRequest::HeaderMap&) override { return 0; }
        long long getLength() override { return 0; }
        void seek(long long) override {}
        long long getPosition() override
        {
            m_action();
            return 0;
        }

    private:
        const std::function<void()> m_action;
    };
    std::vector<Request> others = {badRequest(), badRequest(), badRequest()};
    const auto request = badRequest();
    request->setSendDataSource(kx::newObj<CAddingSource>([this, &others] {
        for (const Request& other : others)
            thread().addRequest(other.get());
    }).get());
    thread().addRequest(request.get());
    thread().start();
    EXPECT_TRUE(request->waitAsyncDone(20'000));
    for (const Request& other : others)
        EXPECT_TRUE(other->waitAsyncDone(20'000));
}

TEST_F(CAsyncNetRequestThreadTest, letsAListenerStartTheNextTransfer)
{
    std::atomic<int> left{5};
    std::promise<void> over;
    const auto request = badRequest();
    request->setDoneListener(kx::newObj<CActionListener>([&](CNetRequest* ended, const kx::CError*) {
        if (--left > 0)
            thread().addRequest(ended);
        else
            over.set_value();
    }).get());
    thread().addRequest(request.get());
    thread().start();
    EXPECT_EQ(over.get_future().wait_for(std::chrono::seconds(20)), std::future_status::ready);
}

// ---- removing

TEST_F(CAsyncNetRequestThreadTest, withdrawsARunningRequest)
{
    thread().start();
    const auto request = addRunning();
    request->setDoneListener(neverCalled().get());
    EXPECT_TRUE(thread().removeRequest(request.get()));
    EXPECT_FALSE(thread().removeRequest(request.get()));
    EXPECT_FALSE(request->isAsyncDone());
}

TEST_F(CAsyncNetRequestThreadTest, doesNotWithdrawWhatWasNeverAdded)
{
    thread().start();
    EXPECT_FALSE(thread().removeRequest(badRequest().get()));
}

TEST_F(CAsyncNetRequestThreadTest, doesNotWithdrawWhatHasEnded)
{
    thread().start();
    const auto request = badRequest();
    thread().addRequest(request.get());
    EXPECT_TRUE(request->waitAsyncDone(20'000));
    EXPECT_FALSE(thread().removeRequest(request.get()));
    EXPECT_TRUE(request->isAsyncDone());
}

TEST_F(CAsyncNetRequestThreadTest, startsWhatWasJustAddedAndThenWithdrawsIt)
{
    thread().start();
    const auto request = stalledRequest();
    request->setDoneListener(neverCalled().get());
    thread().addRequest(request.get());
    EXPECT_TRUE(thread().removeRequest(request.get()));
    EXPECT_EQ(m_calls.countOf("curl_multi_add_handle"), 1);
    EXPECT_FALSE(request->isAsyncDone());
}

TEST_F(CAsyncNetRequestThreadTest, neverLeavesRunningWhatWasAddedAndThenRemoved)
{
    m_calls.setMultiTimeout(0); // one pass after the other, so that additions and removals come at any step
    thread().start();
    const support::CDescriptor silent = support::listenOnLoopback();
    const std::string url = support::loopbackURL("http", support::portOf(silent.get()), "/");
    std::atomic<int> leftRunning{0};
    {
        std::vector<std::jthread> owners;
        for (int owner = 0; owner < 8; ++owner) {
            owners.emplace_back([this, &url, &leftRunning] {
                const auto request = requestTo(url);
                for (int i = 0; i < 2000; ++i) {
                    thread().addRequest(request.get());
                    if (!thread().removeRequest(request.get())) {
                        ++leftRunning;
                        thread().removeRequest(request.get());
                    }
                }
            });
        }
    }
    EXPECT_EQ(leftRunning, 0);
}

TEST_F(CAsyncNetRequestThreadTest, withdrawsAllAlsoWhenThereAreNone)
{
    thread().start();
    EXPECT_TRUE(thread().removeAllRequests());
    const auto first = addRunning();
    const auto second = addRunning();
    EXPECT_TRUE(thread().removeAllRequests());
    EXPECT_FALSE(thread().removeRequest(first.get()));
    EXPECT_FALSE(thread().removeRequest(second.get()));
}

TEST_F(CAsyncNetRequestThreadTest, withdrawsAllForNull)
{
    thread().start();
    const auto request = addRunning();
    EXPECT_TRUE(thread().removeRequest(nullptr));
    EXPECT_FALSE(thread().removeRequest(request.get()));
}

TEST_F(CAsyncNetRequestThreadTest, removesAllThroughTheVirtualOperation)
{
    class COverridingThread : public CAsyncNetRequestThread {
    public:
        COverridingThread()
            : CAsyncNetRequestThread(nullptr)
        {
        }
        bool removeRequest(CNetRequest* request) override
        {
            m_removed = request;
            return true;
        }
        std::optional<CNetRequest*> m_removed;
    };
    const auto thread = kx::newObj<COverridingThread>();
    EXPECT_TRUE(thread->removeAllRequests());
    EXPECT_EQ(thread->m_removed, nullptr);
}

TEST_F(CAsyncNetRequestThreadTest, carriesOutARemovalOfBeforeTheStartAfterIt)
{
    const auto request = stalledRequest();
    request->setDoneListener(neverCalled().get());
    thread().addRequest(request.get());
    EXPECT_FALSE(thread().removeRequest(request.get())); // at once
    thread().start();
    EXPECT_TRUE(waitUntil([this] { return m_calls.countOf("curl_multi_remove_handle") == 1; }));
    EXPECT_EQ(m_calls.countOf("curl_multi_add_handle"), 1);
    EXPECT_FALSE(thread().removeRequest(request.get()));
    EXPECT_EQ(server().connectionCount(), 0U); // withdrawn in the same pass
}

TEST_F(CAsyncNetRequestThreadTest, carriesOutRemovalsNewestFirst)
{
    std::vector<int> order;
    std::atomic<int> gone{0};
    for (int i = 0; i < 3; ++i) {
        const auto request = badRequest();
        request->keepObject(kx::newObj<CActionAtEnd>([&order, &gone, i] {
            order.push_back(i);
            ++gone;
        }).get());
        thread().addRequest(request.get());
        thread().removeRequest(request.get()); // gets the last reference to it
    }
    thread().start();
    EXPECT_TRUE(waitUntil([&gone] { return gone == 3; }));
    EXPECT_EQ(order, (std::vector<int>{2, 1, 0}));
}

TEST_F(CAsyncNetRequestThreadTest, holdsOneLockForAllRemovalsOfAPass)
{
    support::CLockCalls locks(thread());
    std::vector<size_t> held;
    std::vector<int> spans;
    std::atomic<int> gone{0};
    for (int i = 0; i < 3; ++i) {
        const auto request = badRequest();
        request->keepObject(kx::newObj<CActionAtEnd>([&locks, &held, &spans, &gone] {
            held.push_back(locks.heldCount());
            spans.push_back(locks.spanCount());
            ++gone;
        }).get());
        thread().addRequest(request.get());
        thread().removeRequest(request.get()); // gets the last reference to it
    }
    thread().start();
    EXPECT_TRUE(waitUntil([&gone] { return gone == 3; }));
    thread().stop(true);
    EXPECT_EQ(held, (std::vector<size_t>{1, 1, 1}));
    EXPECT_EQ(spans, std::vector<int>(3, spans.front())); // never given back in between
}

// What goes with a request is the application's, and may wait for whatever the application does.
TEST_F(CAsyncNetRequestThreadTest, takesAdditionsOfOthersWhileItRemovesRequests)
{
    const auto other = badRequest();
    std::future<void> addition;
    std::promise<bool> wasTaken;
    {
        const auto request = badRequest();
        request->keepObject(kx::newObj<CActionAtEnd>([&] {
            addition = std::async(std::launch::async, [&] { thread().addRequest(other.get()); });
            wasTaken.set_value(addition.wait_for(std::chrono::seconds(5)) == std::future_status::ready);
        }).get());
        thread().addRequest(request.get());
        thread().removeRequest(request.get()); // gets the last reference to it
    }
    thread().start();
    EXPECT_TRUE(wasTaken.get_future().get());
    EXPECT_TRUE(other->waitAsyncDone(20'000));
}

TEST_F(CAsyncNetRequestThreadTest, neverHoldsItsTwoLocksTogether)
{
    support::CLockCalls locks(thread());
    thread().start();
    {
        std::vector<std::jthread> owners;
        for (int owner = 0; owner < 2; ++owner) {
            owners.emplace_back([this] {
                const auto request = badRequest();
                for (int i = 0; i < 3; ++i) {
                    thread().addRequest(request.get());
                    thread().removeRequest(request.get());
                }
                thread().addRequest(request.get());
                EXPECT_TRUE(request->waitAsyncDone(20'000));
            });
        }
    }
    thread().removeAllRequests();
    thread().stop(true);
    EXPECT_EQ(locks.mostHeldTogether(), 1U);
    EXPECT_GE(locks.mutexCount(), 2U);
}

TEST_F(CAsyncNetRequestThreadTest, releasesRemovalsThatItNeverCarriesOut)
{
    const auto gone = std::make_shared<std::atomic<bool>>(false);
    auto request = kx::newObj<CWatchedRequest>(gone);
    EXPECT_FALSE(thread().removeRequest(request.get()));
    request = nullptr;
    EXPECT_FALSE(*gone);
    destroyThread();
    EXPECT_TRUE(*gone);
}

TEST_F(CAsyncNetRequestThreadTest, answersAtOnceInAListenerAndWithdrawsInTheNextPass)
{
    thread().start();
    const auto running = addRunning();
    std::promise<bool> answered;
    const auto request = badRequest();
    request->setDoneListener(kx::newObj<CActionListener>([&](CNetRequest*, const kx::CError*) {
        answered.set_value(thread().removeRequest(running.get()));
    }).get());
    thread().addRequest(request.get());
    EXPECT_FALSE(answered.get_future().get());
    EXPECT_TRUE(waitUntil([this] { return m_calls.countOf("curl_multi_remove_handle") == 2; }));
    EXPECT_FALSE(thread().removeRequest(running.get()));
    EXPECT_FALSE(running->isAsyncDone());
}

TEST_F(CAsyncNetRequestThreadTest, answersAtOnceInTheProgressHandlerAndWithdrawsInTheNextPass)
{
    std::atomic<CNetRequest*> toRemove{nullptr};
    std::atomic<bool> wasRemoved{true};
    const auto progress = kx::newObj<CActionProgress>([this, &toRemove, &wasRemoved] {
        if (CNetRequest* const request = toRemove.exchange(nullptr))
            wasRemoved = thread().removeRequest(request);
    });
    replaceThread(kx::newObj<CAsyncNetRequestThread>(progress.get()).get());
    thread().start();
    const auto running = addRunning();
    toRemove = running.get();
    EXPECT_TRUE(waitUntil([this] { return m_calls.countOf("curl_multi_remove_handle") == 1; }));
    EXPECT_FALSE(wasRemoved);
    thread().stop(true);
}

TEST_F(CAsyncNetRequestThreadTest, letsAListenerRemoveItsOwnRequest)
{
    std::promise<bool> answered;
    const auto request = badRequest();
    request->setDoneListener(kx::newObj<CActionListener>([&](CNetRequest* ended, const kx::CError*) {
        answered.set_value(thread().removeRequest(ended));
    }).get());
    thread().addRequest(request.get());
    thread().start();
    EXPECT_FALSE(answered.get_future().get());
    EXPECT_TRUE(request->isAsyncDone());
}

TEST_F(CAsyncNetRequestThreadTest, withdrawsForOneOfEightThreads)
{
    thread().start();
    const auto request = addRunning();
    std::atomic<int> withdrawn{0};
    {
        std::vector<std::jthread> removers;
        for (int i = 0; i < 8; ++i)
            removers.emplace_back([&] { withdrawn += thread().removeRequest(request.get()); });
    }
    EXPECT_EQ(withdrawn, 1);
}

// ---- passes and hooks

TEST_F(CAsyncNetRequestThreadTest, callsTheProgressHandlerAboutTenTimesASecondWithoutRequests)
{
    const auto progress = kx::newObj<CActionProgress>([] {});
    replaceThread(kx::newObj<CAsyncNetRequestThread>(progress.get()).get());
    support::CWaitCalls waits;
    thread().start();
    waitForPasses(*progress, 3);
    thread().stop(true);
    const Strings seen = waits.takeWaits();
    EXPECT_EQ(seen, Strings(seen.size(), "sleep 100"));
    EXPECT_EQ(static_cast<size_t>(progress->m_calls), seen.size()); // each pass
}

TEST_F(CAsyncNetRequestThreadTest, waitsForATenthOfASecondAtMost)
{
    const auto progress = kx::newObj<CActionProgress>([] {});
    replaceThread(kx::newObj<CAsyncNetRequestThread>(progress.get()).get());
    thread().start();
    const auto request = addRunning();
    m_calls.setMultiTimeout(-1);
    support::CWaitCalls waits;
    waitForPasses(*progress, 5);
    thread().stop(true);
    const Strings seen = waits.takeWaits();
    EXPECT_NE(std::find(seen.begin(), seen.end(), "select 100"), seen.end());
}

TEST_F(CAsyncNetRequestThreadTest, callsItsHooksInTheirOrder)
{
    CHookedThread* raw = nullptr;
    const auto progress = kx::newObj<CActionProgress>([this, &raw] {
        raw->addStep(kx::CThread::getCurrentID() == thread().getID() ? "progress" : "progress on another thread");
        if (raw->m_finished.size() == 1)
            raw->signalStop();
    });
    const auto hooked = kx::newObj<CHookedThread>(progress.get());
    raw = hooked.get();
    replaceThread(raw);
    const auto request = badRequest();
    request->setDoneListener(
        kx::newObj<CActionListener>([raw](CNetRequest*, const kx::CError*) { raw->addStep("done"); }).get());
    thread().addRequest(request.get());
    thread().start();
    waitUntilDead();
    EXPECT_EQ(hooked->takeSteps(), (Strings{"events", "done", "progress", "exit"}));
    EXPECT_EQ(hooked->m_finished, std::vector<Request>{request});
}

TEST_F(CAsyncNetRequestThreadTest, tellsTheExitWhileTheRequestsStillRun)
{
    const auto hooked = kx::newObj<CHookedThread>(nullptr);
    replaceThread(hooked.get());
    hooked->m_atExit = [this, &hooked] {
        hooked->addStep("removed " + std::to_string(m_calls.countOf("curl_multi_remove_handle")));
    };
    thread().start();
    const auto request = addRunning();
    hooked->takeSteps();
    thread().stop(true);
    const Strings steps = hooked->takeSteps();
    ASSERT_GE(steps.size(), 2U);
    EXPECT_EQ(steps[steps.size() - 2], "exit");
    EXPECT_EQ(steps.back(), "removed 0");
    EXPECT_EQ(m_calls.countOf("curl_multi_remove_handle"), 1);
}

// ---- errors

TEST_F(CAsyncNetRequestThreadTest, endsWhenTheProgressHandlerThrows)
{
    const auto progress = kx::newObj<CActionProgress>([] { throw kx::CError("progress failed"); });
    const auto hooked = kx::newObj<CHookedThread>(progress.get());
    replaceThread(hooked.get());
    const auto request = stalledRequest();
    request->setDoneListener(neverCalled().get());
    thread().addRequest(request.get());
    thread().start();
    waitUntilDead();
    EXPECT_EQ(m_log.lines(), Strings{"error: An error has ended the thread 'norla.asyncNetRequest'.: progress failed"});
    EXPECT_EQ(hooked->takeSteps(), Strings{"events"}); // no exit
    EXPECT_EQ(m_calls.countOf("curl_multi_remove_handle"), 1);
    EXPECT_EQ(m_calls.cleanUpMultis(), 0U);
    EXPECT_FALSE(request->isAsyncDone());
}

TEST_F(CAsyncNetRequestThreadTest, endsWhenADoneListenerThrows)
{
    const auto request = badRequest();
    request->setDoneListener(kx::newObj<CActionListener>([](CNetRequest*, const kx::CError*) {
        throw kx::CError("listener failed");
    }).get());
    thread().addRequest(request.get());
    thread().start();
    waitUntilDead();
    EXPECT_TRUE(request->isAsyncDone());
    EXPECT_EQ(m_log.lines(), Strings{"error: An error has ended the thread 'norla.asyncNetRequest'.: listener failed"});
}

TEST_F(CAsyncNetRequestThreadTest, keepsARequestPendingThatCannotBeStarted)
{
    const auto request = badRequest();
    m_calls.fail("curl_multi_add_handle", 0, 1);
    thread().addRequest(request.get());
    thread().start();
    waitUntilDead();
    EXPECT_FALSE(request->isAsyncDone());
    thread().start();
    EXPECT_TRUE(request->waitAsyncDone(20'000));
}

struct CFault {
    std::string function;
    int skip;
};

void PrintTo(const CFault& fault, std::ostream* out)
{
    *out << fault.function << " after " << fault.skip;
}

class CAsyncFaultTest : public CAsyncNetRequestThreadTest, public testing::WithParamInterface<CFault> {};

std::string nameOf(const testing::TestParamInfo<CFault>& fault)
{
    return fault.param.function.substr(sizeof("curl_multi_") - 1) + "_" + std::to_string(fault.param.skip);
}

// Three transfers run or wait; whatever fails, everybody is released and nothing is left.
TEST_P(CAsyncFaultTest, endsTheThreadAndReleasesEverybody)
{
    const CFault& fault = GetParam();
    std::vector<Request> requests;
    for (int i = 0; i < 3; ++i) {
        requests.push_back(stalledRequest());
        requests.back()->setDoneListener(neverCalled().get());
        thread().addRequest(requests.back().get());
    }
    m_calls.fail(fault.function, fault.skip, 1);
    thread().start();
    std::atomic<int> returned{0};
    {
        std::vector<std::jthread> removers;
        for (int i = 0; i < 3; ++i)
            removers.emplace_back([&, i] {
                // Of a failing removal itself there are enough until one fails.
                thread().removeRequest(requests[static_cast<size_t>(i)].get());
                ++returned;
            });
    }
    EXPECT_EQ(returned, 3);
    waitUntilDead();
    const Strings log = m_log.lines();
    ASSERT_FALSE(log.empty());
    EXPECT_EQ(log.back(),
        fault.function == "curl_multi_init"
            ? "error: An error has ended the thread 'norla.asyncNetRequest'.: Error creating curl multi handle."
            : "error: An error has ended the thread 'norla.asyncNetRequest'.: Internal error");
    for (const Request& request : requests)
        EXPECT_FALSE(request->isAsyncDone());
    EXPECT_EQ(m_calls.cleanUpMultis(), 0U);
}

INSTANTIATE_TEST_SUITE_P(OfLibcurl, CAsyncFaultTest,
    testing::Values(CFault{"curl_multi_init", 0}, CFault{"curl_multi_add_handle", 0},
        CFault{"curl_multi_add_handle", 2}, CFault{"curl_multi_remove_handle", 0},
        CFault{"curl_multi_remove_handle", 2}, CFault{"curl_multi_fdset", 0}, CFault{"curl_multi_fdset", 3},
        CFault{"curl_multi_timeout", 0}, CFault{"curl_multi_timeout", 3}, CFault{"curl_multi_perform", 0},
        CFault{"curl_multi_perform", 3}),
    nameOf);

TEST_F(CAsyncNetRequestThreadTest, releasesACallerWhoWaitsForARemovalThatFails)
{
    thread().start();
    const auto request = addRunning();
    m_calls.fail("curl_multi_remove_handle", 0, 1);
    EXPECT_FALSE(thread().removeRequest(request.get()));
    EXPECT_FALSE(thread().isAlive());
    EXPECT_EQ(m_calls.countOf("curl_multi_remove_handle"), 2); // once more as the manager goes
}

TEST_F(CAsyncNetRequestThreadTest, releasesACallerWhoseRemovalIsNotTakenUpAnyMore)
{
    server().onConnection().readHead().stall();
    const auto request = kx::newObj<CCountingRequest>();
    request->setURL(kx::String::fromUTF8(server().url()));
    std::promise<void> running;
    const auto progress = kx::newObj<CActionProgress>([&request, &running] {
        const int before = request->m_taken;
        running.set_value();
        EXPECT_TRUE(waitUntil([&request, before] { return request->m_taken > before; })); // by the removal
        throw kx::CError("progress failed");
    });
    replaceThread(kx::newObj<CAsyncNetRequestThread>(progress.get()).get());
    thread().addRequest(request.get());
    thread().start();
    running.get_future().wait();
    EXPECT_FALSE(thread().removeRequest(request.get()));
    EXPECT_FALSE(thread().isAlive());
}

TEST_F(CAsyncNetRequestThreadTest, leavesTheMultiHandleWhenNothingCanBeWithdrawn)
{
    thread().start();
    auto request = addRunning();
    m_calls.fail("curl_multi_remove_handle", 0, 2);
    EXPECT_FALSE(thread().removeRequest(request.get()));
    request = nullptr;
    EXPECT_EQ(m_calls.cleanUpMultis(), 1U);
    EXPECT_EQ(m_log.lines(),
        (Strings{"error: Exception in the destructor of norla::CAsyncNetRequestManager (ignored).: Internal error",
            "error: An error has ended the thread 'norla.asyncNetRequest'.: Internal error"}));
}

TEST_F(CAsyncNetRequestThreadTest, looksEvery250MillisecondsWhetherTheThreadIsDead)
{
    support::CWaitCalls waits;
    std::promise<void> running;
    Strings signals;
    const auto progress = kx::newObj<CActionProgress>([&waits, &running, &signals] {
        running.set_value();
        EXPECT_TRUE(waitUntil([&waits, &signals] { // the caller has looked once more, in vain
            for (const std::string& wait : waits.takeWaits()) {
                if (wait.starts_with("signal "))
                    signals.push_back(wait);
            }
            return signals.size() >= 2;
        }));
        throw kx::CError("progress failed");
    });
    replaceThread(kx::newObj<CAsyncNetRequestThread>(progress.get()).get());
    thread().start();
    running.get_future().wait();
    waits.noteSignals();
    EXPECT_FALSE(thread().removeRequest(badRequest().get()));
    waitUntilDead();
    ASSERT_FALSE(signals.empty());
    EXPECT_EQ(signals, Strings(signals.size(), "signal 250"));
}

TEST_F(CAsyncNetRequestThreadTest, answersNoLongerThanItTakesToSeeThatTheThreadIsDead)
{
    thread().start();
    thread().stop(true);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(thread().removeRequest(badRequest().get()));
    EXPECT_FALSE(thread().removeAllRequests());
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(250));
}

} // namespace
