#include "norla/http/htmlToText.h"

#include <array>
#include <utility>

namespace norla {

namespace {

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
    while (text.find(replacement.what) != kx::String::npos)
        text = text.replaceAll(replacement.what, replacement.by);
    return text;
}

} // namespace

kx::String htmlToText(const kx::String& html)
{
    kx::String text = withoutTags(html);
    for (const CReplacement& replacement : whiteSpaceReplacements)
        text = replacedUntilGone(std::move(text), replacement);
    return text.trim();
}

} // namespace norla
