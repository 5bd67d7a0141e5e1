#pragma once

#include "kx/text/String.h"

namespace norla {

/// What is copied on the store's side. A value; texts are not escaped.
struct CS3CopySource {
    kx::String bucketName;
    kx::String objectName;
    kx::String versionId = {}; ///< empty: the newest version
    kx::String eTag = {};      ///< empty: whatever it is; else the copy fails when it is another (status 412)
};

} // namespace norla
