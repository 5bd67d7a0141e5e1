// What a thread does without memory. A program of its own, because it replaces operator new.
#include "kx/threads/CThread.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <new>

namespace {

thread_local bool isMemoryLeft = true;

} // namespace

void* operator new(size_t size)
{
    if (isMemoryLeft) {
        if (void* const block = std::malloc(size))
            return block;
    }
    throw std::bad_alloc();
}

void operator delete(void* block) noexcept
{
    std::free(block);
}

void operator delete(void* block, size_t) noexcept
{
    std::free(block);
}

namespace {

class CThreadWithoutMemory : public kx::CThread {
public:
    ~CThreadWithoutMemory() override { stop(true); }

protected:
    void runImpl() override
    {
        isMemoryLeft = false;
        throw std::bad_alloc();
    }
    void onRunFinished() override { isMemoryLeft = true; }
};

TEST(ThreadAllocationTest, aStartWithoutMemoryLeavesTheThreadToAnotherStart)
{
    kx::CThread thread;
    isMemoryLeft = false;
    bool failed = false;
    try {
        thread.start();
    } catch (const std::bad_alloc&) {
        failed = true;
    }
    isMemoryLeft = true;
    EXPECT_TRUE(failed);
    EXPECT_FALSE(thread.isAlive());
    EXPECT_NO_THROW(thread.start());
    thread.stop(true);
}

TEST(ThreadAllocationTest, anErrorThatCannotBeLoggedForWantOfMemoryEndsTheThreadAlone)
{
    testing::internal::CaptureStderr();
    CThreadWithoutMemory thread;
    thread.start();
    thread.stop(true);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "An error of a thread could not be logged.\n");
    EXPECT_FALSE(thread.isAlive());
}

} // namespace
