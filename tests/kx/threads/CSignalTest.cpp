#include "kx/threads/CSignal.h"

#include "kx/base/P.h"
#include "kx/threads/threadYield.h"
#include "tests/support/sleepingThread.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

TEST(CSignalTest, isNotSetAtFirst)
{
    const kx::CSignal signal;
    EXPECT_FALSE(signal.isSet());
    EXPECT_FALSE(signal.wait(0));
}

TEST(CSignalTest, staysSetUntilReset)
{
    kx::CSignal signal;
    signal.set();
    EXPECT_TRUE(signal.isSet());
    EXPECT_TRUE(signal.wait(0));
    EXPECT_TRUE(signal.wait(-1));
    signal.reset();
    EXPECT_FALSE(signal.isSet());
}

TEST(CSignalTest, waitsAtMostTheTimeItIsGiven)
{
    const kx::CSignal signal;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(signal.wait(20));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(20));
}

TEST(CSignalTest, wakesEveryoneWhoWaits)
{
    kx::CSignal signal;
    std::atomic<int> woken{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back(
            [&signal, &woken, limit = i % 2 == 0 ? -1 : 60'000] { woken += signal.wait(limit) ? 1 : 0; });
    signal.set();
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(woken, 4);
}

TEST(CSignalTest, wakesEveryoneWhoSleepsAtOnce)
{
    constexpr int count = 4;
    kx::CSignal signal;
    std::atomic<int> woken{0};
    std::array<std::atomic<pid_t>, count> numbers{};
    std::vector<std::thread> threads;
    for (std::atomic<pid_t>& number : numbers) {
        threads.emplace_back([&] {
            number = gettid();
            woken += signal.wait(-1) ? 1 : 0;
        });
    }
    for (const std::atomic<pid_t>& number : numbers) {
        while (number == 0)
            kx::threadYield(false);
        support::waitUntilAsleep(number);
    }
    signal.set();
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (woken < count && std::chrono::steady_clock::now() < limit)
        kx::threadYield(true);
    EXPECT_EQ(woken, count);
    while (woken < count)
        signal.set(); // so that the test ends
    for (std::thread& thread : threads)
        thread.join();
}

TEST(CSignalTest, mayBeReleasedByWhoeverItWakes)
{
    for (int round = 0; round < 100; ++round) {
        auto signal = kx::newObj<kx::CSignal>();
        std::thread thread([copy = signal.get()] { copy->set(); });
        signal->wait(-1);
        thread.join();
        signal = nullptr;
    }
}

} // namespace
