// What is asked for twice, or in an order of its own: additions and removals of the same request.
#include "kx/base/CInvalidArgError.h"
#include "norla/async/CAsyncNetRequestThread.h"
#include "norla/core/CCURLError.h"
#include "tests/curlcalls/CWaitCalls.h"
#include "tests/norla/async/CAsyncFixture.h"
#include "tests/support/CLogRecorder.h"
#include "tests/support/errorOf.h"

#include <future>
#include <stdexcept>

namespace {

using norla::CAsyncNetRequestManager;
using norla::CAsyncNetRequestThread;
using norla::CNetRequest;
using support::errorOf;
using Strings = std::vector<std::string>;

/// Runs the test's own code, once, when its transfer starts.
class CActionSource : public kx::CBase, public virtual CNetRequest::IDataSource {
public:
    explicit CActionSource(std::function<void()> action)
        : m_action(std::move(action))
    {
    }
    int read(unsigned char*, int, const CNetRequest::HeaderMap&) override { return 0; }
    long long getLength() override { return 0; }
    void seek(long long) override {}
    long long getPosition() override
    {
        std::exchange(m_action, [] {})();
        return 0;
    }

private:
    std::function<void()> m_action;
};

/// Fails to seek, which the start of a transfer makes it do.
class CUnseekableSource : public kx::CBase, public virtual CNetRequest::IDataSource {
public:
    int read(unsigned char*, int, const CNetRequest::HeaderMap&) override { return 0; }
    long long getLength() override { return 0; }
    void seek(long long) override
    {
        if (++m_seeks % 2 == 0)
            throw std::runtime_error("cannot seek");
        throw norla::CCURLError(CURLE_READ_ERROR, "cannot seek", "", 0, "");
    }
    long long getPosition() override { return 1; }

    std::atomic<int> m_seeks{0};
};

class RequestQueueTest : public CAsyncFixture {
protected:
    CAsyncNetRequestThread& thread() { return *m_thread; }

    Request addRunning()
    {
        const size_t connection = server().connectionCount();
        auto request = stalledRequest();
        thread().addRequest(request.get());
        EXPECT_TRUE(waitUntil([this, connection] { return !server().received(connection).empty(); }));
        return request;
    }

