#pragma once

#include <string>
#include <string_view>

namespace kx {

/// Whether the value is a Unicode scalar value: a code point that UTF-8 can hold.
constexpr bool isScalarValue(wchar_t character) noexcept
{
    const auto code = static_cast<char32_t>(character);
    return code < 0xD800 || (code > 0xDFFF && code <= 0x10FFFF);
}

/// Decodes RFC 3629 UTF-8, strictly.
/// @throws CError naming the position of the first byte that does not belong.
std::wstring decodeUTF8(std::string_view utf8);

/// @throws CError on a value that isScalarValue() denies.
std::string encodeUTF8(std::wstring_view text);

/// Like decodeUTF8(), but a byte that does not belong becomes U+DC80 to U+DCFF (U+DC00 plus the byte, as in PEP 383).
std::wstring decodeUTF8KeepingBytes(std::string_view bytes);

/// The bytes that decodeUTF8KeepingBytes() has made the text from.
/// @throws CError on any other value that isScalarValue() denies.
std::string encodeUTF8KeepingBytes(std::wstring_view text);

} // namespace kx
