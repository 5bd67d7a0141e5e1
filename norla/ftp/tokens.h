#pragma once

#include <algorithm>
#include <string_view>

namespace norla {

/// Calls action(std::wstring_view) for every field of the text between the delimiters, empty ones included, up to the
/// last character that is no delimiter: "a;;b;;" has the fields "a", "" and "b". A text of delimiters alone has one
/// empty field, an empty text none.
template <typename TAction>
void forEachField(std::wstring_view text, wchar_t delimiter, TAction action)
{
    if (text.empty())
        return;
    text = text.substr(0, text.find_last_not_of(delimiter) + 1);
    for (;;) {
        const size_t end = text.find(delimiter);
        action(text.substr(0, end));
        if (end == std::wstring_view::npos)
            return;
        text.remove_prefix(end + 1);
    }
}

/// Calls action(std::basic_string_view<TCharacter>) for every part of the text between the delimiters that is not
/// empty.
template <typename TCharacter, typename TAction>
void forEachPart(std::basic_string_view<TCharacter> text, TCharacter delimiter, TAction action)
{
    while (!text.empty()) {
        const size_t end = std::min(text.find(delimiter), text.size());
        if (end > 0)
            action(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
}

/// The same for every line; CR and LF end lines. One after the other: looking for both at once takes several times as
/// long.
template <typename TCharacter, typename TAction>
void forEachLine(std::basic_string_view<TCharacter> text, TAction action)
{
    forEachPart(text, TCharacter('\n'),
        [&action](std::basic_string_view<TCharacter> part) { forEachPart(part, TCharacter('\r'), action); });
}

} // namespace norla
