#include "norla/s3/policyForStore.h"

#include "norla/core/isTransient.h"
#include "norla/s3/CS3Client.h"
#include "norla/s3/CS3Error.h"

namespace norla {

CRetryPolicy policyForStore(const CS3Client& client, const CRetryPolicy& wanted)
{
    CRetryPolicy policy = wanted;
    if (!policy.isTransient) {
        policy.isTransient = [&client](const kx::CError& error) {
            return isTransient(error) || (dynamic_cast<const CS3Error*>(&error) && client.shouldRetryRequest(error));
        };
    }
    return policy;
}

} // namespace norla
