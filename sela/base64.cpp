#include "sela/base64.h"

#include <openssl/evp.h>

#include <algorithm>
#include <string_view>

namespace sela {

namespace {

constexpr size_t bytesPerLine = 57; // make 76 characters
constexpr std::string_view lineEnd = "\r\n";

constexpr size_t encodedSize(size_t size) noexcept
{
    return (size + 2) / 3 * 4;
}

std::string_view withoutPadding(std::string_view text) noexcept
{
    if (text.size() % 4 != 0)
        return text;
    const size_t end = text.find_last_not_of('=') + 1; // 0 for nothing but padding
    return text.size() - end > 2 ? text : text.substr(0, end);
}

} // namespace

kx::String base64Encode(const unsigned char* data, size_t size, bool pad, bool breakLines)
{
    kx::TBuffer<unsigned char> text;
    base64Encode(data, size, pad, breakLines, text);
    return kx::String::fromLatin1({reinterpret_cast<const char*>(text.getData()), text.getSize()});
}

void base64Encode(const unsigned char* data, size_t size, bool pad, bool breakLines, kx::TBuffer<unsigned char>& text)
{
    const size_t blockSize = breakLines ? bytesPerLine : bytesPerLine << 20; // whole groups, which an int can count
    const size_t lineEnds = size > 0 ? (size - 1) / blockSize * lineEnd.size() : 0;
    size_t end = text.getSize();
    text.setSize(end + encodedSize(size) + lineEnds + 1); // EVP_EncodeBlock ends what it writes with a zero
    for (size_t done = 0; done < size; done += blockSize) {
        if (breakLines && done > 0)
            end += lineEnd.copy(reinterpret_cast<char*>(text.getData() + end), lineEnd.size());
        const auto count = static_cast<int>(std::min(blockSize, size - done));
        end += static_cast<size_t>(EVP_EncodeBlock(text.getData() + end, data + done, count));
    }
    if (!pad)
        end -= (3 - size % 3) % 3;
    text.setSize(end);
}

std::optional<std::string> base64Decode(std::string_view text)
{
    constexpr std::string_view letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    constexpr int bitsPerLetter = 6;
    constexpr int bitsPerByte = 8;
    std::string bytes;
    unsigned int bits = 0;
    int count = 0;
    for (const char letter : withoutPadding(text)) {
        const size_t value = letters.find(letter);
        if (value == std::string_view::npos)
            return std::nullopt;
        bits = bits << bitsPerLetter | static_cast<unsigned int>(value);
        count += bitsPerLetter;
        if (count < bitsPerByte)
            continue;
        count -= bitsPerByte;
        bytes += static_cast<char>(bits >> count);
        bits &= (1U << count) - 1;
    }
    const bool isWhole = count < bitsPerLetter && bits == 0;
    return isWhole ? std::optional(bytes) : std::nullopt;
}

} // namespace sela
