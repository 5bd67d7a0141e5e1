#include "norla/s3/lateErrors.h"

#include "norla/s3/CS3Client.h"
#include "norla/s3/CS3Error.h"

namespace norla {

CRetryPolicy policyForLateErrors(const CS3Client& client, const CRetryPolicy& policy)
{
    CRetryPolicy late = policy;
    late.isTransient = [&client](const kx::CError& error) {
        return dynamic_cast<const CS3Error*>(&error) && error.getCode() == 0 && client.shouldRetryRequest(error);
    };
    late.repeatUnsafe = true; // the store has not done it
    return late;
}

} // namespace norla
