#include "norla/files/CFileQueue.h"

#include "kx/base/CInvalidArgError.h"
#include "norla/files/CFileSignals.h"
#include "norla/pool/CExecutorQueue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <future>
#include <limits>
#include <memory>
#include <mutex>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using norla::CFileQueue;
using norla::CFileSignals;
using norla::FileState;
using testing::ElementsAre;

/// A file that does what the test says in place of a transfer.
class CActedFile : public norla::CFileTransfer {
public:
    explicit CActedFile(std::function<void(CFileSignals&)> act)
        : m_act(std::move(act))
    {
    }

private:
    void transfer() override { m_act(*getSignals()); }

    const std::function<void(CFileSignals&)> m_act;
};

kx::P<CActedFile> acted(std::function<void(CFileSignals&)> act)
{
    return kx::newObj<CActedFile>(std::move(act));
}

kx::P<CActedFile> quick()
{
    return acted([](CFileSignals&) {});
}

kx::P<CActedFile> failing(const kx::String& why)
{
    return acted([why](CFileSignals&) { throw kx::CError(why); });
}

/// Runs until it is cancelled.
kx::P<CActedFile> endless()
{
    return acted([](CFileSignals& signals) {
        while (!signals.isCancelled())
            signals.wait(CFileSignals::Clock::now() + std::chrono::seconds(1), false);
        throw kx::CError("cancelled");
    });
}

void waitForState(const norla::CFileTransfer& file, FileState state)
{
    while (file.getState() != state)
        std::this_thread::yield();
}

kx::P<CFileQueue> queueOf(int atOnce, std::function<void(norla::CFileTransfer&)> onEnd = {})
{
    return kx::newObj<CFileQueue>(norla::CFileQueueOptions{.atOnce = atOnce, .onEnd = std::move(onEnd)});
}

TEST(CFileQueueTest, runsEveryFileThatIsAdded)
{
    const auto queue = queueOf(3);
    std::atomic<int> ran = 0;
    for (int i = 0; i < 20; ++i)
        queue->add(acted([&ran](CFileSignals&) { ++ran; }).get());
    queue->wait();
    EXPECT_EQ(ran, 20);
    EXPECT_EQ(queue->getSummary().succeeded, 20);
}

TEST(CFileQueueTest, anEmptyOneWaitsForNothing)
{
    EXPECT_TRUE(queueOf(1)->waitFor(kx::CTimeSpan()));
}

TEST(CFileQueueTest, runsNoMoreAtOnceThanItIsTold)
{
    const auto queue = queueOf(3);
    std::atomic<int> running = 0;
    std::atomic<int> most = 0;
    for (int i = 0; i < 50; ++i) {
        queue->add(acted([&](CFileSignals&) {
            most = std::max<int>(most, ++running);
            std::this_thread::yield();
            --running;
        }).get());
    }
    queue->wait();
    EXPECT_LE(most, 3);
}

TEST(CFileQueueTest, runsAsManyAtOnceAsItIsTold)
{
    const auto queue = queueOf(3);
    std::vector<kx::P<CActedFile>> files{endless(), endless(), endless()};
    for (const auto& file : files)
        queue->add(file.get());
    for (const auto& file : files)
        waitForState(*file, FileState::Running);
    EXPECT_EQ(queue->getSummary().running, 3);
}

TEST(CFileQueueTest, runsThemInTheOrderInWhichTheyWereAdded)
{
    const auto queue = queueOf(1);
    std::vector<int> order;
    for (int i = 0; i < 5; ++i)
        queue->add(acted([&order, i](CFileSignals&) { order.push_back(i); }).get());
    queue->wait();
    EXPECT_THAT(order, ElementsAre(0, 1, 2, 3, 4));
}

TEST(CFileQueueTest, aFileThatFailsHoldsUpNoOther)
{
    const auto queue = queueOf(1);
    const auto bad = failing("no such file");
    const auto good = quick();
    queue->add(bad.get());
    queue->add(good.get());
    queue->wait();
    EXPECT_EQ(good->getState(), FileState::Succeeded);
    ASSERT_TRUE(bad->getError());
    EXPECT_EQ(bad->getError()->getMessage(), "no such file");
    EXPECT_EQ(queue->getSummary().failed, 1);
    EXPECT_EQ(queue->getSummary().succeeded, 1);
}

TEST(CFileQueueTest, whateverAFileThrowsIsItsError)
{
    const auto queue = queueOf(1);
    const auto file = acted([](CFileSignals&) { throw 7; });
    queue->add(file.get());
    queue->wait();
    EXPECT_EQ(file->getState(), FileState::Failed);
    EXPECT_TRUE(file->getError());
}

