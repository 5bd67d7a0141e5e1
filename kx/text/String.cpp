#include "kx/text/String.h"

#include "kx/base/CError.h"
#include "kx/text/utf8.h"
#include "kx/text/whitespace.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <ostream>
#include <utility>

namespace kx {

namespace {

constexpr wchar_t asciiToLower(wchar_t character) noexcept
{
    return character >= L'A' && character <= L'Z' ? static_cast<wchar_t>(character - L'A' + L'a') : character;
}

std::wstring widen(std::string_view latin1)
{
    std::wstring wide(latin1.size(), L'\0');
    std::transform(latin1.begin(), latin1.end(), wide.begin(),
        [](char byte) { return static_cast<wchar_t>(static_cast<unsigned char>(byte)); });
    return wide;
}

} // namespace

String::String(const wchar_t* text)
    : m_text(text ? text : L"")
{
}

String::String(const char8_t* utf8)
    : m_text(decodeUTF8(utf8 ? reinterpret_cast<const char*>(utf8) : ""))
{
}

std::wstring String::widenLiteral(const char* literal, size_t size)
{
    return widen({literal, strnlen(literal, size)});
}

String String::fromUTF8(std::string_view utf8)
{
    return String(decodeUTF8(utf8));
}

String String::fromLatin1(std::string_view latin1)
{
    return String(widen(latin1));
}

std::string String::toUTF8() const
{
    return encodeUTF8(m_text);
}

std::string String::toDisplayUTF8() const
{
    if (std::all_of(m_text.begin(), m_text.end(), isScalarValue))
        return encodeUTF8(m_text);
    std::wstring shown = m_text;
    std::replace_if(shown.begin(), shown.end(), std::not_fn(isScalarValue), L'\uFFFD');
    return encodeUTF8(shown);
}

std::string String::toLatin1() const
{
    std::string bytes;
    bytes.reserve(m_text.size());
    for (const wchar_t character : m_text) {
        if (static_cast<char32_t>(character) > 0xFF)
            throw CError("Text cannot be written in ISO 8859-1: '" + *this + "'.");
        bytes.push_back(static_cast<char>(character));
    }
    return bytes;
}

String String::substr(size_t start, size_t count) const
{
    return start >= m_text.size() ? String() : String(m_text.substr(start, count));
}

String String::trim() const
{
    return String(std::wstring(trimmed(m_text)));
}

String String::trimLeft() const
{
    return String(std::wstring(trimmedLeft(m_text)));
}

String String::trimRight() const
{
    return String(std::wstring(trimmedRight(m_text)));
}

String String::toLower() const&
{
    return String(*this).toLower();
}

String String::toLower() &&
{
    std::transform(m_text.begin(), m_text.end(), m_text.begin(), asciiToLower);
    return std::move(*this);
}

String String::replaceAll(const String& what, const String& replacement) const
{
    if (what.isEmpty())
        return *this;
    std::wstring result;
    size_t done = 0;
    for (size_t hit = find(what); hit != npos; hit = find(what, done)) {
        result.append(m_text, done, hit - done).append(replacement.m_text);
        done = hit + what.size();
    }
    return String(std::move(result.append(m_text, done)));
}

String& String::operator+=(const String& other)
{
    m_text += other.m_text;
    return *this;
}

String& String::operator+=(wchar_t character)
{
    m_text += character;
    return *this;
}

String operator+(const String& left, const String& right)
{
    return String(left.m_text + right.m_text);
}

String operator+(String&& left, const String& right)
{
    left += right;
    return std::move(left);
}

std::ostream& operator<<(std::ostream& out, const String& text)
{
    return out << text.toDisplayUTF8();
}

} // namespace kx
