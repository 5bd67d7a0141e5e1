#pragma once

#include "kx/containers/TBuffer.h"

#include <cstddef>

namespace sela {

/// The 20 bytes of HMAC-SHA1 (RFC 2104) of the message, into the buffer, which is resized; message and key may lie in
/// it. An empty key or message is allowed.
/// @throws kx::CError when OpenSSL fails; the message says nothing about key or message
KX_EXPORT void calcHMAC_SHA1(kx::TBuffer<unsigned char>& result, const unsigned char* message, size_t messageSize,
    const unsigned char* key, size_t keySize);

} // namespace sela
