#pragma once

#include "kx/text/String.h"

namespace norla {

/// Why an object was not removed. A value.
struct CS3DeleteFailure {
    kx::String key;
    kx::String versionId; ///< empty: no version was named
    kx::String code;      ///< of the store, such as "AccessDenied"
    kx::String message;   ///< for a person, with the store's own words; empty when there are none
};

} // namespace norla
