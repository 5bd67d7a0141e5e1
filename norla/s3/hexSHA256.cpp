#include "norla/s3/hexSHA256.h"

#include "kx/text/hex.h"
#include "sela/CDigest.h"

namespace norla {

std::string hexSHA256(std::string_view bytes)
{
    sela::CDigest digest("SHA256");
    digest.update(bytes.data(), bytes.size());
    digest.finish();
    return kx::hexEncode({reinterpret_cast<const char*>(digest.getBytes()), digest.getLength()}).toUTF8();
}

} // namespace norla
