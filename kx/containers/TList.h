#pragma once

#include "kx/base/language.h"

#include <list>

namespace kx {

/// A linked list, whose elements keep their place
template <typename T>
using TList = std::list<T>;

} // namespace kx
