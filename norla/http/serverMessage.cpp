#include "norla/http/serverMessage.h"

#include <array>
#include <utility>

namespace norla {

namespace {

constexpr size_t maxBytes = 4096;

struct CReplacement {
    const char* what;
    const char* by;
};
constexpr auto whiteSpaceReplacements = std::to_array<CReplacement>({
    {"\t", " "},
    {"  ", " "},
    {" \n", "\n"},
    {"\n ", "\n"},
    {"\n\n", "\n"},
});

kx::String withoutTags(const kx::String& html)
{
    const std::wstring& source = html.toWide();
    std::wstring text;
    size_t done = 0;
    while (true) {
        const size_t open = source.find(L'<', done);
        const size_t close = open == std::wstring::npos ? open : source.find(L'>', open);
        if (close == std::wstring::npos)
            return kx::String(std::move(text.append(source, done)));
        text.append(source, done, open - done);
        done = close + 1;
    }
}

kx::String replacedUntilGone(kx::String text, const CReplacement& replacement)
{
    const kx::String what = kx::String::fromLatin1(replacement.what);
    const kx::String by = kx::String::fromLatin1(replacement.by);
    while (text.find(what) != kx::String::npos)
        text = text.replaceAll(what, by);
    return text;
}

kx::String htmlToText(const kx::String& html)
{
    kx::String text = withoutTags(html);
    for (const CReplacement& replacement : whiteSpaceReplacements)
        text = replacedUntilGone(std::move(text), replacement);
    return text.trim();
}

// What is left without a multi-byte character that was cut in two at the end.
std::string_view withoutCutCharacter(std::string_view utf8) noexcept
{
    size_t start = utf8.size();
    while (start > 0 && utf8.size() - start < 4 && (static_cast<unsigned char>(utf8[start - 1]) & 0xC0) == 0x80)
        --start;
    if (start == 0)
        return utf8;
    const auto lead = static_cast<unsigned char>(utf8[start - 1]);
    const size_t announced = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC0 ? 2 : 1;
    return announced > utf8.size() - start + 1 ? utf8.substr(0, start - 1) : utf8;
}

bool isHTML(const kx::TMap<kx::String, kx::String>& headers, const kx::String& text)
{
    const auto contentType = headers.find("content-type");
    return (contentType != headers.end() && contentType->second.startsWith("text/html"))
        || text.find("<html") != kx::String::npos;
}

} // namespace

kx::String serverMessage(std::string_view body, const kx::TMap<kx::String, kx::String>& headers)
{
    const std::string_view start = body.substr(0, maxBytes);
    const kx::String text = kx::String::fromUTF8(start.size() < body.size() ? withoutCutCharacter(start) : start);
    return isHTML(headers, text) ? htmlToText(text) : text;
}

} // namespace norla
