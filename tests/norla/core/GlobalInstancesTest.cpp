// What a process has one of is made by whoever needs it first. Each case runs in a process of its own.
#include "kx/files/CResourceManager.h"
#include "kx/threads/CMutexLock.h"
#include "kx/threads/globalMutex.h"
#include "kx/threads/threadYield.h"
#include "norla/core/CGlobalInit.h"
#include "norla/proxy/CProxySettings.h"
#include "sela/COpenSSLInit.h"
#include "tests/support/CProcessRun.h"
#include "tests/support/sleepingThread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

struct CInstanceRow {
    const char* name;
    void (*get)();
};

class GlobalInstancesTest : public testing::TestWithParam<CInstanceRow> {
protected:
    GlobalInstancesTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

// The other thread comes as far as it can, then the one that makes instances needs the same one.
[[noreturn]] void getBesideAnotherThread(void (*get)())
{
    alarm(30); // in place of waiting for ever
    std::atomic<pid_t> number{0};
    std::thread other;
    {
        const kx::CMutexLock lock(kx::getGlobalMutex());
        other = std::thread([&number, get] {
            number = gettid();
            get();
        });
        while (number == 0)
            kx::threadYield(false);
        support::waitUntilAsleep(number);
        get();
    }
    other.join();
    std::exit(0);
}

TEST_P(GlobalInstancesTest, areHadUnderTheGlobalMutexWhileAnotherThreadWantsThem)
{
    EXPECT_EXIT(getBesideAnotherThread(GetParam().get), testing::ExitedWithCode(0), "");
}

INSTANTIATE_TEST_SUITE_P(All, GlobalInstancesTest,
    testing::ValuesIn(std::vector<CInstanceRow>{
        {"initialisation", [] { norla::CGlobalInit::get(); }},
        {"threadsOfOpenSSL", [] { sela::COpenSSLInit::CThreadStuff::get(); }},
        {"cleanerOfOpenSSL", [] { sela::COpenSSLInit::CCleaner::get(); }},
        {"proxySettings", [] { norla::CProxySettings::getUserSettings(); }},
        {"resources", [] { kx::CResourceManager::get(); }},
    }),
    [](const testing::TestParamInfo<CInstanceRow>& row) { return row.param.name; });

#ifdef __SANITIZE_THREAD__
constexpr int starts = 1000; // where a race shows that does no harm this time
#else
constexpr int starts = 200;
#endif

TEST(GlobalInstancesStartsTest, areMadeByManyThreadsAtOnce)
{
    for (int start = 0; start < starts; ++start) {
        const support::CProcessRun run({NORLA_INSTANCES_PROGRAM, std::to_string(start)});
        EXPECT_EQ(run.exitStatus(), 0) << run.errors();
    }
}

} // namespace
