#pragma once

#include <string_view>

namespace norla {

/// The two halves of a header line, without surrounding white space. They point into what was split.
struct CHeaderEntry {
    std::wstring_view name;
    std::wstring_view value;
};

/// Splits a line at its first ":".
/// @throws kx::CInvalidArgError when there is no ":" or the name is empty
CHeaderEntry splitHeaderEntry(std::wstring_view line);

} // namespace norla
