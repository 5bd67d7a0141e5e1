#include "norla/s3/CS3Corrections.h"

#include "norla/http/util.h"
#include "norla/s3/CS3Error.h"

#include <algorithm>
#include <array>
#include <cstdlib>

namespace norla {

namespace {

constexpr long long leastDifference = 5LL * 60 * 1'000'000;    // in microseconds; stores allow for a quarter of an hour
constexpr long long latestTime = 32'503'680'000LL * 1'000'000; // the year 3000; behind 9999 nothing can be signed
constexpr int forbidden = 403;

kx::String headerOf(const CNetRequest& request, const char* name)
{
    const CNetRequest::HeaderMap& headers = request.getResponseHeaderMap();
    const auto found = headers.find(kx::String::fromLatin1(name));
    return found == headers.end() ? kx::String() : found->second;
}

/// Nothing else may become a part of a host's name.
bool isRegion(const kx::String& text)
{
    const std::wstring& name = text.toWide();
    return !name.empty() && name.size() <= 64
        && name.find_first_not_of(L"abcdefghijklmnopqrstuvwxyz0123456789-") == std::wstring::npos;
}

bool isOfWrongPlace(CNetRequest& request)
{
    constexpr std::array<int, 3> statuses = {301, 307, 400};
    return std::find(statuses.begin(), statuses.end(), request.getResponseCode()) != statuses.end();
}

} // namespace

kx::CTime CS3Corrections::now() const
{
    return kx::CTime(kx::CTime::now().getMicroseconds() + m_offset.getMicroseconds());
}

bool CS3Corrections::learnTime(CNetRequest& request)
{
    const kx::String date = headerOf(request, "date");
    if (request.getResponseCode() != forbidden || date.isEmpty())
        return false;
    try {
        const long long said = parseTimestamp(date).getMicroseconds();
        if (said < 0 || said > latestTime || std::llabs(said - now().getMicroseconds()) < leastDifference)
            return false;
        m_offset = kx::CTimeSpan::fromMicroseconds(said - kx::CTime::now().getMicroseconds());
        return true;
    } catch (const kx::CError&) {
        return false; // no date that anybody understands
    }
}

bool CS3Corrections::mayBeOfTimeOrPlace(CNetRequest& request)
{
    return request.getResponseCode() == forbidden || isOfWrongPlace(request);
}

kx::String CS3Corrections::regionSaid(CNetRequest& request, const std::exception& error, const kx::String& region)
{
    if (!isOfWrongPlace(request))
        return {};
    const auto* const s3Error = dynamic_cast<const CS3Error*>(&error);
    const kx::String inDocument = s3Error ? s3Error->getProps().get("s3-region") : kx::String();
    const kx::String said = inDocument.isEmpty() ? headerOf(request, "x-amz-bucket-region") : inDocument;
    return isRegion(said) && said != region ? said : kx::String();
}

} // namespace norla
