#pragma once

#include <unistd.h>

namespace support {

/// Whether the test runs as root. Servers that root starts serve as a user without rights.
inline bool isRoot()
{
    return geteuid() == 0;
}

} // namespace support
