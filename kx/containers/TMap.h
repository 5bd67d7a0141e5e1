#pragma once

#include "kx/base/language.h"

#include <map>

namespace kx {

/// A map ordered by key: the interface of std::map.
template <typename TKey, typename TValue>
using TMap = std::map<TKey, TValue>;

} // namespace kx
