#include "kx/text/utf8.h"

#include "kx/base/CError.h"

#include <algorithm>
#include <array>

namespace kx {

namespace {

// What the first byte of a sequence says of the others (RFC 3629, section 4). The bounds of the second byte leave out
// overlong forms, surrogates and what is beyond U+10FFFF; all further ones are 80 to BF.
struct CLead {
    unsigned char length = 0; // 0 where no character beyond ASCII begins so
    unsigned char secondFrom = 0;
    unsigned char secondTo = 0;
};

struct CLeadRow {
    unsigned char first;
    unsigned char last;
    CLead lead;
};

constexpr auto leadRows = std::to_array<CLeadRow>({
    {0xC2, 0xDF, {2, 0x80, 0xBF}},
    {0xE0, 0xE0, {3, 0xA0, 0xBF}},
    {0xE1, 0xEC, {3, 0x80, 0xBF}},
    {0xED, 0xED, {3, 0x80, 0x9F}},
    {0xEE, 0xEF, {3, 0x80, 0xBF}},
    {0xF0, 0xF0, {4, 0x90, 0xBF}},
    {0xF1, 0xF3, {4, 0x80, 0xBF}},
    {0xF4, 0xF4, {4, 0x80, 0x8F}},
});

constexpr auto leads = [] {
    std::array<CLead, 256> result{};
    for (const CLeadRow& row : leadRows)
        for (size_t byte = row.first; byte <= row.last; ++byte)
            result[byte] = row.lead;
    return result;
}();

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

constexpr unsigned char byteAt(std::string_view bytes, size_t position) noexcept
{
    return static_cast<unsigned char>(bytes[position]);
}

// The further bytes of a sequence: six bits in each, below the bits that are there.
// @return whether they are all bytes that go on with a sequence
template <size_t count>
bool readContinuation(std::string_view utf8, size_t position, char32_t& bits) noexcept
{
    bool good = true;
    for (size_t i = position; i < position + count; ++i) {
        good &= (byteAt(utf8, i) & 0xC0u) == 0x80;
        bits = bits << 6 | (byteAt(utf8, i) & 0x3Fu);
    }
    return good;
}

// Reads the character beyond ASCII at the position.
// @return whether there is one, all of it
template <size_t length>
bool readSequence(std::string_view utf8, size_t position, CLead lead, wchar_t& character) noexcept
{
    if (utf8.size() - position < length)
        return false;
    const unsigned char second = byteAt(utf8, position + 1);
    char32_t code = (byteAt(utf8, position) & (0x7Fu >> length)) << 6 | (second & 0x3Fu);
    const bool good = readContinuation<length - 2>(utf8, position + 2, code);
    character = static_cast<wchar_t>(code);
    return good && second >= lead.secondFrom && second <= lead.secondTo;
}

// @return how many bytes the character beyond ASCII at the position has; 0 if none is there, or not all of it
size_t readBeyondASCII(std::string_view utf8, size_t position, wchar_t& character) noexcept
{
    const CLead lead = leads[byteAt(utf8, position)];
    switch (lead.length) {
    case 2:
        return readSequence<2>(utf8, position, lead, character) ? 2 : 0;
    case 3:
        return readSequence<3>(utf8, position, lead, character) ? 3 : 0;
    case 4:
        return readSequence<4>(utf8, position, lead, character) ? 4 : 0;
    default:
        return 0;
    }
}

// Reads up to the end or to the first byte that does not belong. The room for the characters, one a byte, moves on.
// @return how many bytes are read
size_t readGoodBytes(std::string_view utf8, wchar_t*& room) noexcept
{
    size_t good = 0;
    while (good < utf8.size()) {
        if (byteAt(utf8, good) < 0x80) {
            *room++ = static_cast<wchar_t>(utf8[good++]);
            continue;
        }
        const size_t length = readBeyondASCII(utf8, good, *room);
        if (length == 0)
            break;
        good += length;
        ++room;
    }
    return good;
}

[[noreturn]] void throwNotUTF8(size_t position)
{
    throw CError(String::fromLatin1("Text is not valid UTF-8 at byte " + std::to_string(position) + "."));
}

// Writes a scalar value. @return the place behind it
char* writeCharacter(char32_t code, char* place) noexcept
{
    const auto continuation = [code](int shift) { return static_cast<char>(0x80u | (code >> shift & 0x3Fu)); };
    if (code < 0x80) {
        *place++ = static_cast<char>(code);
        return place;
    }
    if (code < 0x800) {
        *place++ = static_cast<char>(0xC0u | code >> 6);
    } else if (code < 0x10000) {
        *place++ = static_cast<char>(0xE0u | code >> 12);
        *place++ = continuation(6);
    } else {
        *place++ = static_cast<char>(0xF0u | code >> 18);
        *place++ = continuation(12);
        *place++ = continuation(6);
    }
    *place++ = continuation(0);
    return place;
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
    wchar_t* end = wide.data();
    const size_t good = readGoodBytes(utf8, end);
    if (good != utf8.size())
        throwNotUTF8(good);
    wide.resize(static_cast<size_t>(end - wide.data()));
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
    char* place = utf8.data();
    for (const wchar_t character : text)
        place = writeCharacter(static_cast<char32_t>(character), place);
    return utf8;
}

std::wstring decodeUTF8KeepingBytes(std::string_view bytes)
{
    std::wstring wide;
    if (widenASCII(bytes, wide))
        return wide;
    wchar_t* end = wide.data();
    for (;;) {
        bytes.remove_prefix(readGoodBytes(bytes, end));
        if (bytes.empty())
            break;
        *end++ = static_cast<wchar_t>(keptByteBase + static_cast<unsigned char>(bytes.front()));
        bytes.remove_prefix(1);
    }
    wide.resize(static_cast<size_t>(end - wide.data()));
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
