#pragma once

#include <string_view>

namespace kx {

/// The characters that trimming removes.
inline constexpr std::wstring_view whiteSpace = L" \t\r\n\v\f";

constexpr bool isWhiteSpace(wchar_t character) noexcept
{
    return character == L' ' || (character >= L'\t' && character <= L'\r');
}

/// The part of the text between its leading and its trailing white space. It points into what it was made from.
constexpr std::wstring_view trimmed(std::wstring_view text) noexcept
{
    while (!text.empty() && isWhiteSpace(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isWhiteSpace(text.back()))
        text.remove_suffix(1);
    return text;
}

} // namespace kx
