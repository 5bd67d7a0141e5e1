#pragma once

#include <sys/types.h>

namespace support {

/// Waits until a thread of this process sleeps, which is where a thread arrives that is to wait for a lock or a
/// descriptor.
/// @param thread the system's number, gettid()
/// @throws std::runtime_error if there is no such thread
void waitUntilAsleep(pid_t thread);

} // namespace support
