// Each case runs in a process of its own, in which nobody has touched libcurl before.
#include "norla/core/CGlobalInit.h"

#include "norla/core/CNetHeaders.h"
#include "norla/core/CNetRequest.h"
#include "sela/COpenSSLInit.h"
#include "tests/curlcalls/CCurlCalls.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <set>
#include <thread>
#include <typeinfo>

namespace {

class CGlobalInitTest : public testing::Test {
protected:
    CGlobalInitTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

[[noreturn]] void exitWith(bool success)
{
    std::exit(success ? 0 : 1);
}

// Never destroyed, so that it also sees what happens when the process exits.
support::CCurlCalls& calls()
{
    static auto* const instance = new support::CCurlCalls;
    return *instance;
}

kx::String messageOfGet()
{
    try {
        norla::CGlobalInit::get();
    } catch (const kx::CError& error) {
        return error.getDomain() + "|" + error.getMessage();
    }
    return "";
}

void getFromManyThreads()
{
    std::mutex mutex;
    std::set<norla::CGlobalInit*> instances;
    std::vector<std::thread> threads;
    for (int i = 0; i < 16; ++i) {
        threads.emplace_back([&mutex, &instances] {
            norla::CGlobalInit* const instance = norla::CGlobalInit::get().get();
            const std::lock_guard lock(mutex);
            instances.insert(instance);
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    exitWith(instances.size() == 1 && calls().countOf("curl_global_init") == 1);
}

TEST_F(CGlobalInitTest, initialisesOnceForManyThreads)
{
    calls();
    EXPECT_EXIT(getFromManyThreads(), testing::ExitedWithCode(0), "");
}

TEST_F(CGlobalInitTest, saysThatLibcurlFailed)
{
    const auto run = [] {
        calls().fail("curl_global_init");
        exitWith(messageOfGet() == "|curl global init failed");
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}

TEST_F(CGlobalInitTest, saysNothingElseOfLibcurlsFailure)
{
    const auto run = [] {
        calls().fail("curl_global_init");
        try {
            norla::CGlobalInit::get();
        } catch (const kx::CError& error) {
            exitWith(typeid(error) == typeid(kx::CError) && error.getCode() == -1 && error.getProps().getMap().empty()
                && !error.getCause());
        }
        exitWith(false);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}

TEST_F(CGlobalInitTest, initialisesAllOfLibcurl)
{
    const auto run = [] {
        calls();
        norla::CGlobalInit::get();
        exitWith(calls().globalInitFlags() == CURL_GLOBAL_ALL);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}

TEST_F(CGlobalInitTest, triesAgainAfterAFailure)
{
    const auto run = [] {
        calls().fail("curl_global_init", 0, 1);
        const bool failed = !messageOfGet().isEmpty();
        exitWith(failed && messageOfGet().isEmpty() && calls().countOf("curl_global_init") == 2);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}

TEST_F(CGlobalInitTest, leavesTheGuardClearedAfterAFailure)
{
    const auto run = [] {
        calls().fail("curl_global_init");
        messageOfGet();
        exitWith(!norla::CGlobalInit::globalInstanceGuard());
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}

TEST_F(CGlobalInitTest, saysThatASingletonOfOpenSSLFailed)
{
    const auto run = [] {
        calls().fail("OPENSSL_init_ssl");
        exitWith(
            messageOfGet() == "|Construction of static object has failed." && calls().countOf("curl_global_init") == 0);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}

TEST_F(CGlobalInitTest, setsUpOpenSSLFirst)
{
    const auto run = [] {
        calls().fail("curl_global_init");
        messageOfGet();
        exitWith(sela::COpenSSLInit::CThreadStuff::globalInstanceGuard()
            && sela::COpenSSLInit::CCleaner::globalInstanceGuard());
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}

TEST_F(CGlobalInitTest, logsAnErrorOfTheCleanUpAndIgnoresIt)
{
    const auto run = [] {
        calls().fail("curl_global_cleanup");
        kx::newObj<norla::CNetRequest>();
        std::exit(0);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0),
        "error: Exception in the destructor of norla::CGlobalInit \\(ignored\\)\\.: cleanup failed");
}

TEST_F(CGlobalInitTest, isMadeByTheFirstRequest)
{
    const auto run = [] {
        calls();
        kx::newObj<norla::CNetRequest>();
        exitWith(calls().countOf("curl_global_init") == 1);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}

TEST_F(CGlobalInitTest, isMadeByTheFirstHeaderList)
{
    const auto run = [] {
        calls();
        kx::newObj<norla::CNetHeaders>();
        exitWith(calls().countOf("curl_global_init") == 1);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}

TEST_F(CGlobalInitTest, outlivesTheRequests)
{
    const auto run = [] {
        calls();
        for (int i = 0; i < 100; ++i)
            kx::newObj<norla::CNetRequest>();
        exitWith(calls().countOf("curl_global_cleanup") == 0);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}

TEST_F(CGlobalInitTest, isCleanedUpOnceWhenTheProcessExits)
{
    const auto run = [] {
        calls();
        // Registered before the instance is made, so that it runs after the instance is gone.
        std::atexit([] { std::fprintf(stderr, "cleaned up %d times\n", calls().countOf("curl_global_cleanup")); });
        kx::newObj<norla::CNetRequest>();
        std::exit(0);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "cleaned up 1 times");
}

// libcurl may still need what OpenSSL holds for the thread. (OpenSSL asks for the end of that by itself once more.)
TEST_F(CGlobalInitTest, isCleanedUpBeforeOpenSSLsDataOfTheThread)
{
    const auto run = [] {
        calls();
        std::atexit([] {
            const int cleanUp = calls().placeOf("curl_global_cleanup");
            std::_Exit(cleanUp > 0 && calls().placeOf("OPENSSL_thread_stop") > cleanUp ? 0 : 1);
        });
        kx::newObj<norla::CNetRequest>();
        std::exit(2);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}

// Registered after OpenSSL's own clean-up and before ours, so that it runs between these.
TEST_F(CGlobalInitTest, freesOpenSSLsDataOfTheThreadByItself)
{
    const auto run = [] {
        calls();
        sela::COpenSSLInit::CThreadStuff::get();
        std::atexit([] { std::_Exit(calls().countOf("OPENSSL_thread_stop") == 1 ? 0 : 1); });
        sela::COpenSSLInit::CCleaner::get();
        std::exit(2);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}

TEST_F(CGlobalInitTest, cannotBeHadAfterwards)
{
    const auto run = [] {
        std::atexit([] { std::fprintf(stderr, "%s\n", messageOfGet().toUTF8().c_str()); });
        kx::newObj<norla::CNetRequest>();
        std::exit(0);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "\\|Construction of static object has failed\\.");
}

} // namespace
