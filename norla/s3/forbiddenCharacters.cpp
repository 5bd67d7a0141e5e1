#include "norla/s3/forbiddenCharacters.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <system_error>

namespace norla {

namespace {

constexpr std::string_view noncharacters[] = {"\xef\xbf\xbe", "\xef\xbf\xbf"}; // U+FFFE, U+FFFF

struct CFound {
    std::string_view bytes; // of the forbidden character; empty where there is none
    size_t length = 0;      // of what stands for it in the text
};

bool isForbidden(char byte)
{
    return static_cast<unsigned char>(byte) < 0x20 && byte != '\t' && byte != '\r' && byte != '\n';
}

std::string_view controlCharacter(size_t code)
{
    static constexpr char characters[] = "\x00\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0a\x0b\x0c\x0d\x0e\x0f"
                                         "\x10\x11\x12\x13\x14\x15\x16\x17\x18\x19\x1a\x1b\x1c\x1d\x1e\x1f";
    return code < 0x20 && isForbidden(characters[code]) ? std::string_view(&characters[code], 1) : std::string_view();
}

/// @param text that begins with "&"
CFound reference(std::string_view text, bool isPercentForbidden)
{
    constexpr size_t longest = 16;
    const size_t end = text.substr(0, longest).find(';');
    if (!text.starts_with("&#") || end == std::string_view::npos)
        return {};
    const bool isHexadecimal = text[2] == 'x';
    const std::string_view digits = text.substr(isHexadecimal ? 3 : 2, end - (isHexadecimal ? 3 : 2));
    size_t code = 0;
    const auto [last, error]
        = std::from_chars(digits.data(), digits.data() + digits.size(), code, isHexadecimal ? 16 : 10);
    if (error != std::errc() || last != digits.data() + digits.size())
        return {};
    if (code == '%' && isPercentForbidden)
        return {"%", end + 1};
    if (code == 0xfffe || code == 0xffff)
        return {noncharacters[code - 0xfffe], end + 1};
    return {controlCharacter(code), end + 1};
}

CFound forbiddenAtStart(std::string_view text, bool isPercentForbidden)
{
    if (text[0] == '&')
        return reference(text, isPercentForbidden);
    if (text[0] == '%' && isPercentForbidden)
        return {text.substr(0, 1), 1};
    for (const std::string_view noncharacter : noncharacters) {
        if (text.starts_with(noncharacter))
            return {noncharacter, noncharacter.size()};
    }
    return isForbidden(text[0]) ? CFound{text.substr(0, 1), 1} : CFound();
}

std::string withEscapes(std::string_view utf8, bool isPercentForbidden)
{
    constexpr char digits[] = "0123456789ABCDEF";
    std::string escaped;
    escaped.reserve(utf8.size());
    while (!utf8.empty()) {
        const CFound found = forbiddenAtStart(utf8, isPercentForbidden);
        for (const char byte : found.bytes) {
            const auto value = static_cast<unsigned char>(byte);
            escaped += {'%', digits[value >> 4], digits[value & 15]};
        }
        if (found.bytes.empty())
            escaped += utf8[0];
        utf8.remove_prefix(found.bytes.empty() ? 1 : found.length);
    }
    return escaped;
}

} // namespace

std::string withForbiddenCharactersEscaped(std::string_view utf8)
{
    constexpr bool isPercentForbidden = false;
    return withEscapes(utf8, isPercentForbidden);
}

std::string withPercentSignsEscapedToo(std::string_view utf8)
{
    constexpr bool isPercentForbidden = true;
    return withEscapes(utf8, isPercentForbidden);
}

} // namespace norla
