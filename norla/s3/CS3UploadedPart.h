#pragma once

#include "kx/text/String.h"

#include <string>

namespace norla {

/// A part of an upload that the store has. A value; fields are named in the order in which they stand here.
struct CS3UploadedPart {
    int number = 0;     ///< 1 to 10,000
    kx::String eTag;    ///< as the store wrote it, with its quotes
    long long size = 0; ///< in bytes; -1 for a copied part, whose size nobody has told

    /// Of the bytes that were sent, 32 lower-case hexadecimal digits, where the ETag is the same. Empty: nobody knows.
    std::string md5 = {};
};

} // namespace norla
