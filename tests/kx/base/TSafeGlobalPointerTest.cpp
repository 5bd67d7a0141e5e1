#include "kx/base/TSafeGlobalPointer.h"

#include "kx/base/CBase.h"
#include "kx/threads/CSignal.h"
#include "tests/support/sleepingThread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <set>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

int constructions = 0;
bool failNext = false;

class CSingleton : public kx::CBase {
public:
    CSingleton()
    {
        ++constructions;
        if (failNext)
            throw kx::CError("cannot be made");
    }

    static kx::TSafeGlobalPointer<CSingleton>& get()
    {
        const auto lock = kx::TSafeGlobalPointer<CSingleton>::lockUntilConstructed(globalInstanceGuard());
        static kx::TSafeGlobalPointer<CSingleton> g_pInstance(
            globalInstanceGuard(), [] { return kx::newObj<CSingleton>(); });
        return kx::TSafeGlobalPointer<CSingleton>::waitConstructed(g_pInstance, globalInstanceGuard());
    }

    static kx::CSafeGlobalGuard& globalInstanceGuard()
    {
        static constinit kx::CSafeGlobalGuard g_Guard;
        return g_Guard;
    }
};

kx::String messageOfGet()
{
    try {
        CSingleton::get();
    } catch (const kx::CError& error) {
        return error.getMessage();
    }
    return "";
}

[[noreturn]] void exitWith(bool success)
{
    std::exit(success ? 0 : 1);
}

kx::CSignal outerIsBeingMade;
std::atomic<pid_t> threadOfInner{0};

class CInner : public kx::CBase {
public:
    static kx::TSafeGlobalPointer<CInner>& get()
    {
        const auto lock = kx::TSafeGlobalPointer<CInner>::lockUntilConstructed(globalInstanceGuard());
        static kx::TSafeGlobalPointer<CInner> g_pInstance(globalInstanceGuard(), [] { return kx::newObj<CInner>(); });
        return kx::TSafeGlobalPointer<CInner>::waitConstructed(g_pInstance, globalInstanceGuard());
    }

    static kx::CSafeGlobalGuard& globalInstanceGuard()
    {
        static constinit kx::CSafeGlobalGuard g_Guard;
        return g_Guard;
    }
};

// Its construction needs the other one, and goes on when another thread that makes that one cannot go on.
class COuter : public kx::CBase {
public:
    COuter()
    {
        outerIsBeingMade.set();
        while (threadOfInner == 0)
            kx::threadYield(false);
        support::waitUntilAsleep(threadOfInner);
        CInner::get();
    }

    static kx::TSafeGlobalPointer<COuter>& get()
    {
        const auto lock = kx::TSafeGlobalPointer<COuter>::lockUntilConstructed(globalInstanceGuard());
        static kx::TSafeGlobalPointer<COuter> g_pInstance(globalInstanceGuard(), [] { return kx::newObj<COuter>(); });
        return kx::TSafeGlobalPointer<COuter>::waitConstructed(g_pInstance, globalInstanceGuard());
    }

    static kx::CSafeGlobalGuard& globalInstanceGuard()
    {
        static constinit kx::CSafeGlobalGuard g_Guard;
        return g_Guard;
    }
};

