#pragma once

#include "norla/core/CRetryPolicy.h"

namespace norla {

class CS3Client;

/// For requests of a client's that somebody else performs: where the policy has no word of its own, also the service's
/// codes of CS3Client::performRequest() count as transient.
/// @param client kept by the caller at least as long as the policy
CRetryPolicy policyForStore(const CS3Client& client, const CRetryPolicy& wanted);

} // namespace norla
