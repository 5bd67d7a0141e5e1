#pragma once

namespace kx {

/// What sets Unix paths apart, for TPathImpl.
struct CUnixPathTraits {
    static constexpr wchar_t separator = L'/';
};

} // namespace kx
