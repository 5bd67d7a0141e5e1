#pragma once

#include "kx/base/visibility.h" // demands the standard that all need

namespace norla {

/// By what a store checks the bytes of an object as they arrive.
enum class CS3Checksum {
    None,
    MD5,    ///< header Content-MD5, which every store knows
    SHA256, ///< header x-amz-checksum-sha256, kept with the object by stores that know it
    CRC32C  ///< header x-amz-checksum-crc32c, the same
};

} // namespace norla
