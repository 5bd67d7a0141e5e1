#pragma once

#include <string_view>

namespace kx {

/// The characters that trimming removes.
inline constexpr std::wstring_view whiteSpace = L" \t\r\n\v\f";

/// The part of the text between its leading and its trailing white space. It points into what it was made from.
constexpr std::wstring_view trimmed(std::wstring_view text) noexcept
{
    const auto first = text.find_first_not_of(whiteSpace);
    if (first == std::wstring_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(whiteSpace) - first + 1);
}

} // namespace kx