TEST(CFileQueueTest, tellsTheEndOfEachFileOnce)
{
    std::vector<const norla::CFileTransfer*> told;
    const auto queue = queueOf(4, [&told](norla::CFileTransfer& file) { told.push_back(&file); });
    std::vector<kx::P<CActedFile>> files;
    for (int i = 0; i < 40; ++i) {
        files.push_back(i % 2 ? quick() : failing("no"));
        queue->add(files.back().get());
    }
    queue->wait();
    std::vector<const norla::CFileTransfer*> all;
    for (const auto& file : files)
        all.push_back(file.get());
    EXPECT_THAT(told, testing::UnorderedElementsAreArray(all));
}

TEST(CFileQueueTest, aFileIsAddedAgainWhereItsEndIsTold)
{
    kx::P<CFileQueue> queue;
    std::atomic<int> tries = 0;
    queue = queueOf(1, [&](norla::CFileTransfer& file) {
        if (file.getState() == FileState::Failed && ++tries < 3)
            queue->add(failing("again").get());
    });
    queue->add(failing("no").get());
    queue->wait();
    EXPECT_EQ(queue->getSummary().failed, 3);
}

TEST(CFileQueueTest, whatIsThrownWhereAnEndIsToldHurtsNobody)
{
    const auto queue = queueOf(1, [](norla::CFileTransfer&) { throw kx::CError("of the listener"); });
    const auto file = quick();
    queue->add(quick().get());
    queue->add(file.get());
    queue->wait();
    EXPECT_EQ(file->getState(), FileState::Succeeded);
}

TEST(CFileQueueTest, tellsEndsWhereTheExecutorDoes)
{
    const auto executor = kx::newObj<norla::CExecutorQueue>();
    std::thread::id place;
    norla::CFileQueueOptions options;
    options.onEnd = [&place](norla::CFileTransfer&) { place = std::this_thread::get_id(); };
    options.executor = executor;
    const auto queue = kx::newObj<CFileQueue>(options);
    queue->add(quick().get());
    queue->wait();
    EXPECT_EQ(place, std::thread::id());
    executor->runPending();
    EXPECT_EQ(place, std::this_thread::get_id());
}

TEST(CFileQueueTest, waitsNoLongerThanItIsTold)
{
    const auto queue = queueOf(1);
    queue->add(endless().get());
    EXPECT_FALSE(queue->waitFor(kx::CTimeSpan::fromMilliseconds(1)));
    queue->cancel();
    EXPECT_TRUE(queue->waitFor(kx::CTimeSpan::fromSeconds(4'000'000'000'000)));
}

TEST(CFileQueueTest, cancelsWhatRunsAndWhatWaits)
{
    const auto queue = queueOf(1);
    const auto first = endless();
    const auto second = endless();
    queue->add(first.get());
    queue->add(second.get());
    queue->cancel();
    queue->wait();
    EXPECT_EQ(first->getState(), FileState::Cancelled);
    EXPECT_EQ(second->getState(), FileState::Cancelled);
    EXPECT_EQ(queue->getSummary().cancelled, 2);
}

TEST(CFileQueueTest, takesFilesBehindACancellation)
{
    const auto queue = queueOf(1);
    queue->cancel();
    const auto file = quick();
    queue->add(file.get());
    queue->wait();
    EXPECT_EQ(file->getState(), FileState::Succeeded);
}

TEST(CFileQueueTest, beginsNothingWhileItIsPaused)
{
    const auto queue = queueOf(1);
    queue->pause();
    const auto file = quick();
    queue->add(file.get());
    EXPECT_FALSE(queue->waitFor(kx::CTimeSpan::fromMilliseconds(20)));
    EXPECT_EQ(file->getState(), FileState::Waiting);
    queue->resume();
    queue->wait();
    EXPECT_EQ(file->getState(), FileState::Succeeded);
}

TEST(CFileQueueTest, pausesWhatRunsAndLetsItGoOn)
{
    const auto queue = queueOf(1);
    const auto file = acted([](CFileSignals& signals) {
        while (!signals.isPauseWanted())
            std::this_thread::yield();
        signals.setState(FileState::Paused);
        signals.waitForResume();
    });
    queue->add(file.get());
    waitForState(*file, FileState::Running);
    queue->pause();
    waitForState(*file, FileState::Paused);
    queue->resume();
    queue->wait();
    EXPECT_EQ(file->getState(), FileState::Succeeded);
}

