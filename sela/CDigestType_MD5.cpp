#include "sela/CDigestType_MD5.h"

namespace sela {

kx::P<CDigest> CDigestType_MD5::createDigest()
{
    return kx::newObj<CDigest>("MD5");
}

} // namespace sela
