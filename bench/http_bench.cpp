// Percent-encoding and decoding beside libcurl's own.
#include "bench/compare.h"
#include "norla/http/util.h"

#include <curl/curl.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>

namespace {

constexpr size_t textSize = 1 << 10; // bytes of UTF-8, about
constexpr int textCount = 4000;
constexpr int rounds = 25;
constexpr double limit = 1.00;

struct CText {
    const char* name;
    const char* part;
    bool isASCII = true;
};

// What is escaped in practice: names in paths, query values, text of people.
constexpr CText texts[] = {
    {"path names", "holiday-pictures_2026.08.21~IMG0001.jpeg"},
    {"English", "The quick brown fox jumps over the lazy dog. "},
    {"URLs", "https://www.example.org/a/b/c?name=value&other=1#top"},
    {"German",
        "F\xC3\xBCnf gr\xC3\xBC\xC3\x9F"
        "ende Igel \xC3\xB6"
        "ffnen T\xC3\xBCren. ",
        false},
    {"Chinese", "\xE6\x95\x8F\xE6\x8D\xB7\xE7\x9A\x84\xE6\xA3\x95\xE8\x89\xB2\xE7\x8B\x90\xE7\x8B\xB8", false},
};

std::string repeated(const std::string& part)
{
    std::string text;
    while (text.size() < textSize)
        text += part;
    return text;
}

using CurlText = std::unique_ptr<char, decltype(&curl_free)>;

CurlText checked(char* text)
{
    if (text)
        return {text, curl_free};
    std::fprintf(stderr, "libcurl: no text\n");
    std::exit(1);
}

bool compareTimes(const CText& text, const char* what, size_t bytes, const std::function<void()>& bare,
    const std::function<void()>& norla)
{
    const auto repeat = [](const std::function<void()>& work) {
        return [&work] {
            for (int i = 0; i < textCount; ++i)
                work();
        };
    };
    const bool good
        = bench::compare({std::string(what) + ": " + text.name, limit, rounds, repeat(bare), repeat(norla)});
    const double start = bench::threadSeconds();
    repeat(norla)();
    const double seconds = bench::threadSeconds() - start;
    std::printf("%-44s %30.0f MB/s\n", "", static_cast<double>(bytes) * textCount / seconds / 1e6);
    return good;
}

bool compareEscaping(const CText& text)
{
    const std::string plain = repeated(text.part);
    const kx::String ours = kx::String::fromUTF8(plain);
    return compareTimes(
        text, "escape", plain.size(),
        [&plain] { checked(curl_easy_escape(nullptr, plain.data(), static_cast<int>(plain.size()))); },
        [&ours] { norla::urlEscape(ours, false); });
}

void unescapeBare(const std::string& escaped, bool isASCII)
{
    int size = 0;
    const CurlText text = checked(curl_easy_unescape(nullptr, escaped.data(), static_cast<int>(escaped.size()), &size));
    if (!isASCII)
        kx::String::fromUTF8({text.get(), static_cast<size_t>(size)});
}

// libcurl leaves it to its caller whether the bytes are text at all; the library tells. Beyond ASCII that takes longer
// than the decoding itself, and the bare side does it as well.
bool compareUnescaping(const CText& text)
{
    const kx::String ours = norla::urlEscape(kx::String::fromUTF8(repeated(text.part)), false);
    const std::string escaped = ours.toUTF8();
    return compareTimes(
        text, text.isASCII ? "unescape" : "unescape into text", escaped.size(),
        [&] { unescapeBare(escaped, text.isASCII); }, [&ours] { norla::urlUnescape(ours, false); });
}

} // namespace

int main()
{
    bench::printHeading();
    bool good = true;
    for (const CText& text : texts)
        good &= compareEscaping(text);
    for (const CText& text : texts)
        good &= compareUnescaping(text);
    return good ? 0 : 1;
}
