#pragma once

#include "kx/text/String.h"

namespace norla {

/// An object in a list. A value; texts are as the store wrote them, empty where it did not.
struct CS3ListedObject {
    kx::String key;          ///< its name, never empty
    kx::String lastModified; ///< such as "2026-11-21T08:49:37.000Z"
    kx::String eTag;         ///< with its quotation marks
    long long size = -1;     ///< in bytes; -1 when the store did not say
    kx::String storageClass; ///< such as "STANDARD"
    kx::String ownerId;
    kx::String ownerName;
};

} // namespace norla
