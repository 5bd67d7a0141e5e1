#include "norla/core/refusal.h"

#include "norla/core/CNetStringList.h"

#include <algorithm>
#include <string_view>

namespace norla {

namespace {

constexpr size_t statusSize = 3;

constexpr bool isDigit(wchar_t c) noexcept
{
    return c >= L'0' && c <= L'9';
}

bool isRefusal(std::wstring_view line)
{
    return line.size() >= statusSize && (line[0] == L'4' || line[0] == L'5')
        && std::all_of(line.begin(), line.begin() + statusSize, isDigit);
}

/// All lines of a reply but the last have a hyphen behind the status (RFC 5321 section 4.2.1).
bool goesOn(std::wstring_view line)
{
    return line.size() > statusSize && line[statusSize] == L'-';
}

} // namespace

kx::String lastRefusal(const CNetStringList& lines)
{
    kx::String refusal;
    kx::String last; // of the refusal, while more of it is to come
    for (const auto each = lines.createIterator(); each->next();) {
        const kx::String line = each->getCurrent().trimRight();
        if (!isRefusal(line.toWide())) {
            last = kx::String();
            continue;
        }
        const bool isContinued = !last.isEmpty() && last.substr(0, statusSize) == line.substr(0, statusSize);
        if (isContinued)
            (refusal += L'\n') += line;
        else
            refusal = line;
        last = goesOn(line.toWide()) ? line : kx::String();
    }
    return refusal;
}

} // namespace norla
