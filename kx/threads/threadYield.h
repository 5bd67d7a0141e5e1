#pragma once

#include "kx/base/visibility.h"

namespace kx {

/// Lets other threads run.
/// @param rest also rests for a millisecond, for loops that may have to wait longer than a moment
KX_EXPORT void threadYield(bool rest);

} // namespace kx