// Each case needs a process in which the singleton was not made yet.
class TSafeGlobalPointerTest : public testing::Test {
protected:
    TSafeGlobalPointerTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

void getFromManyThreads()
{
    std::mutex mutex;
    std::set<CSingleton*> instances;
    std::vector<std::thread> threads;
    for (int i = 0; i < 16; ++i) {
        threads.emplace_back([&mutex, &instances] {
            CSingleton* const instance = CSingleton::get().get();
            const std::lock_guard lock(mutex);
            instances.insert(instance);
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    exitWith(instances.size() == 1 && constructions == 1);
}

TEST_F(TSafeGlobalPointerTest, makesOneInstanceForManyThreads)
{
    EXPECT_EXIT(getFromManyThreads(), testing::ExitedWithCode(0), "");
}

void getOneBesideTheOneThatNeedsIt()
{
    alarm(30); // in place of waiting for ever
    std::thread other([] {
        outerIsBeingMade.wait(-1);
        threadOfInner = gettid();
        CInner::get();
    });
    COuter::get();
    other.join();
    exitWith(true);
}

TEST_F(TSafeGlobalPointerTest, makesAnInstanceThatNeedsAnotherWhileAThreadMakesThatOne)
{
    EXPECT_EXIT(getOneBesideTheOneThatNeedsIt(), testing::ExitedWithCode(0), "");
}

TEST_F(TSafeGlobalPointerTest, locksUntilTheInstanceIsThere)
{
    const auto isLocked = [](const kx::CSafeGlobalGuard& guard) {
        return kx::TSafeGlobalPointer<CSingleton>::lockUntilConstructed(guard).owns_lock();
    };
    kx::CSafeGlobalGuard guard;
    EXPECT_TRUE(isLocked(guard));
    {
        const kx::TSafeGlobalPointer<kx::CError> pointer(guard, [&] {
            EXPECT_TRUE(isLocked(guard));
            return kx::newObj<kx::CError>("x");
        });
        EXPECT_FALSE(isLocked(guard));
    }
    EXPECT_FALSE(isLocked(guard));
}

TEST_F(TSafeGlobalPointerTest, locksTheGlobalMutex)
{
    const kx::CSafeGlobalGuard guard;
    const auto lock = kx::TSafeGlobalPointer<CSingleton>::lockUntilConstructed(guard);
    EXPECT_EQ(lock.mutex(), &kx::getGlobalMutex());
}

TEST_F(TSafeGlobalPointerTest, passesOnWhatTheConstructorThrows)
{
    const auto run = [] {
        failNext = true;
        exitWith(messageOfGet() == "cannot be made" && !CSingleton::globalInstanceGuard());
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}

TEST_F(TSafeGlobalPointerTest, succeedsAfterAFailure)
{
    const auto run = [] {
        failNext = true;
        messageOfGet();
        failNext = false;
        exitWith(messageOfGet().isEmpty() && constructions == 2 && CSingleton::globalInstanceGuard());
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}

TEST_F(TSafeGlobalPointerTest, throwsOnceTheInstanceIsGone)
{
    const auto run = [] {
        std::atexit([] { std::fprintf(stderr, "%s\n", messageOfGet().toUTF8().c_str()); });
        CSingleton::get();
        std::exit(0);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "Construction of static object has failed\\.");
}

TEST_F(TSafeGlobalPointerTest, constructsNothingWhereTheGuardIsSetAlready)
{
    kx::CSafeGlobalGuard guard;
    guard = true;
    bool called = false;
    const kx::TSafeGlobalPointer<CSingleton> pointer(guard, [&called] {
        called = true;
        return kx::P<CSingleton>();
    });
    EXPECT_FALSE(called);
    EXPECT_EQ(pointer.get(), nullptr);
}

TEST_F(TSafeGlobalPointerTest, givesItsInstance)
{
    kx::CSafeGlobalGuard guard;
    const auto thing = kx::newObj<kx::CError>("x");
    const kx::TSafeGlobalPointer<kx::CError> pointer(guard, [&thing] { return thing; });
    EXPECT_EQ(pointer.get(), thing.get());
    EXPECT_EQ(pointer->getMessage(), "x");
    EXPECT_EQ((*pointer).getMessage(), "x");
}

TEST_F(TSafeGlobalPointerTest, makesItsInstanceUnderTheGlobalMutex)
{
    kx::CSafeGlobalGuard guard;
    bool isFree = true;
    const kx::TSafeGlobalPointer<kx::CError> pointer(guard, [&isFree] {
        std::thread([&isFree] {
            isFree = std::unique_lock(kx::getGlobalMutex(), std::try_to_lock).owns_lock();
        }).join();
        return kx::newObj<kx::CError>("x");
    });
    EXPECT_FALSE(isFree);
}

TEST_F(TSafeGlobalPointerTest, tearsTheGuardDown)
{
    kx::CSafeGlobalGuard guard;
    {
        const kx::TSafeGlobalPointer<kx::CError> pointer(guard, [] { return kx::newObj<kx::CError>("x"); });
        EXPECT_FALSE(guard.isTornDown());
    }
    EXPECT_TRUE(guard.isTornDown());
}

} // namespace
