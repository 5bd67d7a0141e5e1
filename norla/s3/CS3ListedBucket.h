#pragma once

#include "kx/text/String.h"

namespace norla {

/// A bucket in the list of them. A value.
struct CS3ListedBucket {
    kx::String name;         ///< never empty
    kx::String creationDate; ///< as the store wrote it ("2026-11-21T08:49:37.000Z"); empty when it did not
};

} // namespace norla