TEST(CFileQueueTest, leavesNothingRunningBehindIt)
{
    const auto running = endless();
    const auto waiting = endless();
    {
        const auto queue = queueOf(1);
        queue->add(running.get());
        queue->add(waiting.get());
        waitForState(*running, FileState::Running);
        queue->pause();
    }
    EXPECT_EQ(running->getState(), FileState::Cancelled);
    EXPECT_EQ(waiting->getState(), FileState::Cancelled);
}

TEST(CFileQueueTest, aFileThatComesWhileItEndsIsCancelled)
{
    const auto late = endless();
    CFileQueue* ending = nullptr;
    {
        const kx::P<CFileQueue> queue = queueOf(2, [&](norla::CFileTransfer& file) {
            if (&file != late.get())
                ending->add(late.get());
        });
        ending = queue.get();
        const auto first = endless();
        queue->add(first.get());
        waitForState(*first, FileState::Running);
    }
    EXPECT_EQ(late->getState(), FileState::Cancelled);
}

TEST(CFileQueueTest, aPauseWhileItEndsHoldsUpNothing)
{
    std::atomic<bool> mayPause = true;
    CFileQueue* ending = nullptr;
    kx::P<CFileQueue> queue = queueOf(1, [&](norla::CFileTransfer& file) {
        if (mayPause && file.getState() != FileState::Succeeded)
            ending->pause();
    });
    ending = queue.get();
    const auto first = endless();
    queue->add(first.get());
    queue->add(endless().get());
    queue->add(endless().get());
    waitForState(*first, FileState::Running);
    auto ended = std::async(std::launch::async, [&queue] { queue = nullptr; });
    const bool hasEnded = ended.wait_for(std::chrono::seconds(20)) == std::future_status::ready;
    EXPECT_TRUE(hasEnded);
    mayPause = false;
    if (!hasEnded)
        ending->resume();
}

/// Does something when the last one lets go of it.
class CLastWord {
public:
    explicit CLastWord(std::function<void()> say)
        : m_say(std::move(say))
    {
    }
    CLastWord(const CLastWord&) = delete;
    CLastWord& operator=(const CLastWord&) = delete;
    ~CLastWord() { m_say(); }

private:
    const std::function<void()> m_say;
};

TEST(CFileQueueTest, whatAFileKeptMayUseTheQueueWhenItGoes)
{
    const auto queue = queueOf(1);
    norla::CFileQueueSummary last;
    const auto next = quick();
    auto word = std::make_shared<CLastWord>([&] {
        last = queue->getSummary();
        queue->add(next.get());
    });
    std::promise<void> isLast;
    queue->add(acted([word, gate = isLast.get_future().share()](CFileSignals&) { gate.wait(); }).get());
    word = nullptr;
    isLast.set_value();
    EXPECT_TRUE(queue->waitFor(kx::CTimeSpan::fromSeconds(20)));
    EXPECT_EQ(last.succeeded, 1);
    EXPECT_EQ(last.running, 0);
    EXPECT_EQ(next->getState(), FileState::Succeeded);
}

TEST(CFileQueueTest, hasLetGoOfEveryFileWhenAllHaveEnded)
{
    for (int i = 0; i < 100; ++i) {
        const auto queue = queueOf(2);
        std::atomic<int> gone = 0;
        for (int number = 0; number < 4; ++number) {
            const auto word = std::make_shared<CLastWord>([&gone] {
                std::this_thread::yield();
                ++gone;
            });
            queue->add(acted([word](CFileSignals&) {}).get());
        }
        queue->wait();
        ASSERT_EQ(gone, 4);
    }
}

TEST(CFileQueueTest, sumsUpWhatItsFilesHave)
{
    const auto queue = queueOf(2);
    queue->add(acted([](CFileSignals& signals) { signals.setProgress(100, 100); }).get());
    queue->wait();
    const auto file = acted([](CFileSignals& signals) {
        signals.setStart(1000);
        signals.setProgress(1040, 1200);
        while (!signals.isCancelled())
            std::this_thread::yield();
        throw kx::CError("cancelled");
    });
    queue->add(file.get());
    while (file->getProgress().done < 1040)
        std::this_thread::yield();
    auto summary = queue->getSummary();
    EXPECT_EQ(summary.doneBytes, 1140);
    EXPECT_EQ(summary.totalBytes, 1300);
    EXPECT_EQ(file->getProgress().moved, 40);
    EXPECT_GT(summary.bytesPerSecond, 0);
    ASSERT_TRUE(summary.secondsLeft);
    EXPECT_NEAR(*summary.secondsLeft, 160 / summary.bytesPerSecond, 1e-6);
    queue->cancel();
    queue->wait();
    EXPECT_EQ(queue->getSummary().doneBytes, 100);
}

