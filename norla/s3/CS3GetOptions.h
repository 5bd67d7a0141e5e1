#pragma once

#include "kx/text/String.h"
#include "norla/s3/CS3Call.h"
#include "norla/s3/CS3Conditions.h"

#include <string>

namespace norla {

/// What of an object is wanted, in the words of the store's documentation ("GetObject", "HeadObject"). A value. Fields
/// are named in the order in which they stand here.
struct CS3GetOptions {
    long long start = 0;   ///< of the first byte, counted from 0; header Range
    long long length = -1; ///< in bytes; -1: up to the end; 0: the headers alone

    /// Which version, parameter versionId; empty: the newest. Wants a client of an endpoint.
    kx::String versionId = {};

    CS3Conditions conditions = {};

    /// The key that the object was stored with (CS3Encryption::customerKey), sent over TLS alone; empty: none.
    std::string customerKey = {};

    /// How many bytes at most may come; more are an error before the first comes, where the store tells the size, or
    /// else before the first beyond. -1: any number.
    long long mostBytes = -1;

    /// Whether the bytes of a whole object are compared with what the store says of them: x-amz-checksum-sha256 and
    /// -crc32c, which are asked for (header x-amz-checksum-mode), and an ETag that is an MD5. Switch it off for a store
    /// that gives other bytes than it keeps, such as unpacked ones.
    bool verify = true;

    CS3Call::Fields headers = {}; ///< more of them, sent as they are, such as x-amz-request-payer
};

} // namespace norla
