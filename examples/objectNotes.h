#pragma once

#include "examples/text.h"
#include "kx/containers/TArray.h"
#include "kx/containers/TMap.h"

#include <algorithm>

/// Words of the command line, name to value.
using NamedTexts = kx::TMap<kx::String, kx::String>;

/// @param words each NAME=VALUE; the value may be empty
/// @param what one of them is, for an error, such as "tag"
/// @throws as usageError() for a word that is none, and for two of one name
inline NamedTexts namedTextsOf(const kx::TArray<kx::String>& words, const kx::String& what)
{
    NamedTexts texts;
    for (const kx::String& word : words) {
        const size_t equals = word.find(L'=');
        if (equals == kx::String::npos || equals == 0)
            throw usageError("no " + what + " NAME=VALUE: '" + word + "'");
        if (!texts.try_emplace(word.substr(0, equals), word.substr(equals + 1)).second)
            throw usageError("the " + what + " '" + word.substr(0, equals) + "' is given more than once");
    }
    return texts;
}

/// A text that goes into a header.
/// @throws as usageError() when it holds a control character, such as a line end
inline const kx::String& requireLine(const kx::String& text, const kx::String& what)
{
    constexpr wchar_t del = 0x7F;
    if (std::any_of(text.begin(), text.end(), [](wchar_t letter) { return letter < L' ' || letter == del; }))
        throw usageError(what + " holds a control character: '" + text + "'");
    return text;
}

/// Metadata of an object: names in lower case, as stores give them back.
/// @throws as usageError() also for what cannot be in a header
inline NamedTexts metadataOf(const kx::TArray<kx::String>& words)
{
    const auto isUsual = [](wchar_t letter) {
        return (letter >= L'a' && letter <= L'z') || (letter >= L'0' && letter <= L'9')
            || kx::String("-_.").find(letter) != kx::String::npos;
    };
    kx::TArray<kx::String> lower;
    for (const kx::String& word : words) {
        const kx::String name = word.substr(0, word.find(L'=')).toLower();
        if (!std::all_of(name.begin(), name.end(), isUsual))
            throw usageError(
                "the name of metadata has other characters than A-Z, a-z, 0-9, '-', '_' and '.': '" + word + "'");
        lower.push_back(name + requireLine(word, "metadata").substr(name.size()));
    }
    return namedTextsOf(lower, "metadata");
}
