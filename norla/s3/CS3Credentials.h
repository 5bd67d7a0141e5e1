#pragma once

#include "kx/text/String.h"
#include "kx/time/CTime.h"

namespace norla {

/// Who asks an S3 store, and what proves it.
struct CS3Credentials {
    kx::String accessKeyId = {};     ///< empty: nobody is named, and nothing is signed
    kx::String secretAccessKey = {}; ///< never sent
    kx::String sessionToken = {};    ///< of credentials for a while; empty for those that last
    kx::CTime expiry = {};           ///< when they end; unset: never
};

} // namespace norla
