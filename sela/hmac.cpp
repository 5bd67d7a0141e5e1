#include "sela/hmac.h"

#include "kx/base/CError.h"

#include <openssl/evp.h>

namespace sela {

namespace {

constexpr size_t sha1Size = 20;

} // namespace

void calcHMAC_SHA1(kx::TBuffer<unsigned char>& result, const unsigned char* message, size_t messageSize,
    const unsigned char* key, size_t keySize)
{
    result.setSize(sha1Size);
    size_t written = 0;
    const unsigned char* const made = EVP_Q_mac(nullptr, "HMAC", nullptr, "SHA1", nullptr, key ? key : result.getData(),
        keySize, message, messageSize, result.getData(), result.getSize(), &written);
    if (!made || written != sha1Size)
        throw kx::CError("OpenSSL cannot calculate HMAC-SHA1.");
}

} // namespace sela
