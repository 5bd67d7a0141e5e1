#pragma once

#include "kx/base/language.h"

#include <string_view>

namespace kx {

/// A character that trimming removes: space, tab, CR, LF, vertical tab or form feed.
constexpr bool isWhiteSpace(wchar_t character) noexcept
{
    return character == L' ' || (character >= L'\t' && character <= L'\r');
}

/// The part of the text behind its leading white space. It points into what it was made from, as the others do.
constexpr std::wstring_view trimmedLeft(std::wstring_view text) noexcept
{
    while (!text.empty() && isWhiteSpace(text.front()))
        text.remove_prefix(1);
    return text;
}

/// The part of the text before its trailing white space.
constexpr std::wstring_view trimmedRight(std::wstring_view text) noexcept
{
    while (!text.empty() && isWhiteSpace(text.back()))
        text.remove_suffix(1);
    return text;
}

/// The part of the text between its leading and its trailing white space.
constexpr std::wstring_view trimmed(std::wstring_view text) noexcept
{
    return trimmedRight(trimmedLeft(text));
}

} // namespace kx
