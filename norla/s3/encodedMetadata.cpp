#include "norla/s3/encodedMetadata.h"

#include "kx/base/CError.h"
#include "kx/text/hex.h"
#include "sela/base64.h"

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace norla {

namespace {

constexpr size_t wordBytes = 45; // 60 characters of Base64 and 12 around: RFC 2047 section 2 allows 75

bool isPlainMetadata(const std::string& bytes)
{
    const bool isPrintable
        = std::all_of(bytes.begin(), bytes.end(), [](char byte) { return byte >= ' ' && byte <= '~'; });
    const bool isTrimmed = bytes.empty() || (bytes.front() != ' ' && bytes.back() != ' ');
    return isPrintable && isTrimmed && bytes.find("=?") == std::string::npos;
}

bool continuesCharacter(char byte)
{
    constexpr unsigned char mask = 0xC0;
    constexpr unsigned char continuation = 0x80;
    return (static_cast<unsigned char>(byte) & mask) == continuation;
}

std::string base64Word(std::string_view bytes)
{
    const kx::String text
        = sela::base64Encode(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), true, false);
    return "=?UTF-8?B?" + text.toUTF8() + "?=";
}

/// A word of a header: where it is, and what it stands for, in UTF-8.
struct CMetadataWord {
    size_t end = 0;
    std::string bytes;
};

std::optional<std::string> unquoted(std::string_view text)
{
    constexpr size_t escapeSize = 3;
    constexpr int base = 16;
    std::string bytes;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '=') {
            const bool isWhole = i + escapeSize <= text.size();
            const int high = isWhole ? kx::hexDecodeCharLax(text[i + 1]) : -1;
            const int low = isWhole ? kx::hexDecodeCharLax(text[i + 2]) : -1;
            if (high < 0 || low < 0)
                return std::nullopt;
            bytes += static_cast<char>(high * base + low);
            i += escapeSize - 1;
        } else {
            bytes += text[i] == '_' ? ' ' : text[i];
        }
    }
    return bytes;
}

std::string lowerMetadata(std::string_view text)
{
    return kx::String::fromLatin1(text).toLower().toLatin1();
}

/// The word that begins at that position of the header; nothing when none does.
std::optional<CMetadataWord> wordAt(std::string_view header, size_t start)
{
    constexpr size_t markSize = 2; // "=?", "?="
    if (header.substr(start, markSize) != "=?")
        return std::nullopt;
    const size_t encoding = header.find('?', start + markSize);
    const size_t text = encoding + 3;
    if (encoding == std::string_view::npos || text > header.size() || header[text - 1] != '?')
        return std::nullopt;
    const size_t end = header.find('?', text); // no word holds one
    if (end == std::string_view::npos || header.substr(end, markSize) != "?=")
        return std::nullopt;
    std::string charset = lowerMetadata(header.substr(start + markSize, encoding - start - markSize));
    charset = charset.substr(0, charset.find('*')); // RFC 2231 section 5: a language behind it
    const std::string_view encoded = header.substr(text, end - text);
    const char kind = header[encoding + 1];
    std::optional<std::string> bytes;
    if (kind == 'B' || kind == 'b')
        bytes = sela::base64Decode(encoded);
    else if (kind == 'Q' || kind == 'q')
        bytes = unquoted(encoded);
    if (!bytes)
        return std::nullopt;
    if (charset == "iso-8859-1")
        bytes = kx::String::fromLatin1(*bytes).toUTF8();
    else if (charset != "utf-8" && charset != "us-ascii")
        return std::nullopt;
    return CMetadataWord{.end = end + markSize, .bytes = std::move(*bytes)};
}

std::string decodedWords(std::string_view header)
{
    std::string decoded;
    size_t behindWord = std::string_view::npos; // of the header: where the last word has ended, but for white space
    for (size_t i = 0; i < header.size();) {
        const std::optional<CMetadataWord> word = wordAt(header, i);
        if (!word) {
            decoded += header[i++];
            continue;
        }
        // RFC 2047 section 6.2: white space between two words is none of the text.
        if (behindWord != std::string_view::npos
            && header.substr(behindWord, i - behindWord).find_first_not_of(" \t") == std::string_view::npos)
            decoded.resize(decoded.size() - (i - behindWord));
        decoded += word->bytes;
        i = word->end;
        behindWord = i;
    }
    return decoded;
}

} // namespace

kx::String encodeMetadata(const kx::String& value)
{
    const std::string bytes = value.toUTF8();
    if (isPlainMetadata(bytes))
        return value;
    std::string words;
    for (size_t start = 0; start < bytes.size();) {
        size_t end = std::min(bytes.size(), start + wordBytes);
        while (end < bytes.size() && continuesCharacter(bytes[end]))
            --end;
        words += (words.empty() ? "" : " ") + base64Word(std::string_view(bytes).substr(start, end - start));
        start = end;
    }
    return kx::String::fromUTF8(words);
}

kx::String decodeMetadata(const kx::String& header)
{
    if (header.find("=?") == kx::String::npos)
        return header;
    try {
        return kx::String::fromUTF8(decodedWords(header.toUTF8()));
    } catch (const kx::CError&) {
        return header; // words of bytes that are not what they say
    }
}

} // namespace norla
