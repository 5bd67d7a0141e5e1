#pragma once

#include "kx/time/CTimeSpan.h"
#include "norla/core/CRetryPolicy.h"
#include "norla/s3/CS3PutOptions.h"

/// What the options of the program s3 say.
struct CS3Settings {
    int pageSize = -1;           ///< of listings; -1 for the store's choice
    kx::CTimeSpan lifetime;      ///< of presigned URLs
    long long partSize = 0;      ///< in bytes; 0 for the library's choice
    kx::String versionId;        ///< empty for the newest
    bool isRecursive = false;    ///< rm: all whose names begin so
    bool showsFolders = false;   ///< ls: one level
    bool showsVersions = false;  ///< ls: all that the store keeps of each object
    norla::CS3PutOptions object; ///< put: type and metadata
    norla::CRetryPolicy retries; ///< of everything
};
