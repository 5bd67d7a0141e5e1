#include "sela/base64.h"

#include <openssl/evp.h>

#include <algorithm>
#include <string>

namespace sela {

namespace {

constexpr size_t bytesPerLine = 57; // make 76 characters

void appendEncoded(std::string& text, const unsigned char* data, size_t size)
{
    unsigned char line[bytesPerLine / 3 * 4 + 1]; // EVP_EncodeBlock ends what it writes with a zero
    const int length = EVP_EncodeBlock(line, data, static_cast<int>(size));
    text.append(reinterpret_cast<const char*>(line), static_cast<size_t>(length));
}

} // namespace

kx::String base64Encode(const unsigned char* data, size_t size, bool pad, bool breakLines)
{
    std::string text;
    text.reserve((size / bytesPerLine + 1) * 78);
    for (size_t done = 0; done < size; done += bytesPerLine) {
        if (breakLines && done > 0)
            text += "\r\n";
        appendEncoded(text, data + done, std::min(bytesPerLine, size - done));
    }
    if (!pad)
        text.resize(text.find_last_not_of('=') + 1);
    return kx::String::fromLatin1(text);
}

} // namespace sela
