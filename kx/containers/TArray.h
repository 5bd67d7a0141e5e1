#pragma once

#include "kx/base/language.h"

#include <vector>

namespace kx {

/// A growable array
template <typename T>
using TArray = std::vector<T>;

} // namespace kx
