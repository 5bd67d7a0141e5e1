#pragma once

#include "kx/text/String.h"
#include "norla/core/IDataSource.h"

#include <string>

namespace norla {

/// What is known of the bytes of a part before they are sent. A value.
struct KX_EXPORT CS3PartDigest {
    long long size = 0;    ///< in bytes
    kx::String contentMD5; ///< Base64
    std::string md5;       ///< 32 lower-case hexadecimal digits
    std::string sha256;    ///< 64 of them

    /// Reads so many bytes from the source's start.
    /// @throws kx::CError when it has fewer; what the source throws
    static CS3PartDigest of(IDataSource& source, long long size);
};

} // namespace norla
