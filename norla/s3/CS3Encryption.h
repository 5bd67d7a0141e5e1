#pragma once

#include "kx/text/String.h"

#include <string>

namespace norla {

/// How a store encrypts an object that it keeps. A value; at first as the bucket has it.
struct CS3Encryption {
    /// "AES256" (keys of the store), "aws:kms" or "aws:kms:dsse" (keys of its key management); header
    /// x-amz-server-side-encryption. Empty: as the bucket has it.
    kx::String algorithm = {};

    /// Which key of the key management; header x-amz-server-side-encryption-aws-kms-key-id. Empty: the one that the
    /// store chooses.
    kx::String keyId = {};

    /// A key of one's own, 32 bytes, in place of the two above, which the store forgets behind the request: whoever
    /// reads the object sends it again. Headers x-amz-server-side-encryption-customer-algorithm, -key and -key-MD5.
    /// It is sent over TLS alone: without, calls that have one throw kx::CInvalidArgError. Empty: none.
    std::string customerKey = {};
};

} // namespace norla
