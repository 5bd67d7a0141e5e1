#include "kx/text/hex.h"

namespace kx {

String hexEncode(std::string_view bytes)
{
    constexpr std::wstring_view digits = L"0123456789abcdef";
    std::wstring text;
    text.reserve(2 * bytes.size());
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        text += digits[value >> 4];
        text += digits[value & 0xF];
    }
    return String(std::move(text));
}

} // namespace kx