TEST(CFileQueueTest, aPauseWasNoSlowTransfer)
{
    const auto queue = queueOf(1);
    const auto file = acted([](CFileSignals& signals) {
        signals.setProgress(1000, 2000);
        while (!signals.isCancelled())
            signals.wait(CFileSignals::Clock::now() + std::chrono::seconds(1), false);
        throw kx::CError("cancelled");
    });
    queue->add(file.get());
    while (file->getProgress().done < 1000)
        std::this_thread::yield();
    EXPECT_GT(queue->getSummary().bytesPerSecond, 0);
    queue->resume(); // nothing was paused
    EXPECT_GT(queue->getSummary().bytesPerSecond, 0);
    queue->pause();
    queue->resume();
    EXPECT_EQ(queue->getSummary().bytesPerSecond, 0); // nothing has moved since
}

TEST(CFileQueueTest, theTotalIsNotKnownWhileAFileWaits)
{
    const auto queue = queueOf(1);
    queue->add(endless().get());
    queue->add(endless().get());
    EXPECT_FALSE(queue->getSummary().totalBytes);
}

TEST(CFileQueueTest, aFileIsAddedOnce)
{
    const auto queue = queueOf(1);
    const auto running = endless();
    const auto waiting = endless();
    queue->add(running.get());
    queue->add(waiting.get());
    EXPECT_THROW(queue->add(running.get()), kx::CInvalidArgError);
    EXPECT_THROW(queue->add(waiting.get()), kx::CInvalidArgError);
    queue->cancel();
    queue->wait();
    EXPECT_THROW(queue->add(waiting.get()), kx::CInvalidArgError);
    EXPECT_EQ(queue->getSummary().cancelled, 2);
}

TEST(CFileQueueTest, manyThreadsMayUseItAtOnce)
{
    constexpr int filesEach = 500;
    std::atomic<int> ended = 0;
    const auto queue = queueOf(8, [&ended](norla::CFileTransfer&) { ++ended; });
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int number = 0; number < filesEach; ++number)
                queue->add(number % 3 ? quick().get() : failing("no").get());
        });
    }
    for (int i = 0; i < 100; ++i) {
        queue->pause();
        EXPECT_GE(queue->getSummary().waiting, 0);
        queue->resume();
        if (i % 10 == 0)
            queue->cancel();
    }
    for (std::thread& thread : threads)
        thread.join();
    queue->wait();
    const auto summary = queue->getSummary();
    EXPECT_EQ(summary.succeeded + summary.failed + summary.cancelled, 4 * filesEach);
    EXPECT_EQ(ended, 4 * filesEach);
}

TEST(CFileQueueTest, waitsForNoTimeThatIsLongPast)
{
    const auto queue = queueOf(1);
    queue->add(endless().get());
    EXPECT_FALSE(queue->waitFor(kx::CTimeSpan::fromMicroseconds(std::numeric_limits<long long>::min() + 1)));
}

TEST(CFileQueueTest, refusesToWaitInAChild)
{
    const auto queue = queueOf(1);
    const auto running = endless();
    queue->add(running.get());
    const pid_t child = fork();
    if (child == 0) {
        const auto refuses = [](const auto& action) {
            try {
                action();
            } catch (const kx::CError&) {
                return true;
            }
            return false;
        };
        alarm(60);
        const auto another = quick();
        const bool isRefused = refuses([&] { queue->wait(); }) && refuses([&] { queue->add(another.get()); });
        _exit(isRefused ? 0 : 1);
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

// Its threads wait, and are not there to be woken.
TEST(CFileQueueTest, goesInAChild)
{
    auto queue = queueOf(1);
    queue->add(quick().get());
    queue->wait();
    const pid_t child = fork();
    if (child == 0) {
        alarm(10); // ends it where it hangs
        queue = nullptr;
        _exit(0);
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

TEST(CFileQueueTest, whatIsNoFileOrNoNumberIsRefused)
{
    EXPECT_THROW(queueOf(1)->add(nullptr), kx::CInvalidArgError);
    EXPECT_THROW(queueOf(0), kx::CInvalidArgError);
    EXPECT_THROW(queueOf(257), kx::CInvalidArgError);
}

} // namespace
