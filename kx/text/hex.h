#pragma once

#include "kx/text/String.h"

#include <string_view>

namespace kx {

/// Two lower-case hexadecimal digits for every byte, high digit first.
KX_EXPORT String hexEncode(std::string_view bytes);

/// The value of one hexadecimal digit of either case, 0 to 15; -1 for any other character.
constexpr int hexDecodeCharLax(char digit) noexcept
{
    if (digit >= '0' && digit <= '9')
        return digit - '0';
    if (digit >= 'a' && digit <= 'f')
        return digit - 'a' + 10;
    if (digit >= 'A' && digit <= 'F')
        return digit - 'A' + 10;
    return -1;
}

} // namespace kx
