#pragma once

#include "kx/base/CError.h"
#include "kx/base/P.h"
#include "kx/text/String.h"
#include "norla/files/CFileTransfer.h"

#include <optional>

/// What a person can do with a download of the list.
enum class DownloadAction { Pause, Resume, Cancel, Retry };

/// How a download is, and how a window shows that. A value.
struct CDownloadStatus {
    norla::FileState state = norla::FileState::Waiting;
    bool isPauseAsked = false; ///< the state follows when the connections are closed
    norla::CFileProgress progress = {};
    kx::P<kx::CError> error = {}; ///< of one that has failed

    bool hasEnded() const { return state >= norla::FileState::Succeeded; }

    /// Whether bytes are on their way, or would be if the network let them.
    bool isMoving() const;

    bool can(DownloadAction action) const;

    /// In words: how far it is, or what went wrong.
    kx::String text() const;

    /// 0 to 100; empty while nobody knows.
    std::optional<int> percent() const;
};
