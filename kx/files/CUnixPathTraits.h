#pragma once

#include "kx/base/language.h"

namespace kx {

/// What sets Unix paths apart, for TPathImpl.
struct CUnixPathTraits {
    static constexpr wchar_t separator = L'/';
};

} // namespace kx
