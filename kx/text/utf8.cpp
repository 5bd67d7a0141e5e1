#include "kx/text/utf8.h"

#include "kx/base/CError.h"

#include <wx/strconv.h>

#include <algorithm>

namespace kx {

namespace {

const wxMBConvStrictUTF8& converter()
{
    static const auto* const instance
        = new wxMBConvStrictUTF8; // never destroyed: destructors of static objects use text
    return *instance;
}

// These two look at every character instead of stopping at the first that is not ASCII: one vector operation after the
// other.
bool isAllASCII(std::wstring_view text) noexcept
{
    char32_t bits = 0;
    for (const wchar_t character : text)
        bits |= static_cast<char32_t>(character);
    return bits < 0x80;
}

bool widenASCII(std::string_view utf8, std::wstring& wide)
{
    wide.resize(utf8.size());
    unsigned char bits = 0;
    for (size_t i = 0; i < utf8.size(); ++i) {
        const auto byte = static_cast<unsigned char>(utf8[i]);
        wide[i] = static_cast<wchar_t>(byte);
        bits |= byte;
    }
    return bits < 0x80;
}

size_t encodedSize(std::wstring_view text) noexcept
{
    size_t size = 0;
    for (const wchar_t character : text) {
        const auto code = static_cast<char32_t>(character);
        size += code < 0x80 ? 1 : code < 0x800 ? 2 : code < 0x10000 ? 3 : 4;
    }
    return size;
}

// The converter takes overlong forms, surrogates and values beyond U+10FFFF. An overlong form shows in the size.
bool convertStrictly(std::string_view utf8, std::wstring& wide)
{
    wide.resize(utf8.size());
    const size_t length = converter().ToWChar(wide.data(), wide.size(), utf8.data(), utf8.size());
    if (length == wxCONV_FAILED)
        return false;
    wide.resize(length);
    return encodedSize(wide) == utf8.size() && std::all_of(wide.begin(), wide.end(), isScalarValue);
}

// Only reached for bytes that are no UTF-8, so that it may try one prefix after the other.
size_t firstBadByte(std::string_view utf8)
{
    std::wstring ignored;
    size_t good = 0;
    for (size_t length = 1; good + length <= utf8.size() && length <= 4; ++length) {
        if (!convertStrictly(utf8.substr(good, length), ignored))
            continue;
        good += length;
        length = 0;
    }
    return good;
}

[[noreturn]] void throwNotUTF8(std::string_view utf8)
{
    throw CError(String::fromLatin1("Text is not valid UTF-8 at byte " + std::to_string(firstBadByte(utf8)) + "."));
}

constexpr wchar_t keptByteBase = 0xDC00;

constexpr bool isKeptByte(wchar_t character) noexcept
{
    return character >= keptByteBase + 0x80 && character <= keptByteBase + 0xFF;
}

} // namespace

std::wstring decodeUTF8(std::string_view utf8)
{
    std::wstring wide;
    if (widenASCII(utf8, wide))
        return wide;
    if (!convertStrictly(utf8, wide))
        throwNotUTF8(utf8);
    return wide;
}

std::string encodeUTF8(std::wstring_view text)
{
    if (isAllASCII(text)) {
        std::string ascii(text.size(), '\0');
        std::transform(
            text.begin(), text.end(), ascii.begin(), [](wchar_t character) { return static_cast<char>(character); });
        return ascii;
    }
    const auto bad = std::find_if_not(text.begin(), text.end(), isScalarValue);
    if (bad != text.end())
        throw CError(
            String::fromLatin1("Text has no UTF-8 form at character " + std::to_string(bad - text.begin()) + "."));
    std::string utf8(encodedSize(text), '\0');
    converter().FromWChar(utf8.data(), utf8.size(), text.data(), text.size());
    return utf8;
}

std::wstring decodeUTF8KeepingBytes(std::string_view bytes)
{
    std::wstring wide;
    if (widenASCII(bytes, wide) || convertStrictly(bytes, wide))
        return wide;
    wide.clear();
    while (!bytes.empty()) {
        const size_t good = firstBadByte(bytes);
        wide += decodeUTF8(bytes.substr(0, good));
        bytes.remove_prefix(good);
        if (bytes.empty())
            break;
        wide += static_cast<wchar_t>(keptByteBase + static_cast<unsigned char>(bytes.front()));
        bytes.remove_prefix(1);
    }
    return wide;
}

std::string encodeUTF8KeepingBytes(std::wstring_view text)
{
    std::string bytes;
    while (!text.empty()) {
        const auto kept = std::find_if(text.begin(), text.end(), isKeptByte);
        const auto length = static_cast<size_t>(kept - text.begin());
        bytes += encodeUTF8(text.substr(0, length));
        text.remove_prefix(length);
        if (text.empty())
            break;
        bytes += static_cast<char>(text.front() - keptByteBase);
        text.remove_prefix(1);
    }
    return bytes;
}

} // namespace kx
