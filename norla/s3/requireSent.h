#pragma once

#include "kx/text/String.h"
#include "norla/core/CNetRequest.h"

namespace norla {

/// Behind a success: libcurl sends no more of a body behind an answer, and takes that for the end.
/// @param size of the body, in bytes @param what it is, such as "part 3"
/// @throws kx::CError where the store has answered before all of it was sent
void requireSent(CNetRequest& request, long long size, const kx::String& what);

} // namespace norla
