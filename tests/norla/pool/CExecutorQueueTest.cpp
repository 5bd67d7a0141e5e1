#include "norla/pool/CExecutorQueue.h"

#include "kx/base/P.h"

#include <gtest/gtest.h>

#include <memory>
#include <poll.h>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

using norla::CExecutorQueue;

class CExecutorQueueTest : public testing::Test {
protected:
    bool isReadable() const
    {
        pollfd descriptor{m_queue->getDescriptor(), POLLIN, 0};
        return poll(&descriptor, 1, 0) == 1;
    }

    void add(int number)
    {
        m_queue->execute([this, number] { m_run.push_back(number); });
    }

    const kx::P<CExecutorQueue> m_queue = kx::newObj<CExecutorQueue>();
    std::vector<int> m_run;
};

TEST_F(CExecutorQueueTest, runsNothingByItself)
{
    add(1);
    EXPECT_TRUE(m_run.empty());
}

TEST_F(CExecutorQueueTest, runsTasksInOrder)
{
    add(1);
    add(2);
    EXPECT_EQ(m_queue->runPending(), 2);
    EXPECT_EQ(m_run, (std::vector{1, 2}));
}

TEST_F(CExecutorQueueTest, isReadableWhileTasksWait)
{
    EXPECT_FALSE(isReadable());
    add(1);
    add(2);
    EXPECT_TRUE(isReadable());
    m_queue->runPending();
    EXPECT_FALSE(isReadable());
}

TEST_F(CExecutorQueueTest, runsEachTaskOnce)
{
    add(1);
    m_queue->runPending();
    EXPECT_EQ(m_queue->runPending(), 0);
}

TEST_F(CExecutorQueueTest, leavesWhatTasksAddForTheNextCall)
{
    m_queue->execute([this] { add(2); });
    EXPECT_EQ(m_queue->runPending(), 1);
    EXPECT_TRUE(m_run.empty());
    EXPECT_TRUE(isReadable());
    m_queue->runPending();
    EXPECT_EQ(m_run, std::vector{2});
}

TEST_F(CExecutorQueueTest, keepsTheOthersWhenATaskThrows)
{
    m_queue->execute([] { throw std::runtime_error("oops"); });
    add(2);
    EXPECT_THROW(m_queue->runPending(), std::runtime_error);
    EXPECT_TRUE(isReadable());
    m_queue->runPending();
    EXPECT_EQ(m_run, std::vector{2});
}

// A dialog in a task has a main loop of its own.
TEST_F(CExecutorQueueTest, runsEachTaskOnceAlsoWhereATaskRunsTheOthers)
{
    add(1);
    m_queue->execute([this] { m_queue->runPending(); });
    add(2);
    add(3);
    m_queue->runPending();
    EXPECT_EQ(m_run, (std::vector{1, 2, 3}));
}

TEST_F(CExecutorQueueTest, countsWhatATaskHasRunWhereItWasRun)
{
    int inner = 0;
    m_queue->execute([this, &inner] { inner = m_queue->runPending(); });
    add(1);
    add(2);
    EXPECT_EQ(m_queue->runPending(), 1);
    EXPECT_EQ(inner, 2);
}

TEST_F(CExecutorQueueTest, destroysATaskOnceItHasRun)
{
    auto held = std::make_shared<int>(1);
    m_queue->execute([held] {});
    m_queue->runPending();
    EXPECT_EQ(held.use_count(), 1);
}

TEST(CExecutorQueueEndTest, destroysTasksThatHaveNotRun)
{
    auto held = std::make_shared<int>(1);
    {
        const auto queue = kx::newObj<CExecutorQueue>();
        queue->execute([held] {});
    }
    EXPECT_EQ(held.use_count(), 1);
}

TEST(CExecutorQueueEndTest, mayGoInATask)
{
    auto queue = kx::newObj<CExecutorQueue>();
    const auto held = std::make_shared<int>(0);
    queue->execute([&queue] { queue = nullptr; });
    queue->execute([held] { ++*held; });
    EXPECT_EQ(queue->runPending(), 1);
    EXPECT_EQ(*held, 0);
    EXPECT_EQ(held.use_count(), 1);
}

TEST_F(CExecutorQueueTest, takesTasksOfManyThreads)
{
    std::vector<std::thread> threads;
    for (int count = 0; count < 4; ++count)
        threads.emplace_back([this] {
            for (int number = 0; number < 1000; ++number)
                add(number);
        });
    int run = 0;
    while (run < 4000)
        run += m_queue->runPending();
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(m_run.size(), 4000U);
}

} // namespace
