#pragma once

#include "kx/text/String.h"
#include "kx/time/CTime.h"

namespace norla {

/// When a store is to do what it is asked for, by what it has (RFC 9110 section 13.1). Where that does not hold it
/// answers 304 ("NotModified") or 412 ("PreconditionFailed"), which is a CS3Error. A value.
struct CS3Conditions {
    kx::String ifMatch = {};          ///< ETag, with its quotation marks: only that content; empty: any
    kx::String ifNoneMatch = {};      ///< ETag, with its quotation marks: any content but that; empty: any
    kx::CTime ifModifiedSince = {};   ///< only what is newer, to the second; unset: of any age
    kx::CTime ifUnmodifiedSince = {}; ///< only what is no newer, to the second; unset: of any age
};

} // namespace norla
