#pragma once

#include "kx/text/String.h"
#include "kx/time/CTime.h"
#include "kx/time/CTimeSpan.h"
#include "norla/core/CNetRequest.h"

#include <exception>
#include <optional>

namespace norla {

/// What a store has told a client about things that the client had wrong. Used by one thread at a time.
class CS3Corrections {
public:
    /// The time by the store's clock, as far as it has told.
    kx::CTime now() const;

    /// An answer may say that the own clock is wrong: it forbids, and its "Date" is more than five minutes away.
    /// @return whether now() is another time from now on
    bool learnTime(CNetRequest& request);

    /// @param region that the request was signed for
    /// @return the other one in which the store says that the bucket is; empty when it says none
    static kx::String regionSaid(CNetRequest& request, const std::exception& error, const kx::String& region);

    /// Whether the status of a failure is one of those in which a store says such things.
    static bool mayBeOfTimeOrPlace(CNetRequest& request);

private:
    kx::CTimeSpan m_offset; // of the store's clock from ours
};

} // namespace norla
