#pragma once

#include "kx/base/P.h"
#include "sela/CDigest.h"

namespace sela {

/// The digest type MD5 (RFC 1321).
class KX_EXPORT CDigestType_MD5 {
public:
    /// A new digest object, ready for its first bytes.
    /// @throws kx::CError when OpenSSL has no MD5 (as under FIPS)
    static kx::P<CDigest> createDigest();
};

} // namespace sela
