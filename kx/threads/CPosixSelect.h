#pragma once

#include "kx/base/visibility.h"

#include <sys/select.h>

namespace kx {

/// The system's select().
class KX_EXPORT CPosixSelect {
public:
    /// Waits until a descriptor of one of the sets is ready, at most that many milliseconds: 0 only looks, a negative
    /// number waits without limit. The sets hold the ready descriptors afterwards, none when 0 is returned; null sets
    /// are allowed.
    /// @param descriptorCount the highest descriptor in the sets, plus one; at most FD_SETSIZE
    /// @return how many are ready; 0 when the time passed or a signal came in between
    /// @throws CError when a descriptor is bad
    static int select(int descriptorCount, fd_set* readable, fd_set* writable, fd_set* exceptional, int timeoutMs);
};

} // namespace kx
