#include "kx/threads/CThread.h"

#include "kx/base/CError.h"
#include "kx/threads/CMutexLock.h"
#include "kx/threads/CSignal.h"
#include "kx/threads/globalMutex.h"
#include "kx/threads/threadYield.h"
#include "tests/support/CForeignLocale.h"
#include "tests/support/CLogRecorder.h"
#include "tests/support/errorOf.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <pthread.h>
#include <thread>

namespace {

class CLambdaThread : public kx::CThread {
public:
    explicit CLambdaThread(std::function<void(CLambdaThread&)> body)
        : m_body(std::move(body))
    {
    }
    ~CLambdaThread() override { stop(true); }

    std::atomic<int> m_finished{0};

protected:
    void runImpl() override { m_body(*this); }
    void onRunFinished() override { ++m_finished; }

private:
    std::function<void(CLambdaThread&)> m_body;
};

class CCountingRunnable : public kx::CBase, public virtual kx::IRunnable {
public:
    void run(kx::CThread& thread) override
    {
        m_started.set();
        while (thread.checkContinue())
            kx::threadYield(true);
        ++m_runs;
    }

    kx::CSignal m_started;
    std::atomic<int> m_runs{0};
};

void waitForStop(CLambdaThread& thread)
{
    while (thread.checkContinue())
        kx::threadYield(false);
}

TEST(CThreadTest, isNotAliveBeforeItsStart)
{
    const kx::CThread thread;
    EXPECT_FALSE(thread.isAlive());
    EXPECT_EQ(thread.getID(), kx::CThread::ID());
}

TEST(CThreadTest, runsItsRunnable)
{
    const auto runnable = kx::newObj<CCountingRunnable>();
    kx::CThread thread(runnable.get());
    thread.start();
    EXPECT_TRUE(thread.isAlive());
    EXPECT_TRUE(runnable->m_started.wait(-1));
    thread.stop(true);
    EXPECT_EQ(runnable->m_runs, 1);
    EXPECT_FALSE(thread.isAlive());
}

TEST(CThreadTest, runsNothingWithoutARunnable)
{
    kx::CThread thread;
    thread.start();
    thread.stop(true);
    EXPECT_FALSE(thread.isAlive());
}

TEST(CThreadTest, runsItsOverride)
{
    std::atomic<int> runs{0};
    CLambdaThread thread([&runs](CLambdaThread&) { ++runs; });
    thread.start();
    thread.stop(true);
    EXPECT_EQ(runs, 1);
    EXPECT_EQ(thread.m_finished, 1);
}

TEST(CThreadTest, isAskedToStopByItsDestructor)
{
    const auto runnable = kx::newObj<CCountingRunnable>();
    {
        kx::CThread thread(runnable.get(), true);
        thread.start();
    }
    EXPECT_EQ(runnable->m_runs, 1);
}

TEST(CThreadTest, isWaitedForByItsDestructor)
{
    class CShortRunnable : public kx::CBase, public virtual kx::IRunnable {
    public:
        void run(kx::CThread& thread) override
        {
            kx::CThread::sleep(5); // so that the destructor comes first
            m_wasAsked = !thread.checkContinue();
            m_ended = true;
        }
        std::atomic<bool> m_wasAsked{false};
        std::atomic<bool> m_ended{false};
    };
    const auto runnable = kx::newObj<CShortRunnable>();
    {
        kx::CThread thread(runnable.get(), false);
        thread.start();
    }
    EXPECT_TRUE(runnable->m_ended);
    EXPECT_FALSE(runnable->m_wasAsked);
}

TEST(CThreadTest, cannotBeStartedTwiceAtOnce)
{
    CLambdaThread thread(waitForStop);
    thread.setName("twice");
    thread.start();
    try {
        thread.start();
        FAIL() << "no error";
    } catch (const kx::CError& error) {
        EXPECT_EQ(error.getMessage(), "The thread 'twice' is running already.");
    }
}

TEST(CThreadTest, canBeStartedAgain)
{
    std::atomic<int> runs{0};
    CLambdaThread thread([&runs](CLambdaThread& self) {
        ++runs;
        waitForStop(self);
    });
    for (int i = 0; i < 2; ++i) {
        thread.start();
        thread.stop(true);
    }
    EXPECT_EQ(runs, 2);
}

TEST(CThreadTest, canBeStartedAgainWhenItHasEndedByItself)
{
    std::atomic<int> runs{0};
    CLambdaThread thread([&runs](CLambdaThread&) { ++runs; });
    thread.start();
    while (thread.isAlive())
        kx::threadYield(true);
    thread.start();
    thread.stop(true);
    EXPECT_EQ(runs, 2);
}

TEST(CThreadTest, goesOnAfterAnotherStart)
{
    std::atomic<bool> mayGoOn{false};
    CLambdaThread thread([&mayGoOn](CLambdaThread& self) { mayGoOn = self.checkContinue(); });
    thread.signalStop();
    thread.start();
    while (thread.isAlive())
        kx::threadYield(true);
    EXPECT_TRUE(mayGoOn);
}

TEST(CThreadTest, isAskedToStopWithoutBeingWaitedFor)
{
    kx::CSignal mayEnd;
    CLambdaThread thread([&mayEnd](CLambdaThread&) { mayEnd.wait(-1); });
    thread.start();
    thread.stop(false);
    EXPECT_FALSE(thread.checkContinue());
    EXPECT_TRUE(thread.isAlive());
    mayEnd.set();
}

// Starts in the middle of a stop, which is told to it all the same.
TEST(CThreadTest, isStoppedWhileItStarts)
{
    class CStartingAtStop : public kx::CThread {
    public:
        ~CStartingAtStop() override { stop(true); }

        void signalStop() override
        {
            CThread::signalStop();
            if (!m_wasStarted.exchange(true))
                start();
        }

        std::atomic<bool> m_wasStopped{false};

    protected:
        void runImpl() override
        {
            const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(10);
            while (checkContinue() && std::chrono::steady_clock::now() < limit)
                kx::threadYield(true);
            m_wasStopped = !checkContinue();
        }

    private:
        std::atomic<bool> m_wasStarted{false};
    };
    CStartingAtStop thread;
    thread.stop(true);
    EXPECT_TRUE(thread.m_wasStopped);
}

TEST(CThreadTest, stopsItselfWithoutWaiting)
{
    CLambdaThread thread([](CLambdaThread& self) { self.stop(true); });
    thread.start();
    while (thread.isAlive())
        kx::threadYield(true);
    EXPECT_FALSE(thread.checkContinue());
}

TEST(CThreadTest, logsTheErrorThatEndsIt)
{
    const support::CLogRecorder log;
    CLambdaThread thread([](CLambdaThread&) { throw kx::CError("broken"); });
    thread.setName("worker");
    thread.start();
    thread.stop(true);
    EXPECT_EQ(log.lines(), std::vector<std::string>{"error: An error has ended the thread 'worker'.: broken"});
    EXPECT_EQ(thread.m_finished, 1);
}

TEST(CThreadTest, logsTheErrorOfItsEnd)
{
    class CThrowingAtEnd : public kx::CThread {
    public:
        ~CThrowingAtEnd() override { stop(true); }

    protected:
        void onRunFinished() override { throw kx::CError("broken"); }
    };
    const support::CLogRecorder log;
    CThrowingAtEnd thread;
    thread.start();
    thread.stop(true);
    EXPECT_EQ(
        log.lines(), std::vector<std::string>{"error: An error has left the end of the thread 'kx.thread'.: broken"});
}

TEST(CThreadTest, logsWhatIsNoException)
{
    const support::CLogRecorder log;
    CLambdaThread thread([](CLambdaThread&) { throw 1; });
    thread.start();
    thread.stop(true);
    EXPECT_EQ(log.lines(),
        std::vector<std::string>{
            "error: An error has ended the thread 'kx.thread'.: something that is no std::exception"});
    EXPECT_EQ(thread.m_finished, 1);
}

TEST(CThreadTest, endsAlsoWhenTheLogThrows)
{
    kx::setLogHandler([](const kx::CLogEntry&) { throw 1; });
    testing::internal::CaptureStderr();
    CLambdaThread thread([](CLambdaThread&) { throw kx::CError("broken"); });
    thread.start();
    thread.stop(true);
    kx::setLogHandler({});
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "An error of a thread could not be logged.\n");
    EXPECT_FALSE(thread.isAlive());
    EXPECT_EQ(thread.m_finished, 1);
}

