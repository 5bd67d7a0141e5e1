#include "kx/files/pathText.h"

#include "kx/text/utf8.h"

namespace kx {

String pathTextFromBytes(std::string_view bytes)
{
    return String(decodeUTF8KeepingBytes(bytes));
}

std::string pathTextToBytes(const String& text)
{
    return encodeUTF8KeepingBytes(text.toWide());
}

} // namespace kx
