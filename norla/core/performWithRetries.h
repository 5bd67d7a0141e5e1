#pragma once

#include "kx/containers/TArray.h"
#include "norla/core/CAttempt.h"
#include "norla/core/CRetryPolicy.h"

#include <functional>

namespace norla {

class CNetRequest;

/// Runs the transfer as CNetRequest::perform() does, again and again until it succeeds or the policy says that there is
/// no use in it. Blocks until then, in pauses too.
///
/// Each attempt is a transfer of its own: it starts with an empty default receive buffer, lets the sink begin, sends
/// the body from its start, has the request's limits of time for itself (CRetryPolicy::budget is beside them), and its
/// end is told to the done listener. What the request answers afterwards (status, header lines, getTransferInfo()) is
/// the last one's. Used by one thread at a time, as the request is.
/// @return the attempts, the last of which is the one that succeeded
/// @throws what perform() has thrown in the last attempt: kx::CError; as perform() what is no kx::CError, at once; what
/// CRetryPolicy::isTransient throws
KX_EXPORT kx::TArray<CAttempt> performWithRetries(CNetRequest& request, const CRetryPolicy& policy = {});

/// The same for attempts that are more than a transfer.
/// @param perform one attempt: makes the request ready, calls its perform(), and throws what has failed
KX_EXPORT kx::TArray<CAttempt> performWithRetries(
    CNetRequest& request, const CRetryPolicy& policy, const std::function<void()>& perform);

} // namespace norla
