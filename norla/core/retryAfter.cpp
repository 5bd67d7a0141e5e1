#include "norla/core/retryAfter.h"

#include "kx/text/numbers.h"
#include "norla/http/util.h"

#include <algorithm>
#include <limits>

namespace norla {

namespace {

constexpr long long longest = 100LL * 365 * 24 * 3600; // in seconds; nobody waits for it

bool isDecimalDigit(wchar_t c)
{
    return c >= L'0' && c <= L'9';
}

kx::CTimeSpan secondsOf(const kx::String& digits)
{
    constexpr size_t mostDigits = 10;
    const bool isLong = digits.size() > mostDigits;
    return kx::CTimeSpan::fromSeconds(isLong ? longest : std::min(kx::parseInt64(digits, false), longest));
}

/// Unset when it is none of the three forms of RFC 9110 section 5.6.7, all of which tell hours and minutes.
kx::CTime timeOf(const CNetRequest::HeaderMap& headers, const kx::String& name)
{
    const auto found = headers.find(name);
    if (found == headers.end() || found->second.find(":") == kx::String::npos)
        return {};
    try {
        return parseTimestamp(found->second);
    } catch (const kx::CError&) {
        return {};
    }
}

} // namespace

std::optional<kx::CTimeSpan> getRetryAfter(const CNetRequest::HeaderMap& headers, const kx::CTime& now)
{
    const auto found = headers.find("retry-after");
    if (found == headers.end())
        return std::nullopt;
    const kx::String text = found->second.trim();
    if (!text.isEmpty() && std::all_of(text.begin(), text.end(), isDecimalDigit))
        return secondsOf(text);
    const kx::CTime moment = timeOf(headers, "retry-after");
    if (!moment.isSet())
        return std::nullopt;
    const kx::CTime date = timeOf(headers, "date");
    const kx::CTime& from = date.isSet() ? date : now;
    constexpr long long farthest = std::numeric_limits<long long>::max() / 2; // as far apart as the numbers go
    const long long end = std::clamp(moment.getMicroseconds(), -farthest, farthest);
    const long long start = std::clamp(from.getMicroseconds(), -farthest, farthest);
    return kx::CTimeSpan::fromMicroseconds(std::max(0LL, end - start));
}

} // namespace norla
