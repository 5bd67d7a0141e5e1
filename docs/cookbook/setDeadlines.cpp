#include "norla/core/CDeadlines.h"
#include "norla/core/CNetRequest.h"

// Waits no longer than a person would. The error says what was waited for, and how long.
void performInTime(norla::CNetRequest& request)
{
    request.setSafeDefaults();
    request.setDeadlines({.connect = kx::CTimeSpan::fromSeconds(10),
        .inactivity = kx::CTimeSpan::fromSeconds(20),
        .total = kx::CTimeSpan::fromSeconds(300)});
    request.perform();
}
