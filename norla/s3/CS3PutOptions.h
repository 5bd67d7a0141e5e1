#pragma once

#include "kx/containers/TMap.h"
#include "kx/text/String.h"
#include "kx/time/CTime.h"
#include "norla/s3/CS3Call.h"
#include "norla/s3/CS3Checksum.h"
#include "norla/s3/CS3Encryption.h"

#include <optional>

namespace norla {

/// What an object is stored with, in the words of the store's documentation ("PutObject"). A value. What is empty or
/// unset is not sent; no value may hold a control character. Fields are named in the order in which they stand here.
struct CS3PutOptions {
    using Texts = kx::TMap<kx::String, kx::String>; // name to value

    // Given back with the object. Headers of the same names.
    kx::String contentType = {}; ///< such as "image/png"; empty leaves it to the store
    kx::String cacheControl = {};
    kx::String contentDisposition = {};
    kx::String contentEncoding = {}; ///< how the bytes are encoded already, such as "gzip": nothing encodes them here
    kx::String contentLanguage = {};
    kx::CTime expires = {}; ///< to the second

    /// Given back with the object, headers x-amz-meta-NAME. Names are of the characters of a header's name (RFC 9110
    /// section 5.6.2) and count in lower case. Values are any text without control characters: what is not ASCII,
    /// begins or ends in white space or looks like an encoded word is sent in encoded words (RFC 2047), which
    /// CS3ObjectInfo::metadata undoes. Stores set limits, 2 KB of all names and values as a rule.
    Texts metadata = {};

    kx::String storageClass = {}; ///< header x-amz-storage-class, such as "STANDARD_IA"; empty: the bucket's
    kx::String cannedACL = {};    ///< header x-amz-acl, such as "public-read"; empty: the owner's alone
    CS3Encryption encryption = {};
    Texts tags = {}; ///< header x-amz-tagging; ten at most, as a rule

    // When it is stored at all; another state of the store is a CS3Error "PreconditionFailed". Some stores do not look,
    // others want the ETag without its quotation marks.
    kx::String ifMatch = {};     ///< ETag of the object that is replaced
    kx::String ifNoneMatch = {}; ///< "*": only where there is no such object

    /// Sent ahead of the bytes, so that the store refuses others ("BadDigest"). A source is read once before for it,
    /// which takes one that can seek. Empty: MD5 for bytes in memory, none for a source.
    std::optional<CS3Checksum> checksum = {};

    /// Whether what the store says of the bytes that it has got (an ETag that is an MD5, checksums) is compared with
    /// those that were sent. What does not agree is an error, but stored.
    bool verify = true;

    CS3Call::Fields headers = {}; ///< more of them, sent as they are, such as x-amz-request-payer
};

} // namespace norla
