#include "kx/text/CURI.h"

#include <string>
#include <string_view>

namespace kx {

namespace {

constexpr bool isUnreserved(char byte) noexcept
{
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') || (byte >= '0' && byte <= '9')
        || std::string_view("-._~").find(byte) != std::string_view::npos;
}

constexpr bool isKept(char byte, const String& keep) noexcept
{
    const auto code = static_cast<unsigned char>(byte);
    return code < 0x80 && keep.find(static_cast<wchar_t>(code)) != String::npos;
}

void appendEscaped(std::wstring& out, char byte)
{
    constexpr std::wstring_view digits = L"0123456789ABCDEF";
    const auto value = static_cast<unsigned char>(byte);
    out += L'%';
    out += digits[value >> 4];
    out += digits[value & 0xF];
}

} // namespace

String CURI::escape(const String& text, bool escapeSlash, const String& keep)
{
    std::wstring escaped;
    for (const char byte : text.toUTF8()) {
        if (isUnreserved(byte) || isKept(byte, keep) || (byte == '/' && !escapeSlash))
            escaped += static_cast<wchar_t>(byte);
        else if (byte == ' ')
            escaped += L'+';
        else
            appendEscaped(escaped, byte);
    }
    return String(std::move(escaped));
}

} // namespace kx
