#pragma once

#include "norla/core/CRetryPolicy.h"

namespace norla {

class CS3Client;

/// For operations that report what has failed behind the status of a success, which the client does not take for a
/// failure: such errors alone are tried again, as the policy says. Others the client has tried again itself.
/// @param client kept by the caller at least as long as the policy
CRetryPolicy policyForLateErrors(const CS3Client& client, const CRetryPolicy& policy);

} // namespace norla
