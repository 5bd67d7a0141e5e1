#pragma once

#include "kx/text/String.h"
#include "kx/time/CTime.h"

namespace norla {

/// A time as stores write it in documents (ISO 8601, "2009-10-12T17:50:30.000Z"), to the second. Unset for anything
/// else.
kx::CTime documentTime(const kx::String& text);

} // namespace norla
