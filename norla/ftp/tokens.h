#pragma once

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

/// Calls action(std::basic_string_view<TCharacter>) for every line that is not empty; CR and LF end lines.
template <typename TCharacter, typename TAction>
void forEachLine(std::basic_string_view<TCharacter> text, TAction action)
{
    constexpr TCharacter lineEnds[] = {'\r', '\n', 0};
    for (size_t start = text.find_first_not_of(lineEnds); start != text.npos;) {
        const size_t end = text.find_first_of(lineEnds, start);
        action(text.substr(start, end - start));
        start = text.find_first_not_of(lineEnds, end);
    }
}

} // namespace norla
