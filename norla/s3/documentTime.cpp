#include "norla/s3/documentTime.h"

#include "kx/base/CError.h"
#include "kx/time/CTimeFields.h"

#include <string>
#include <string_view>

namespace norla {

namespace {

/// Whether the text is of that form, in which "0" stands for any digit.
bool hasTimeForm(std::wstring_view text, std::wstring_view form)
{
    if (text.size() != form.size())
        return false;
    for (size_t i = 0; i < text.size(); ++i) {
        const bool isDigit = text[i] >= L'0' && text[i] <= L'9';
        if (form[i] == L'0' ? !isDigit : text[i] != form[i])
            return false;
    }
    return true;
}

long long timeNumber(std::wstring_view digits)
{
    constexpr long long base = 10;
    long long number = 0;
    for (const wchar_t digit : digits)
        number = number * base + (digit - L'0');
    return number;
}

} // namespace

kx::CTime documentTime(const kx::String& text)
{
    constexpr std::wstring_view form = L"0000-00-00T00:00:00";
    const std::wstring& wide = text.toWide();
    const std::wstring_view whole(wide);
    if (!hasTimeForm(whole.substr(0, form.size()), form) || whole.back() != L'Z')
        return {};
    const std::wstring_view fraction = whole.substr(form.size(), whole.size() - form.size() - 1);
    if (!fraction.empty() && (fraction[0] != L'.' || fraction.find_first_not_of(L"0123456789", 1) != fraction.npos))
        return {};
    kx::CTimeFields fields(kx::CTimeFields::TypeUTC);
    fields.setDate(timeNumber(whole.substr(0, 4)), timeNumber(whole.substr(5, 2)), timeNumber(whole.substr(8, 2)));
    fields.setTime(timeNumber(whole.substr(11, 2)), timeNumber(whole.substr(14, 2)), timeNumber(whole.substr(17, 2)));
    try {
        return fields.toTime();
    } catch (const kx::CError&) {
        return {}; // 30 February
    }
}

} // namespace norla
