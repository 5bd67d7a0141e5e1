#include "kx/text/CStringFormat.h"

#include "kx/base/CError.h"

#include <cstdarg>
#include <cstdio>
#include <string>

namespace kx {

namespace {

// An empty result stands for vsnprintf's failure, told apart by `failed`.
std::string formatted(const char* format, va_list arguments, bool& failed)
{
    va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, again);
    va_end(again);
    failed = length < 0;
    std::string text(failed ? 0 : static_cast<size_t>(length), '\0');
    if (!failed)
        std::vsnprintf(text.data(), text.size() + 1, format, arguments);
    return text;
}

} // namespace

CStringFormat::CStringFormat(const char* format, ...)
{
    bool failed = false;
    va_list arguments;
    va_start(arguments, format);
    const std::string text = formatted(format, arguments, failed);
    va_end(arguments);
    if (failed)
        throw CError("Text cannot be formatted by '" + String::fromLatin1(format) + "'.");
    m_text = String::fromUTF8(text);
}

} // namespace kx
