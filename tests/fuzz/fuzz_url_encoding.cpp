// Percent-encoding: what is decoded from the input as it is, and what comes back after encoding it.
#include "kx/base/CError.h"
#include "norla/http/util.h"
#include "tests/fuzz/require.h"

#include <cstdint>
#include <string_view>

namespace {

using Map = kx::TMap<kx::String, kx::String>;

bool isMadeOf(const kx::String& text, std::string_view others)
{
    for (const wchar_t character : text) {
        const bool isUnreserved = (character >= L'A' && character <= L'Z') || (character >= L'a' && character <= L'z')
            || (character >= L'0' && character <= L'9')
            || std::wstring_view(L"-._~%").find(character) != kx::String::npos;
        if (!isUnreserved && (character > 0x7F || others.find(static_cast<char>(character)) == std::string_view::npos))
            return false;
    }
    return true;
}

void checkText(const kx::String& text)
{
    for (const bool plus : {false, true}) {
        const kx::String escaped = norla::urlEscape(text, plus);
        require(isMadeOf(escaped, plus ? "+" : ""), "an escaped text has unreserved characters and escapes alone");
        require(norla::urlUnescape(escaped, plus) == text, "unescaping undoes escaping");
        require(norla::urlUnescape(norla::formURLEncode(text, plus), false) == text, "unescaping undoes form encoding");
        require(norla::urlUnescape(text, plus).size() <= text.size(), "nothing gets longer by decoding");
    }
    require(isMadeOf(norla::formURLEncode(text, true), ""), "a form has unreserved characters and escapes alone");
    if (text.find(L'%') == kx::String::npos)
        require(norla::urlUnescape(text, false) == text, "a text without escapes stays");
}

void checkParams(const kx::String& text)
{
    Map found;
    norla::decodeURLParams(text, found);
    Map again;
    norla::decodeURLParams(norla::encodeURLParams(found), again);
    require(again == found, "decoding undoes encoding");
    norla::decodeURLParams(norla::formURLEncode(found, true), again);
    require(again == found, "decoding undoes the encoding of a form");
    require(found.empty() == text.isEmpty(), "every text has a pair");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    checkParams(kx::String::fromLatin1(bytes));
    checkText(kx::String::fromLatin1(bytes));
    try {
        checkText(kx::String::fromUTF8(bytes));
    } catch (const kx::CError&) {
        return 0;
    }
    return 0;
}