class CThreadStartTest : public testing::Test {
protected:
    CThreadStartTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

    // No thread has room for such a stack.
    static void setStackSize(size_t size)
    {
        pthread_attr_t attributes;
        pthread_attr_init(&attributes);
        pthread_attr_setstacksize(&attributes, size);
        pthread_setattr_default_np(&attributes);
        pthread_attr_destroy(&attributes);
    }

    static constexpr size_t tooLarge = size_t{1} << 50;
};

TEST_F(CThreadStartTest, failsInTheWordsOfEveryLocale)
{
    const auto run = [] {
        const support::CForeignLocale locale("de_DE.UTF-8");
        setStackSize(tooLarge);
        CLambdaThread thread([](CLambdaThread&) {});
        thread.setName("large");
        const kx::String message = support::messageOf([&thread] { thread.start(); });
        std::fprintf(stderr, "%s\n", message.toUTF8().c_str());
        std::_Exit(0);
    };
    EXPECT_EXIT(
        run(), testing::ExitedWithCode(0), "The thread 'large' cannot be started: Resource temporarily unavailable\\.");
}

TEST_F(CThreadStartTest, maySucceedAfterItFailed)
{
    const auto run = [] {
        std::atomic<int> runs{0};
        CLambdaThread thread([&runs](CLambdaThread&) { ++runs; });
        setStackSize(tooLarge);
        const bool failed = support::errorOf([&thread] { thread.start(); }) != nullptr;
        const bool wasAlive = thread.isAlive();
        setStackSize(1 << 20);
        thread.start();
        thread.stop(true);
        std::_Exit(failed && !wasAlive && runs == 1 ? 0 : 1);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}

TEST(ThreadYieldTest, restsForAMillisecondWhenAskedTo)
{
    const auto start = std::chrono::steady_clock::now();
    kx::threadYield(true);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1));
}

