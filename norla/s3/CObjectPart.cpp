#include "norla/s3/CObjectPart.h"

#include "kx/base/CInvalidArgError.h"
#include "kx/text/numbers.h"
#include "norla/core/CNetRequest.h"
#include "norla/http/CHTTPContentRange.h"
#include "norla/s3/httpStatus.h"

#include <algorithm>
#include <limits>

namespace norla {

CObjectPart::CObjectPart(long long start, long long length, const kx::String& functionName)
    : m_start(start)
    , m_length(length)
{
    const auto require = [&](bool isRight, const kx::String& message) {
        if (!isRight)
            throw kx::CInvalidArgError(
                message + ": " + kx::toString(start) + ", " + kx::toString(length), functionName);
    };
    require(start >= 0, "start must not be negative");
    require(length >= -1, "length must not be less than -1");
    require(length <= std::numeric_limits<long long>::max() - start, "start + length is beyond 64 bits");
}

kx::String CObjectPart::toRange() const
{
    return "bytes=" + kx::toString(m_start) + "-"
        + (m_length == -1 ? kx::String() : kx::toString(m_start + m_length - 1));
}

bool CObjectPart::isAnswerOf(CNetRequest& request) const
{
    const auto received = static_cast<long long>(request.getDownloadedBytes());
    const int status = request.getResponseCode();
    if (status == httpOK)
        return m_start == 0 && received <= m_length;
    const auto& headers = request.getResponseHeaderMap();
    const auto range = headers.find("content-range");
    return status == httpPartialContent && range != headers.end() && isContentRange(range->second, received);
}

bool CObjectPart::isContentRange(const kx::String& header, long long received) const
{
    kx::P<CHTTPContentRange> range;
    try {
        range = CHTTPContentRange::parse(header);
    } catch (const kx::CError&) {
        return false;
    }
    const long long lastAsked = m_length == -1 ? std::numeric_limits<long long>::max() : m_start + m_length - 1;
    const long long total = range->getTotal();
    if (total < -1 || range->getFirst() != m_start || range->getLast() < m_start)
        return false;
    const bool endsAsAsked
        = total == -1 ? range->getLast() <= lastAsked : range->getLast() == std::min(lastAsked, total - 1);
    return range->getUnit() == "bytes" && endsAsAsked && range->getLast() - m_start == received - 1;
}

} // namespace norla
