#pragma once

#include "kx/base/language.h"
#include "kx/threads/CMutex.h"

namespace kx {

/// Holds a mutex from its construction to the end of its scope.
using CMutexLock = std::lock_guard<CMutex>;

} // namespace kx
