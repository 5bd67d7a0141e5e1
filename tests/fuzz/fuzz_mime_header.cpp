// A header value, read back from its line by a decoder that takes nothing but what is promised;
// the same for a quoted string and a parameter.
#include "kx/base/CError.h"
#include "norla/mail/CMimeMessage.h"
#include "tests/fuzz/require.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>

namespace {

constexpr std::string_view wordStart = "=?utf-8?q?";
constexpr std::string_view wordEnd = "?=";
constexpr std::string_view hexDigits = "0123456789ABCDEF";

bool isLetterOrDigit(char byte)
{
    return (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z') || (byte >= '0' && byte <= '9');
}

std::string qDecoded(std::string_view chunk)
{
    std::string bytes;
    for (size_t i = 0; i < chunk.size(); ++i) {
        if (isLetterOrDigit(chunk[i])) {
            bytes += chunk[i];
            continue;
        }
        require(chunk[i] == '=' && i + 2 < chunk.size(), "what is no letter or digit is an escape");
        const size_t high = hexDigits.find(chunk[++i]);
        const size_t low = hexDigits.find(chunk[++i]);
        require(high != hexDigits.npos && low != hexDigits.npos, "an escape has upper-case digits");
        bytes += static_cast<char>(high * 16 + low);
        require(!isLetterOrDigit(bytes.back()), "letters and digits are not escaped");
    }
    return bytes;
}

kx::String decodedWord(std::string_view word, bool isLast)
{
    require(word.starts_with(wordStart) && word.ends_with(wordEnd), "every line is one word");
    require(word.size() <= 75, "a word has at most 75 characters");
    const std::string_view chunk = word.substr(wordStart.size(), word.size() - wordStart.size() - wordEnd.size());
    require(!chunk.empty(), "no word is empty");
    require(isLast || chunk.size() >= 46, "only the last word is shorter than it could be");
    try {
        return kx::String::fromUTF8(qDecoded(chunk));
    } catch (const kx::CError&) {
        require(false, "a word holds whole characters");
        throw;
    }
}

kx::String decodedWords(std::string_view words)
{
    constexpr std::string_view fold = "\r\n ";
    kx::String text;
    while (!words.empty()) {
        const size_t end = std::min(words.find(fold), words.size());
        text += decodedWord(words.substr(0, end), end == words.size());
        words.remove_prefix(std::min(end + fold.size(), words.size()));
    }
    return text;
}

kx::String unquoted(const kx::String& quoted)
{
    const std::wstring& wide = quoted.toWide();
    require(wide.size() >= 2 && wide.front() == L'"' && wide.back() == L'"', "a quoted string has its quotes");
    std::wstring text;
    for (size_t i = 1; i + 1 < wide.size(); ++i) {
        require(wide[i] != L'"' && wide[i] != L'\r', "quotes and carriage returns are escaped");
        if (wide[i] == L'\\') {
            ++i;
            require(i + 1 < wide.size(), "the closing quote is not escaped");
            require(wide[i] == L'\\' || wide[i] == L'"' || wide[i] == L'\r', "nothing else is escaped");
        }
        text += wide[i];
    }
    return kx::String(text);
}

kx::String parameterValue(std::string_view parameter)
{
    constexpr std::string_view extended = "n*=utf-8''";
    if (!parameter.starts_with(extended)) {
        require(parameter.starts_with("n="), "a parameter begins with its name");
        return unquoted(kx::String::fromLatin1(parameter.substr(2)));
    }
    std::string bytes;
    for (size_t i = extended.size(); i < parameter.size(); ++i) {
        if (parameter[i] != '%') {
            require(
                isLetterOrDigit(parameter[i]) || std::string_view("-._~").find(parameter[i]) != std::string_view::npos,
                "whatever has a meaning is escaped");
            bytes += parameter[i];
            continue;
        }
        require(i + 2 < parameter.size(), "an escape has two digits");
        const size_t high = hexDigits.find(parameter[++i]);
        const size_t low = hexDigits.find(parameter[++i]);
        require(high != hexDigits.npos && low != hexDigits.npos, "an escape has upper-case digits");
        bytes += static_cast<char>(high * 16 + low);
    }
    return kx::String::fromUTF8(bytes);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    kx::String text;
    try {
        text = kx::String::fromUTF8({reinterpret_cast<const char*>(data), size});
    } catch (const kx::CError&) {
        return 0;
    }
    require(decodedWords(norla::CMimeMessage::toEncodedWord(text).toLatin1()) == text, "encoded words hold the text");
    require(unquoted(norla::CMimeMessage::toQuotedString(text)) == text, "a quoted string holds the text");

    const std::string parameter = norla::CMimeMessage::makeParameter("n", text).toLatin1();
    require(std::all_of(parameter.begin(), parameter.end(), [](char c) { return c >= 0x20 && c < 0x7F; }),
        "a parameter is visible ASCII");
    require(parameterValue(parameter) == text, "a parameter holds the text");

    const kx::String line = norla::CMimeMessage::makeHeaderField("Name", text);
    require(line.startsWith("Name: "), "a header line begins with its name");
    const kx::String value = line.substr(6);
    const bool isASCII = std::all_of(data, data + size, [](uint8_t byte) { return byte < 0x80; });
    require(isASCII ? value == text : decodedWords(value.toLatin1()) == text, "a header line holds the text");
    return 0;
}
