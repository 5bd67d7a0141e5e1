#pragma once

#include "kx/base/visibility.h"
#include "kx/threads/CMutex.h"

namespace kx {

/// The lock under which process-wide instances are built.
KX_EXPORT CMutex& getGlobalMutex();

} // namespace kx
