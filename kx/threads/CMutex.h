#pragma once

#include "kx/base/language.h"

#include <mutex>

namespace kx {

/// A lock that its holder may take again. Taken through CMutexLock.
using CMutex = std::recursive_mutex;

} // namespace kx
