// What a request tells whoever may run its transfer once more, and what is to be done before.

#include "norla/core/CManagedRequest.h"
#include "norla/core/CNetRequestRooms.h"
#include "norla/core/CRepeatability.h"

#include <limits>

namespace norla {

CRepeatability CManagedRequest::getRepeatability() const
{
    const CNetRequest::CRooms& rooms = *m_request.m_rooms;
    const CTransferRecord& record = rooms.record;
    const bool isUnanswered = !record.hasHTTPAnswer() && rooms.response.getLines()->isEmpty()
        && record.getInfo().bytesDown == 0 && record.isConnectionReused();
    return {.isOwnError = rooms.callbackError.isThere() && !rooms.isOverdue && !rooms.isHeaderLost,
        .isHarmless = rooms.sideEffects.areHarmless(record),
        .isUnanswered = isUnanswered};
}

// The next transfer rewinds too. Where it cannot, it would end with an error that says nothing of why this one has
// failed.
bool CManagedRequest::rewind() noexcept
{
    CNetRequest::CRooms& rooms = *m_request.m_rooms;
    try {
        if (rooms.sideEffects.hasBodyOfLibcurls() || !rooms.response.canBeginAgain())
            return false;
        rooms.form.rewind();
        rooms.sending.rewind();
        return rooms.sending.isAtStart();
    } catch (const std::exception&) {
        return false;
    }
}

void CManagedRequest::limitTransfers(const kx::CTimeSpan& left) noexcept
{
    using Clock = CTransferLimits::Clock;
    CTransferLimits& limits = m_request.m_rooms->deadlines;
    const auto now = Clock::now();
    const auto longest = std::chrono::duration_cast<std::chrono::microseconds>(Clock::time_point::max() - now);
    if (left.isInfinite() || left.getMicroseconds() > longest.count())
        limits.limitUntil(std::nullopt);
    else
        limits.limitUntil(now + std::chrono::microseconds(left.getMicroseconds()));
}

} // namespace norla
