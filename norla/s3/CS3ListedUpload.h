#pragma once

#include "kx/text/String.h"

namespace norla {

/// An upload by parts that was begun, and neither completed nor aborted. A value; texts are as the store wrote them,
/// empty where it did not.
struct CS3ListedUpload {
    kx::String key;       ///< of the object that it would make; never empty
    kx::String uploadId;  ///< never empty
    kx::String initiated; ///< such as "2026-11-21T08:49:37.000Z"
    kx::String storageClass;
};

} // namespace norla
