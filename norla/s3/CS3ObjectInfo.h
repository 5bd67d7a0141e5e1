#pragma once

#include "kx/base/visibility.h"
#include "kx/containers/TMap.h"
#include "kx/text/String.h"
#include "kx/time/CTime.h"

namespace norla {

/// What a store says of an object, in the headers of its answer. A value. What it does not say is empty, unset or -1,
/// and so is what it says without sense; all but eTag, versionId and isDeleteMarker, encryption and checksums is known
/// of objects that were asked for (get, head) alone.
struct KX_EXPORT CS3ObjectInfo {
    using HeaderMap = kx::TMap<kx::String, kx::String>; // lower-case name to value

    /// Of the whole object, in bytes, also where a part of it has come; -1: not told.
    long long size = -1;

    kx::String eTag;             ///< as the store writes it: with quotation marks, as conditions want it
    kx::String versionId;        ///< empty in a bucket that has never had versions
    bool isDeleteMarker = false; ///< the version marks that the object was removed
    kx::CTime lastModified;      ///< to the second
    kx::String contentType;
    kx::String cacheControl;
    kx::String contentDisposition;
    kx::String contentEncoding; ///< without "aws-chunked", which some stores keep of the way an object has come
    kx::String contentLanguage;
    kx::CTime expires;
    kx::TMap<kx::String, kx::String> metadata; ///< lower-case name, without "x-amz-meta-"; encoded words are decoded
    long long missingMetadata = 0;             ///< how many entries the store cannot give in a header
    long long tagCount = 0;                    ///< CS3Objects::getTags() has them
    kx::String storageClass;                   ///< empty: "STANDARD", which stores do not say
    kx::String encryption;                     ///< "AES256", "aws:kms"; empty: none that is told
    kx::String encryptionKeyId;
    kx::String customerKeyMD5; ///< Base64; not empty: the object needs a key of its owner's
    kx::String checksumSHA256; ///< Base64; with "-" and a number it is one of the parts' checksums
    kx::String checksumCRC32C; ///< the same

    /// Reads the answer to a request for the object.
    static CS3ObjectInfo fromObjectHeaders(const HeaderMap& headers);

    /// Reads the answer to a request that has changed the object, whose Content-Type and the like are its own.
    static CS3ObjectInfo fromChangeHeaders(const HeaderMap& headers);
};

} // namespace norla
