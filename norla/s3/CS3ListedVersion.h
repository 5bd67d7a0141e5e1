#pragma once

#include "norla/s3/CS3ListedObject.h"

namespace norla {

/// A version of an object, or the mark that says that the object was removed. A value.
struct CS3ListedVersion : CS3ListedObject {
    kx::String versionId;        ///< "null" for what was stored while versions were not kept
    bool isLatest = false;       ///< the one that is given to whoever names none
    bool isDeleteMarker = false; ///< then there is no size and no ETag
};

} // namespace norla
