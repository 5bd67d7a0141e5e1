#pragma once

#include "kx/base/visibility.h"

#include <optional>

namespace norla {

/// How far a file has come. A value; sizes in bytes.
struct CFileProgress {
    long long done = 0; ///< of the whole file, with what an earlier attempt has left
    std::optional<long long> total;
    long long moved = 0;       ///< by this object alone; those that came again count again
    double bytesPerSecond = 0; ///< of the last five seconds, or fewer where it began later; 0 unless FileState::Running

    /// In seconds, at that rate. Empty while the total is not known or nothing moves.
    std::optional<double> secondsLeft;
};

} // namespace norla
