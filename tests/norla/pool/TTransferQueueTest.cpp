#include "norla/pool/TTransferQueue.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using Queue = norla::TTransferQueue<std::string>;

constexpr int wide = 100; // one lane has room for all

/// All that may run now.
std::vector<std::string> takeAll(Queue& queue)
{
    std::vector<std::string> taken;
    std::string item;
    size_t lane = 0;
    while (queue.takeNext(item, lane))
        taken.push_back(item);
    return taken;
}

using Items = std::vector<std::string>;
using Lanes = std::vector<size_t>;

/// The lanes of all that may run now.
Lanes takeLanes(Queue& queue)
{
    Lanes lanes;
    std::string item;
    size_t lane = 0;
    while (queue.takeNext(item, lane))
        lanes.push_back(lane);
    return lanes;
}

TEST(TTransferQueueTest, takesInOrderOfTheirComing)
{
    Queue queue(10, 0, wide);
    queue.push("first", "a", 0);
    queue.push("second", "b", 0);
    queue.push("third", "a", 0);
    EXPECT_EQ(takeAll(queue), (Items{"first", "second", "third"}));
}

TEST(TTransferQueueTest, takesTheHigherPriorityFirst)
{
    Queue queue(10, 0, wide);
    queue.push("low", "a", -2147483647 - 1);
    queue.push("usual", "a", 0);
    queue.push("high", "b", 2147483647);
    queue.push("also high", "a", 2147483647);
    EXPECT_EQ(takeAll(queue), (Items{"high", "also high", "usual", "low"}));
}

TEST(TTransferQueueTest, takesNoMoreThanMayRunAtOnce)
{
    Queue queue(2, 0, wide);
    const auto first = queue.push("1", "a", 0);
    queue.push("2", "b", 0);
    queue.push("3", "c", 0);
    EXPECT_EQ(takeAll(queue), (Items{"1", "2"}));
    queue.finish(first);
    EXPECT_EQ(takeAll(queue), (Items{"3"}));
}

TEST(TTransferQueueTest, takesNoMoreOfOneHostThanMayRunThere)
{
    Queue queue(10, 1, wide);
    const auto first = queue.push("a1", "a", 0);
    queue.push("a2", "a", 0);
    EXPECT_EQ(takeAll(queue), (Items{"a1"}));
    queue.finish(first);
    EXPECT_EQ(takeAll(queue), (Items{"a2"}));
}

TEST(TTransferQueueTest, passesOverAHostThatHasNoRoom)
{
    Queue queue(10, 1, wide);
    queue.push("a1", "a", 5);
    queue.push("a2", "a", 5);
    queue.push("b1", "b", 0);
    EXPECT_EQ(takeAll(queue), (Items{"a1", "b1"}));
}

TEST(TTransferQueueTest, takesByPriorityAgainWhenAHostHasRoom)
{
    Queue queue(2, 1, wide);
    const auto first = queue.push("a1", "a", 0);
    queue.push("a low", "a", -1);
    queue.push("b1", "b", 0);
    EXPECT_EQ(takeAll(queue), (Items{"a1", "b1"}));
    queue.push("a high", "a", 1);
    queue.finish(first);
    EXPECT_EQ(takeAll(queue), (Items{"a high"}));
}

TEST(TTransferQueueTest, doesNotTakeWhatWasRemoved)
{
    Queue queue(10, 0, wide);
    const auto first = queue.push("1", "a", 0);
    queue.push("2", "a", 0);
    EXPECT_TRUE(queue.remove(first));
    EXPECT_EQ(takeAll(queue), (Items{"2"}));
}

TEST(TTransferQueueTest, doesNotRemoveWhatRuns)
{
    Queue queue(10, 0, wide);
    const auto first = queue.push("1", "a", 0);
    takeAll(queue);
    EXPECT_FALSE(queue.remove(first));
    EXPECT_EQ(queue.getRunning(), 1);
}

TEST(TTransferQueueTest, removesTheFirstOfAHostThatHasNoRoom)
{
    Queue queue(10, 1, wide);
    const auto first = queue.push("1", "a", 0);
    const auto second = queue.push("2", "a", 0);
    queue.push("3", "a", 0);
    takeAll(queue);
    EXPECT_TRUE(queue.remove(second));
    queue.finish(first);
    EXPECT_EQ(takeAll(queue), (Items{"3"}));
}

TEST(TTransferQueueTest, countsWhatRuns)
{
    Queue queue(10, 0, wide);
    const auto first = queue.push("1", "a", 0);
    queue.push("2", "a", 0);
    takeAll(queue);
    EXPECT_EQ(queue.getRunning(), 2);
    queue.finish(first);
    EXPECT_EQ(queue.getRunning(), 1);
}

TEST(TTransferQueueTest, knowsAHostAgainThatWasForgotten)
{
    Queue queue(10, 1, wide);
    queue.finish((static_cast<void>(queue.push("1", "a", 0)), [&] {
        const auto place = queue.push("2", "b", 0);
        takeAll(queue);
        return place;
    }()));
    queue.push("3", "b", 0);
    EXPECT_EQ(takeAll(queue), (Items{"3"}));
}

TEST(TTransferQueueTest, fillsTheLanesOfAHostOneAfterTheOther)
{
    Queue queue(5, 0, 2);
    for (int count = 0; count < 5; ++count)
        queue.push("", "a", 0);
    EXPECT_EQ(takeLanes(queue), (Lanes{0, 0, 1, 1, 2}));
}

TEST(TTransferQueueTest, givesEachHostTheLanesFromTheFirstOneOn)
{
    Queue queue(10, 0, 1);
    queue.push("", "a", 0);
    queue.push("", "b", 0);
    queue.push("", "a", 0);
    EXPECT_EQ(takeLanes(queue), (Lanes{0, 0, 1}));
}

TEST(TTransferQueueTest, fillsTheFirstLaneThatHasRoomAgain)
{
    Queue queue(10, 0, 1);
    queue.push("", "a", 0);
    auto second = queue.push("", "a", 0);
    auto third = queue.push("", "a", 0);
    takeLanes(queue);
    second.lane = 1;
    third.lane = 2;
    queue.finish(third);
    queue.finish(second);
    for (int count = 0; count < 3; ++count)
        queue.push("", "a", 0);
    EXPECT_EQ(takeLanes(queue), (Lanes{1, 2, 3}));
}

TEST(TTransferQueueTest, hasLanesForAllThatComeWhileOthersRun)
{
    Queue queue(3, 0, 1);
    auto first = queue.push("", "a", 0);
    takeLanes(queue);
    queue.push("", "a", 0);
    queue.push("", "a", 0);
    queue.push("", "a", 0);
    EXPECT_EQ(takeLanes(queue), (Lanes{1, 2}));
    queue.finish(first);
    EXPECT_EQ(takeLanes(queue), (Lanes{0}));
}

} // namespace
