#include "examples/desktop/CMainLoopExecutor.h"

#include "kx/base/P.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

namespace {

using testing::ElementsAre;

class CMainLoopExecutorTest : public testing::Test {
protected:
    ~CMainLoopExecutorTest() override { g_main_context_unref(m_context); }

    /// @return whether anything was run
    bool turn() { return g_main_context_iteration(m_context, FALSE) != FALSE; }

    void runAll()
    {
        while (turn()) {
        }
    }

private:
    GMainContext* const m_context = g_main_context_new();

protected:
    kx::P<CMainLoopExecutor> executor = kx::newObj<CMainLoopExecutor>(m_context);
};

TEST_F(CMainLoopExecutorTest, runsTasksInTheirOrderWhenTheLoopDoes)
{
    std::vector<int> order;
    for (int i = 0; i < 3; ++i)
        executor->execute([&order, i] { order.push_back(i); });
    EXPECT_TRUE(order.empty());
    runAll();
    EXPECT_THAT(order, ElementsAre(0, 1, 2));
}

TEST_F(CMainLoopExecutorTest, runsWhatOtherThreadsHandOverOnTheLoopsThread)
{
    std::thread::id place;
    std::thread([&] { executor->execute([&place] { place = std::this_thread::get_id(); }); }).join();
    runAll();
    EXPECT_EQ(place, std::this_thread::get_id());
}

TEST_F(CMainLoopExecutorTest, runsWhatATaskHandsOver)
{
    int ran = 0;
    executor->execute([&] { executor->execute([&ran] { ++ran; }); });
    runAll();
    executor->execute([&ran] { ++ran; });
    runAll();
    EXPECT_EQ(ran, 2);
}

TEST_F(CMainLoopExecutorTest, givesWayBehindATaskThatLasts)
{
    int ran = 0;
    for (int i = 0; i < 3; ++i) {
        executor->execute([&ran] {
            ++ran;
            const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(6);
            while (std::chrono::steady_clock::now() < end) {
            }
        });
    }
    turn();
    EXPECT_EQ(ran, 1);
    runAll();
    EXPECT_EQ(ran, 3);
}

TEST_F(CMainLoopExecutorTest, destroysWhatHasNotRunWhenItGoes)
{
    const auto held = std::make_shared<int>();
    executor->execute([held] { ADD_FAILURE() << "it is gone"; });
    executor = nullptr;
    EXPECT_EQ(held.use_count(), 1);
    runAll();
}

TEST_F(CMainLoopExecutorTest, aTaskMayLetItGo)
{
    executor->execute([this] { executor = nullptr; });
    executor->execute([] { ADD_FAILURE() << "it is gone"; });
    runAll();
    EXPECT_FALSE(executor);
}

} // namespace
