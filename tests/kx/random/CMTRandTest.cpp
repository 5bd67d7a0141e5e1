#include "kx/random/CMTRand.h"

#include "kx/threads/CMutexLock.h"

#include <gtest/gtest.h>

#include <mutex>
#include <set>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

TEST(CMTRandTest, givesTheKnownSequenceForASeed)
{
    // The 10000th number of mt19937_64 with its default seed is laid down by the C++ standard.
    kx::CMTRand random(5489);
    for (int i = 1; i < 10'000; ++i)
        random.rand64();
    EXPECT_EQ(random.rand64(), 9981545732273789042ULL);
}

TEST(CMTRandTest, isSeededDifferentlyEachTime)
{
    EXPECT_NE(kx::CMTRand().rand64(), kx::CMTRand().rand64());
}

TEST(CMTRandTest, hasOneInstanceForTheProcess)
{
    const kx::CMutexLock lock(kx::CMTRand::getGlobalMutex());
    EXPECT_EQ(&kx::CMTRand::getGlobal(), &kx::CMTRand::getGlobal());
}

// The number of a child process, which has what the parent had.
unsigned long long numberAfterFork()
{
    int ends[2] = {-1, -1};
    EXPECT_EQ(pipe(ends), 0);
    const pid_t child = fork();
    if (child == 0) {
        const unsigned long long number = kx::rand64();
        _exit(write(ends[1], &number, sizeof(number)) == sizeof(number) ? 0 : 1);
    }
    unsigned long long number = 0;
    EXPECT_EQ(read(ends[0], &number, sizeof(number)), static_cast<ssize_t>(sizeof(number)));
    EXPECT_EQ(waitpid(child, nullptr, 0), child);
    close(ends[0]);
    close(ends[1]);
    return number;
}

TEST(CMTRandTest, givesParentAndChildDifferentNumbers)
{
    kx::rand64();
    const unsigned long long first = numberAfterFork();
    const unsigned long long second = numberAfterFork();
    const unsigned long long own = kx::rand64();
    EXPECT_NE(first, own);
    EXPECT_NE(first, second);
}

TEST(CMTRandTest, givesManyThreadsDifferentNumbers)
{
    std::mutex mutex;
    std::set<unsigned long long> numbers;
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&mutex, &numbers] {
            for (int round = 0; round < 100; ++round) {
                const unsigned long long number = kx::rand64();
                const std::lock_guard lock(mutex);
                numbers.insert(number);
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(numbers.size(), 800u);
}

} // namespace
