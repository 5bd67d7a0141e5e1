#pragma once

#include "kx/base/visibility.h"
#include "kx/text/String.h"

#include <string_view>

namespace kx {

/// Reads a decimal integer: an optional "+" or "-", then digits, nothing else.
/// @param lax white space around the number is allowed
/// @throws CError naming the text when it is not such a number or does not fit into 64 bits
KX_EXPORT long long parseInt64(const String& text, bool lax);
KX_EXPORT long long parseInt64(std::wstring_view text, bool lax);
KX_EXPORT long long parseInt64(const wchar_t* text, bool lax); ///< null is the empty text

/// Reads a decimal number: an optional "+" or "-", digits with at most one "." among, before or after them, nothing
/// else (no exponent). The decimal point is "." under every locale. What is too small for a double is 0.
/// @throws CError naming the text when it is not such a number or is too large for a double
KX_EXPORT double parseSimpleDouble(const String& text);

/// The number in decimal, without grouping.
KX_EXPORT String toString(long long number);

} // namespace kx