TEST(CThreadTest, knowsItsOwnID)
{
    std::atomic<bool> same{false};
    CLambdaThread thread([&same](CLambdaThread& self) { same = self.getID() == kx::CThread::getCurrentID(); });
    thread.start();
    thread.stop(true);
    EXPECT_TRUE(same);
    EXPECT_NE(thread.getID(), kx::CThread::getCurrentID());
}

TEST(CThreadTest, showsItsNameToTheSystem)
{
    std::string shown;
    CLambdaThread thread([&shown](CLambdaThread&) {
        char name[16] = {};
        pthread_getname_np(pthread_self(), name, sizeof(name));
        shown = name;
    });
    thread.setName("a.name.longer.than.that");
    thread.start();
    thread.stop(true);
    EXPECT_EQ(shown, "a.name.longer.t");
    EXPECT_EQ(thread.getName(), "a.name.longer.than.that");
}

TEST(CThreadTest, sleepsAtLeastAsLongAsAsked)
{
    const auto start = std::chrono::steady_clock::now();
    kx::CThread::sleep(10);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(10));
}

TEST(GlobalMutexTest, isOneAndMayBeTakenTwice)
{
    EXPECT_EQ(&kx::getGlobalMutex(), &kx::getGlobalMutex());
    const kx::CMutexLock lock(kx::getGlobalMutex());
    const kx::CMutexLock again(kx::getGlobalMutex());
}

// Both wait, whichever comes first.
TEST(CThreadTest, everybodyWhoStopsItWaitsForItsEnd)
{
    kx::CSignal mayEnd;
    std::atomic<bool> ended{false};
    CLambdaThread thread([&](CLambdaThread&) {
        mayEnd.wait(-1);
        ended = true;
    });
    thread.start();
    std::atomic<int> waiting{0};
    std::atomic<int> early{0};
    const auto stop = [&] {
        ++waiting;
        thread.stop(true);
        early += ended ? 0 : 1;
    };
    std::thread first(stop);
    std::thread second(stop);
    while (waiting < 2 || thread.checkContinue())
        kx::threadYield(true);
    mayEnd.set();
    first.join();
    second.join();
    EXPECT_EQ(early, 0);
}

TEST(CThreadDeathTest, saysWhyTheProcessEndsWhenItIsDestroyedOnItself)
{
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_DEATH(
        {
            kx::CSignal never;
            kx::P<kx::CThread> last;
            class CDroppingThread : public kx::CThread {
            public:
                explicit CDroppingThread(kx::P<kx::CThread>& last)
                    : m_last(last)
                {
                }

            protected:
                void runImpl() override { m_last = nullptr; }

            private:
                kx::P<kx::CThread>& m_last;
            };
            last = kx::newObj<CDroppingThread>(last);
            last->setName("mine");
            last->start();
            never.wait(-1);
        },
        "The thread 'mine' has destroyed its own object: the process ends.: The last reference to a thread's object "
        "must "
        "not be dropped on that thread.");
}

} // namespace
