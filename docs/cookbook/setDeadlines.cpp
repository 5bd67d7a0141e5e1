#include "norla/core/CDeadlines.h"
#include "norla/core/CNetRequest.h"

// Waits no longer than a person would, in all as long as is said. The error tells what was waited for, and how long.
void performInTime(norla::CNetRequest& request, const kx::CTimeSpan& longest)
{
    request.setSafeDefaults();
    request.setDeadlines(
        {.connect = kx::CTimeSpan::fromSeconds(10), .inactivity = kx::CTimeSpan::fromSeconds(20), .total = longest});
    request.perform();
}
