#include "kx/text/numbers.h"

#include "kx/base/CError.h"
#include "kx/text/whitespace.h"

#include <algorithm>
#include <charconv>
#include <string>
#include <system_error>

namespace kx {

namespace {

constexpr bool isDigit(wchar_t character) noexcept
{
    return character >= L'0' && character <= L'9';
}

// from_chars takes a "-" but no "+". The text without the "+", when a digit or a point follows it; otherwise as it is.
std::string_view withoutPlus(std::string_view number) noexcept
{
    return number.size() > 1 && number[0] == '+' && number[1] != '-' ? number.substr(1) : number;
}

// Whether a number that does not fit is too small and not too large: without a digit but zeros before its point.
bool isNearZero(std::string_view number) noexcept
{
    return number.find_first_of("123456789") > number.find('.');
}

// Anything outside ASCII becomes a character that no number has.
std::string narrow(std::wstring_view text)
{
    std::string bytes(text.size(), '?');
    std::transform(text.begin(), text.end(), bytes.begin(),
        [](wchar_t character) { return static_cast<char32_t>(character) < 0x80 ? static_cast<char>(character) : '?'; });
    return bytes;
}

template <typename TNumber, typename... TFormat>
TNumber parseWhole(std::wstring_view text, const String& kind, TFormat... format)
{
    const std::string bytes = narrow(text);
    const std::string_view number = withoutPlus(bytes);
    TNumber value = 0;
    const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), value, format...);
    if (error == std::errc::result_out_of_range && isNearZero(number))
        return 0;
    if (error == std::errc::result_out_of_range)
        throw CError("Number out of range: '" + String(std::wstring(text)) + "'.");
    if (error != std::errc() || end != number.data() + number.size())
        throw CError("Invalid " + kind + ": '" + String(std::wstring(text)) + "'.");
    return value;
}

} // namespace

long long parseInt64(const String& text, bool lax)
{
    return parseInt64(std::wstring_view(text.toWide()), lax);
}

long long parseInt64(std::wstring_view text, bool lax)
{
    return parseWhole<long long>(lax ? trimmed(text) : text, "number");
}

long long parseInt64(const wchar_t* text, bool lax)
{
    return parseInt64(String(text), lax);
}

double parseSimpleDouble(const String& text)
{
    // from_chars also reads "inf", "nan" and "nan(1)".
    const bool hasOther = text.toWide().find_first_not_of(L"+-.0123456789") != std::wstring::npos;
    if (hasOther || std::none_of(text.begin(), text.end(), isDigit))
        throw CError("Invalid decimal number: '" + text + "'.");
    return parseWhole<double>(text.toWide(), "decimal number", std::chars_format::fixed);
}

String toString(long long number)
{
    return String(std::to_wstring(number));
}

} // namespace kx
