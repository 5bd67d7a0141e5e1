#pragma once

#include "kx/time/CTime.h"
#include "kx/time/CTimeSpan.h"
#include "norla/core/CNetRequest.h"

#include <optional>

namespace norla {

/// How long a server wants to be left alone (RFC 9110 section 10.2.3), from the header lines of its answer. Not
/// negative; empty when it does not say, or nothing that anybody understands. Where it names a moment, its own clock
/// counts ("Date"), and ours only when that is not told.
/// @throws std::bad_alloc
std::optional<kx::CTimeSpan> getRetryAfter(const CNetRequest::HeaderMap& headers, const kx::CTime& now);

} // namespace norla