    /// Waits until the thread has made a pass.
    void makePass()
    {
        const auto probe = badRequest();
        thread().addRequest(probe.get());
        EXPECT_TRUE(probe->waitAsyncDone(20'000));
    }

    support::CLogRecorder m_log;
    kx::P<CAsyncNetRequestThread> m_thread = kx::newObj<CAsyncNetRequestThread>();
};

// ---- twice

TEST_F(RequestQueueTest, managerRefusesARunningRequestAndLeavesItsTransferAlone)
{
    std::promise<void> gate;
    server()
        .onConnection()
        .readHead()
        .send("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nfirst")
        .waitFor(gate.get_future().share())
        .send("other");
    const auto manager = kx::newObj<CAsyncNetRequestManager>();
    const auto request = newRequest();
    manager->addRequest(request.get());
    while (bodyOf(request).empty()) {
        manager->waitForEvents(100);
        manager->handleEvents(nullptr);
    }
    const auto error = errorOf([&] { manager->addRequest(request.get()); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getDomain(), "curlm");
    EXPECT_EQ(error->getCode(), CURLM_ADDED_ALREADY);
    EXPECT_EQ(bodyOf(request), "first");
    gate.set_value();
    while (manager->handleEvents(nullptr) == 0)
        manager->waitForEvents(100);
    EXPECT_EQ(bodyOf(request), "firstother");
    EXPECT_EQ(resultOf(request), "success");
}

TEST_F(RequestQueueTest, anotherManagerRefusesItToo)
{
    const auto first = kx::newObj<CAsyncNetRequestManager>();
    const auto second = kx::newObj<CAsyncNetRequestManager>();
    const auto request = stalledRequest();
    first->addRequest(request.get());
    EXPECT_THROW(second->addRequest(request.get()), norla::CCURLError);
    EXPECT_TRUE(request->isManaged());
    EXPECT_FALSE(second->removeRequest(request.get()));
    EXPECT_TRUE(first->removeRequest(request.get()));
    EXPECT_FALSE(request->isManaged());
    second->addRequest(request.get());
    EXPECT_TRUE(request->isManaged());
}

TEST_F(RequestQueueTest, managerRefusesARequestThatIsPerforming)
{
    answer(ok("body"));
    const auto manager = kx::newObj<CAsyncNetRequestManager>();
    const auto request = newRequest();
    kx::P<kx::CError> error;
    request->setReceiveDataSink(
        kx::newObj<CActionSink>([&] { error = errorOf([&] { manager->addRequest(request.get()); }); }).get());
    EXPECT_NO_THROW(request->perform());
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getDomain(), "curlm");
    EXPECT_EQ(error->getCode(), CURLM_ADDED_ALREADY);
    EXPECT_FALSE(request->isManaged());
    EXPECT_EQ(request->getResponseHeaderMap().count("content-length"), 1u); // the answer goes on
}

/// Where two threads meet, again and again, without sleeping: they leave it at the same moment.
class CMeetingPoint {
public:
    void meet()
    {
        const int round = m_arrived++ / 2;
        for (int looks = 0; m_arrived < 2 * (round + 1); ++looks) {
            if (looks > 10'000) // the other one has no processor
                std::this_thread::yield();
        }
    }

private:
    std::atomic<int> m_arrived{0};
};

TEST_F(RequestQueueTest, oneOfTwoThreadsGetsARequest)
{
    constexpr int rounds = 20'000; // the moment in which both could is short
    const auto request = badRequest();
    CMeetingPoint point;
    std::atomic<int> got{0};
    const auto tryOnce = [&](int delay) {
        point.meet();
        for (int looks = 0; looks < delay; ++looks)
            static_cast<void>(request->isManaged());
        got += request->claim() ? 1 : 0;
        point.meet();
    };
    std::jthread other([&] {
        for (int i = 0; i < rounds; ++i)
            tryOnce(0);
    });
    int wrong = 0;
    for (int i = 0; i < rounds; ++i) {
        request->leaveManager();
        got = 0;
        tryOnce(i % 50); // whoever comes last to the meeting leaves it first
        wrong += got == 1 ? 0 : 1;
    }
    EXPECT_EQ(wrong, 0);
}

TEST_F(RequestQueueTest, runningRequestIsNeitherPerformedNorReset)
{
    const auto manager = kx::newObj<CAsyncNetRequestManager>();
    const auto request = stalledRequest();
    manager->addRequest(request.get());
    for (const auto& action : std::vector<std::function<void()>>{
             [&] { request->perform(); }, [&] { request->reset(); }, [&] { request->resetForPerform(); }}) {
        const auto error = errorOf(action);
        ASSERT_TRUE(error);
        EXPECT_NE(error->getMessage().find("while the request's transfer is running"), kx::String::npos);
    }
    EXPECT_FALSE(request->getURL().isEmpty());
    EXPECT_TRUE(manager->removeRequest(request.get()));
    EXPECT_NO_THROW(request->reset());
}

TEST_F(RequestQueueTest, requestThatEndsMayBeResetByItsListener)
{
    const auto manager = kx::newObj<CAsyncNetRequestManager>();
    const auto request = badRequest();
    request->setDoneListener(
        kx::newObj<CActionListener>([](CNetRequest* ended, const kx::CError*) { ended->reset(); }).get());
    manager->addRequest(request.get());
    while (manager->handleEvents(nullptr) == 0)
        manager->waitForEvents(100);
    EXPECT_TRUE(request->getURL().isEmpty());
}

TEST_F(RequestQueueTest, threadRefusesARequestThatWaitsForItsStart)
{
    const auto request = badRequest();
    thread().addRequest(request.get());
    const auto error = errorOf([&] { thread().addRequest(request.get()); });
    ASSERT_TRUE(dynamic_cast<kx::CInvalidArgError*>(error.get()));
    EXPECT_EQ(error->getMessage(),
        "Invalid argument passed to 'CAsyncNetRequestThread::addRequest': request was added already.");
    thread().start();
    EXPECT_TRUE(request->waitAsyncDone(20'000));
}

const kx::String refusal = "CNetRequest::perform was called while the request waits for its start in the background.";

TEST_F(RequestQueueTest, requestThatWaitsForItsStartIsNotPerformed)
{
    const auto waiting = badRequest();
    kx::String message;
    const auto first = badRequest();
    first->setDoneListener(kx::newObj<CActionListener>([&](CNetRequest*, const kx::CError*) {
        thread().addRequest(waiting.get());
        message = support::messageOf([&] { waiting->perform(); });
    }).get());
    thread().start();
    thread().addRequest(first.get());
    EXPECT_TRUE(waiting->waitAsyncDone(20'000));
    EXPECT_EQ(message, refusal);
    thread().stop(true);
    EXPECT_NE(support::messageOf([&] { waiting->perform(); }), refusal);
}

TEST_F(RequestQueueTest, requestThatWaitsSinceBeforeTheStartIsNotPerformed)
{
    const auto waiting = badRequest();
    thread().addRequest(waiting.get());
    kx::String message;
    const auto source = kx::newObj<CActionSource>([&] { message = support::messageOf([&] { waiting->perform(); }); });
    const auto newest = badRequest();
    newest->setSendDataSource(source.get());
    thread().addRequest(newest.get());
    thread().start();
    EXPECT_TRUE(waiting->waitAsyncDone(20'000));
    EXPECT_EQ(message, refusal);
}

TEST_F(RequestQueueTest, requestIsPerformedThatNoRunningThreadWillStart)
{
    const auto request = badRequest();
    thread().addRequest(request.get());
    EXPECT_NE(support::messageOf([&] { request->perform(); }), refusal) << "before the start";
    const auto late = badRequest();
    const auto last = badRequest();
    last->setDoneListener(kx::newObj<CActionListener>([&](CNetRequest*, const kx::CError*) {
        thread().addRequest(late.get());
        thread().signalStop();
    }).get());
    thread().addRequest(last.get());
    thread().start();
    EXPECT_TRUE(last->waitAsyncDone(20'000));
    thread().stop(true);
    EXPECT_NE(support::messageOf([&] { late->perform(); }), refusal) << "behind the end";
    EXPECT_FALSE(late->isAsyncDone());
}

TEST_F(RequestQueueTest, threadLeavesARunningRequestAloneThatIsAddedAgainAndGoesOn)
{
    thread().start();
    const auto running = addRunning();
    thread().addRequest(running.get());
    makePass();
    EXPECT_TRUE(thread().isAlive());
    EXPECT_TRUE(running->isManaged());
    EXPECT_EQ(server().connectionCount(), 1U);
    EXPECT_EQ(m_log.lines(),
        Strings{"error: A request was added twice to the background transfers (ignored).: Invalid argument passed to "
                "'CAsyncNetRequestThread::addRequest': request is running already."});
    EXPECT_TRUE(thread().removeRequest(running.get()));
}

// ---- a source that cannot be rewound

TEST_F(RequestQueueTest, sourceThatCannotSeekEndsTheThreadOnce)
{
    const auto source = kx::newObj<CUnseekableSource>();
    const auto request = badRequest();
    request->setSendDataSource(source.get());
    thread().addRequest(request.get());
    thread().start();
    for (int seeks = 1; seeks <= 2; ++seeks) { // it throws something else each time
        EXPECT_TRUE(waitUntil([this] { return !thread().isAlive(); }));
        EXPECT_EQ(source->m_seeks, seeks);
        if (seeks == 1)
            thread().addRequest(request.get());
        thread().start();
    }
    makePass();
    EXPECT_TRUE(thread().isAlive());
    EXPECT_EQ(source->m_seeks, 2);
}

// ---- a removal that nobody waits for, and then an addition

TEST_F(RequestQueueTest, additionAfterARemovalOfBeforeTheStartIsNotWithdrawn)
{
    const auto request = badRequest();
    EXPECT_FALSE(thread().removeRequest(request.get()));
    thread().addRequest(request.get());
    thread().start();
    EXPECT_TRUE(request->waitAsyncDone(20'000));
}

TEST_F(RequestQueueTest, additionAfterARemovalOfAllIsNotWithdrawn)
{
    const auto request = badRequest();
    EXPECT_FALSE(thread().removeAllRequests());
    thread().addRequest(request.get());
    thread().start();
    EXPECT_TRUE(request->waitAsyncDone(20'000));
}

TEST_F(RequestQueueTest, listenerMayRemoveARunningRequestAndAddItAgain)
{
    thread().start();
    const auto running = addRunning();
    server().onConnection().readHead().send(ok("second"));
    const auto trigger = badRequest();
    trigger->setDoneListener(kx::newObj<CActionListener>([this, &running](CNetRequest*, const kx::CError*) {
        EXPECT_FALSE(thread().removeRequest(running.get()));
        thread().addRequest(running.get());
    }).get());
    thread().addRequest(trigger.get());
    EXPECT_TRUE(running->waitAsyncDone(20'000));
    EXPECT_EQ(bodyOf(running), "second");
    EXPECT_EQ(m_log.lines(), Strings());
}

TEST_F(RequestQueueTest, sourceMayRemoveARunningRequestAndAddItAgain)
{
    thread().start();
    const auto running = addRunning();
    server().onConnection().readHead().send(ok("second"));
    const auto trigger = badRequest();
    trigger->setSendDataSource(kx::newObj<CActionSource>([this, &running] {
        EXPECT_FALSE(thread().removeRequest(running.get()));
        thread().addRequest(running.get());
    }).get());
    thread().addRequest(trigger.get());
    EXPECT_TRUE(running->waitAsyncDone(20'000));
    EXPECT_EQ(bodyOf(running), "second");
    EXPECT_EQ(m_log.lines(), Strings());
}

// The two were asked for at the same time, as far as anybody can tell.
TEST_F(RequestQueueTest, removalOfAllThatSomebodyStillWaitsForConcernsWhatIsAddedMeanwhile)
{
    thread().start();
    std::promise<void> entered;
    std::promise<void> gate;
    const auto trigger = badRequest();
    trigger->setDoneListener(kx::newObj<CActionListener>([&](CNetRequest*, const kx::CError*) {
        entered.set_value();
        gate.get_future().wait();
    }).get());
    thread().addRequest(trigger.get());
    entered.get_future().wait();
    support::CWaitCalls waits;
    std::jthread remover([&] {
        waits.noteSignals();
        EXPECT_TRUE(thread().removeAllRequests());
    });
    EXPECT_TRUE(waitUntil([&waits] {
        const Strings seen = waits.takeWaits();
        return std::find(seen.begin(), seen.end(), "signal 250") != seen.end();
    }));
    const auto request = stalledRequest();
    thread().addRequest(request.get());
    gate.set_value();
    remover.join();
    makePass();
    EXPECT_FALSE(request->isManaged());
}

TEST_F(RequestQueueTest, lastRemovalCountsAfterRemovalAdditionRemoval)
{
    thread().start();
    const auto running = addRunning();
    const auto trigger = badRequest();
    trigger->setDoneListener(kx::newObj<CActionListener>([this, &running](CNetRequest*, const kx::CError*) {
        thread().removeRequest(running.get());
        thread().addRequest(running.get());
        thread().removeRequest(running.get());
    }).get());
    thread().addRequest(trigger.get());
    EXPECT_TRUE(waitUntil([&running] { return !running->isManaged(); }));
    makePass();
    EXPECT_FALSE(running->isManaged());
    EXPECT_EQ(server().connectionCount(), 1U);
}

TEST_F(RequestQueueTest, requestMayWaitAgainOnceItsRemovalWasAskedFor)
{
    const auto request = badRequest();
    thread().addRequest(request.get());
    EXPECT_FALSE(thread().removeRequest(request.get()));
    EXPECT_NO_THROW(thread().addRequest(request.get()));
    thread().start();
    EXPECT_TRUE(request->waitAsyncDone(20'000));
}

} // namespace
