#pragma once

#include "norla/s3/CS3ListedObject.h"

namespace norla {

/// What is in a folder: an object, or a folder, whose key is the whole path with the delimiter at its end
/// ("photos/2026/") and which has nothing else. A value.
struct CS3FolderEntry : CS3ListedObject {
    bool isFolder = false;
};

} // namespace norla
