#include "norla/core/CReceiveLimits.h"

#include "kx/text/numbers.h"

#include <algorithm>

namespace norla {

void CReceiveLimits::set(long long buffer, long long lines) noexcept
{
    m_maxBuffer = buffer;
    m_maxLines = lines;
}

kx::String CReceiveLimits::excessOfLine(size_t size)
{
    m_lineBytes += static_cast<long long>(size);
    if (m_maxLines == 0 || m_lineBytes <= m_maxLines)
        return kx::String();
    return "the header and reply lines of the transfer have " + kx::toString(m_lineBytes)
        + " bytes and more, and may have " + kx::toString(m_maxLines);
}

kx::String CReceiveLimits::sizeBeyondLimit(size_t held, size_t size, long long announced) const
{
    const long long known = std::max(static_cast<long long>(held + size), announced);
    if (m_maxBuffer == 0 || known <= m_maxBuffer)
        return kx::String();
    return "the body has " + kx::toString(known) + " bytes or more, and ";
}

kx::String CReceiveLimits::excessOfBody(size_t held, size_t size, long long announced) const
{
    const kx::String start = sizeBeyondLimit(held, size, announced);
    return start.isEmpty() ? start : start + "the default receive buffer takes " + kx::toString(m_maxBuffer);
}

kx::String CReceiveLimits::plainExcessOfBody(size_t held, size_t size, long long announced) const
{
    const kx::String start = sizeBeyondLimit(held, size, announced);
    return start.isEmpty() ? start : start + "at most " + kx::toString(m_maxBuffer) + " are taken";
}

} // namespace norla
