#include "examples/desktop/CDownloadStatus.h"

#include "examples/amounts.h"
#include "norla/core/explain.h"

#include <algorithm>

using norla::FileState;

namespace {

kx::String amount(long long bytes)
{
    return kx::String::fromLatin1(shownSize(static_cast<double>(bytes)));
}

kx::String amountOf(const norla::CFileProgress& progress)
{
    return progress.total ? amount(progress.done) + " of " + amount(*progress.total) : amount(progress.done);
}

kx::String movement(const norla::CFileProgress& progress)
{
    if (progress.done == 0 && !progress.total)
        return "Connecting";
    kx::String text = amountOf(progress);
    if (progress.bytesPerSecond > 0)
        text += ", " + kx::String::fromLatin1(shownSize(progress.bytesPerSecond)) + "/s";
    else
        text += ", nothing comes";
    if (progress.secondsLeft)
        text += ", " + kx::String::fromLatin1(shownTime(*progress.secondsLeft)) + " left";
    return text;
}

} // namespace

bool CDownloadStatus::isMoving() const
{
    return state == FileState::Running && !isPauseAsked;
}

bool CDownloadStatus::can(DownloadAction action) const
{
    const bool isUnderWay = state == FileState::Running || state == FileState::Paused;
    switch (action) {
    case DownloadAction::Pause:
        return isUnderWay && !isPauseAsked;
    case DownloadAction::Resume:
        return isUnderWay && isPauseAsked;
    case DownloadAction::Cancel:
        return isUnderWay || state == FileState::Waiting;
    case DownloadAction::Retry:
        return state == FileState::Failed || state == FileState::Cancelled;
    }
    return false;
}

kx::String CDownloadStatus::text() const
{
    switch (state) {
    case FileState::Waiting:
        return "Waiting";
    case FileState::Running:
    case FileState::Paused:
        return isPauseAsked ? "Paused, " + amountOf(progress) : movement(progress);
    case FileState::Finishing:
        return "Checking";
    case FileState::Succeeded:
        return amount(progress.done);
    case FileState::Failed:
        return error ? norla::explain(*error) : kx::String();
    case FileState::Cancelled:
        return "Cancelled";
    }
    return {};
}

std::optional<int> CDownloadStatus::percent() const
{
    constexpr int all = 100;
    if (state == FileState::Succeeded)
        return all;
    if (progress.total && *progress.total > 0) {
        const double part = static_cast<double>(progress.done) / static_cast<double>(*progress.total);
        return std::clamp(static_cast<int>(part * all), 0, all);
    }
    return isMoving() ? std::nullopt : std::optional(0);
}
