#pragma once

#include "kx/text/String.h"

#include <string_view>

namespace kx {

/// Two lower-case hexadecimal digits for every byte, high digit first.
KX_EXPORT String hexEncode(std::string_view bytes);

/// The value of one hexadecimal digit of either case, 0 to 15; -1 for any other character.
KX_EXPORT int hexDecodeCharLax(char digit) noexcept;

} // namespace kx
