#include "examples/desktop/CDownloadStatus.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <utility>

namespace {

using norla::FileState;

/// The actions that a person can take, as letters: P(ause), R(esume), C(ancel), (re)T(ry).
std::string actionsOf(FileState state, bool isPauseAsked = false)
{
    const CDownloadStatus status{.state = state, .isPauseAsked = isPauseAsked};
    std::string letters;
    for (const auto& [action, letter] : {std::pair(DownloadAction::Pause, 'P'), {DownloadAction::Resume, 'R'},
             {DownloadAction::Cancel, 'C'}, {DownloadAction::Retry, 'T'}}) {
        if (status.can(action))
            letters += letter;
    }
    return letters;
}

CDownloadStatus running(long long done, std::optional<long long> total, double rate, std::optional<double> left = {})
{
    const norla::CFileProgress progress{
        .done = done, .total = total, .moved = done, .bytesPerSecond = rate, .secondsLeft = left};
    return {.state = FileState::Running, .progress = progress};
}

TEST(CDownloadStatusTest, whatWaitsCanBeCancelled)
{
    EXPECT_EQ(actionsOf(FileState::Waiting), "C");
}

TEST(CDownloadStatusTest, whatRunsCanBePausedAndCancelled)
{
    EXPECT_EQ(actionsOf(FileState::Running), "PC");
}

TEST(CDownloadStatusTest, whatIsPausedCanBeResumedAlsoBeforeItsConnectionsAreClosed)
{
    EXPECT_EQ(actionsOf(FileState::Running, true), "RC");
    EXPECT_EQ(actionsOf(FileState::Paused, true), "RC");
}

TEST(CDownloadStatusTest, whatIsComparedCanOnlyBeAwaited)
{
    EXPECT_EQ(actionsOf(FileState::Finishing), "");
}

TEST(CDownloadStatusTest, whatHasNotArrivedCanBeTriedAgain)
{
    EXPECT_EQ(actionsOf(FileState::Failed), "T");
    EXPECT_EQ(actionsOf(FileState::Cancelled), "T");
    EXPECT_EQ(actionsOf(FileState::Succeeded), "");
}

TEST(CDownloadStatusTest, saysThatItConnects)
{
    EXPECT_EQ(running(0, {}, 0).text(), "Connecting");
    EXPECT_EQ(running(0, {}, 0).percent(), std::nullopt);
}

TEST(CDownloadStatusTest, saysHowFarItIs)
{
    const auto status = running(512, 1024, 100, 5.12);
    EXPECT_EQ(status.text(), "512 B of 1.0 KiB, 100 B/s, 0:05 left");
    EXPECT_EQ(status.percent(), 50);
}

TEST(CDownloadStatusTest, saysHowMuchHasComeOfWhatHasNoKnownLength)
{
    const auto status = running(512, {}, 100);
    EXPECT_EQ(status.text(), "512 B, 100 B/s");
    EXPECT_EQ(status.percent(), std::nullopt);
}

TEST(CDownloadStatusTest, saysThatNothingComes)
{
    EXPECT_EQ(running(512, 1024, 0).text(), "512 B of 1.0 KiB, nothing comes");
}

TEST(CDownloadStatusTest, saysThatItIsPausedAsSoonAsThatIsAsked)
{
    auto status = running(512, 1024, 100);
    status.isPauseAsked = true;
    EXPECT_EQ(status.text(), "Paused, 512 B of 1.0 KiB");
    EXPECT_FALSE(status.isMoving());
}

TEST(CDownloadStatusTest, aWholeFileIsAllOfIt)
{
    auto status = running(0, 0, 0);
    status.state = FileState::Succeeded;
    EXPECT_EQ(status.text(), "0 B");
    EXPECT_EQ(status.percent(), 100);
    EXPECT_TRUE(status.hasEnded());
}

TEST(CDownloadStatusTest, saysWhatWentWrong)
{
    const CDownloadStatus status{.state = FileState::Failed, .error = kx::newObj<kx::CError>("No such thing.")};
    EXPECT_EQ(status.text(), "No such thing.");
    EXPECT_EQ(status.percent(), 0);
}

} // namespace
