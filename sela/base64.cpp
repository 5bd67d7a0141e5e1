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

} // namespace sela
