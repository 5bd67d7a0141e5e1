#include "sela/hmac.h"

#include "kx/base/CError.h"
#include "sela/CErrorMark.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>

namespace sela {

namespace {

constexpr size_t sha1Size = 20;

} // namespace

void calcHMAC_SHA1(kx::TBuffer<unsigned char>& result, const unsigned char* message, size_t messageSize,
    const unsigned char* key, size_t keySize)
{
    const CErrorMark mark;
    std::array<unsigned char, sha1Size> made{}; // apart, because the buffer may hold the message and the key
    size_t written = 0;
    const unsigned char* const end = EVP_Q_mac(nullptr, "HMAC", nullptr, "SHA1", nullptr, key ? key : made.data(),
        keySize, message, messageSize, made.data(), made.size(), &written);
    if (!end || written != sha1Size)
        throw kx::CError("OpenSSL cannot calculate HMAC-SHA1.");
    result.setSize(sha1Size);
    std::copy(made.begin(), made.end(), result.getData());
}

} // namespace sela
