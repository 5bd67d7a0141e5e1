#pragma once

#include <list>

namespace kx {

/// A linked list, whose elements keep their place
template <typename T>
using TList = std::list<T>;

} // namespace kx
