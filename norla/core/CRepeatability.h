#pragma once

#include "kx/base/language.h"

namespace norla {

/// What a failed transfer tells whoever may run it once more: CManagedRequest::getRepeatability(). A value.
struct CRepeatability {
    /// A sink, source or other callback has thrown the error, or the request itself refuses to go on: it would again.
    bool isOwnError = false;

    /// Whatever it has asked of the server does no harm a second time (CRetryPolicy::repeatUnsafe).
    bool isHarmless = false;

    /// It went over a connection that was open before, and nothing has been answered.
    bool isUnanswered = false;
};

} // namespace norla
