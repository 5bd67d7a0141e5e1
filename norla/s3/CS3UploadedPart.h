#pragma once

#include "kx/text/String.h"

namespace norla {

/// A part of an upload that the store has. A value.
struct CS3UploadedPart {
    int number = 0;     ///< 1 to 10,000
    kx::String eTag;    ///< as the store wrote it, with its quotes
    long long size = 0; ///< in bytes; -1 for a copied part, whose size nobody has told
};

} // namespace norla
