#pragma once

#include "kx/files/CUnixPathTraits.h"
#include "kx/files/TPathImpl.h"
#include "kx/text/String.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string>

/// Whether a terminal would act on the character and not show it, or show what follows in another order.
inline bool isControlCharacter(wchar_t character)
{
    const bool isControl = character < 0x20 || (character >= 0x7f && character < 0xa0);
    const bool isDirection = character == 0x061c || character == 0x200e || character == 0x200f
        || (character >= 0x2028 && character <= 0x202e) || (character >= 0x2066 && character <= 0x2069);
    return isControl || isDirection;
}

/// Text of a server, a URL or a file name in a form that no terminal takes for commands: "\x1b" stands for an escape
/// character. So does "\xfc" for a byte that is not UTF-8, of a path or of printable(std::string).
inline std::string printable(const kx::String& text)
{
    std::string shown;
    for (const wchar_t character : text) {
        const bool isStrayByte = character >= 0xdc80 && character <= 0xdcff; // as TPathImpl keeps them
        if (!isStrayByte && !isControlCharacter(character)) {
            shown += (kx::String() += character).toDisplayUTF8();
            continue;
        }
        const unsigned code = isStrayByte ? static_cast<unsigned>(character) & 0xff : static_cast<unsigned>(character);
        std::array<char, 16> escape{};
        std::snprintf(escape.data(), escape.size(), code > 0xff ? "\\u%04x" : "\\x%02x", code);
        shown += escape.data();
    }
    return shown;
}

inline std::string printable(const std::string& bytes)
{
    return printable(kx::TPathImpl<kx::CUnixPathTraits>::fromBytes(bytes).toString());
}
