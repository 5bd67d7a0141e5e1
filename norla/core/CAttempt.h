#pragma once

#include "kx/base/CError.h"
#include "kx/base/P.h"
#include "kx/time/CTime.h"
#include "kx/time/CTimeSpan.h"
#include "norla/core/CTransferInfo.h"

namespace norla {

/// One of the attempts that a transfer took. A value.
struct CAttempt {
    kx::CTime began;         ///< by the system's clock
    CTransferInfo info;      ///< how long it took (`info.times`), and what else is known of it
    kx::P<kx::CError> error; ///< what it ended with; null: success
    kx::CTimeSpan pause;     ///< until the next one was to begin; zero behind the last one
};

} // namespace norla
