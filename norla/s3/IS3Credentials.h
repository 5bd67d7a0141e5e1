#pragma once

#include "kx/base/IBase.h"
#include "norla/s3/CS3Credentials.h"

namespace norla {

/// Where the credentials of a client come from. It is asked for each request that is signed, and may serve several
/// clients, in any thread.
class KX_EXPORT IS3Credentials : public virtual kx::IBase {
public:
    /// May block where they have to be fetched.
    /// @throws kx::CError naming the place when there are none
    virtual CS3Credentials get() = 0;
};

} // namespace norla
