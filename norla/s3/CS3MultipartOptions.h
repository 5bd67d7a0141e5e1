#pragma once

#include "kx/base/visibility.h"
#include "norla/s3/CS3Call.h"
#include "norla/s3/CS3PutOptions.h"

namespace norla {

/// What an upload by parts is told beside bucket and key.
struct KX_EXPORT CS3MultipartOptions {
    /// Of CreateMultipartUpload: "Content-Type", "Cache-Control", "x-amz-meta-...", "x-amz-storage-class" and whatever
    /// else is a header of the object: `{{"Content-Type", "image/png"}, {"x-amz-meta-author", "Ann"}}`. Sent as they
    /// are: metadata in other letters than ASCII wants encoded words (RFC 2047), which of() makes.
    CS3Call::Fields headers = {};

    /// Of CreateMultipartUpload, UploadPart and UploadPartCopy: a customer's own key
    /// ("x-amz-server-side-encryption-customer-...").
    CS3Call::Fields partHeaders = {};

    /// Of CompleteMultipartUpload, such as the condition "If-None-Match" "*".
    CS3Call::Fields completeHeaders = {};

    /// A page of listParts(), "max-parts" of ListParts; 0: as many as the store likes, 1,000 as a rule.
    int partsPerPage = 0;

    /// For an object that is stored as CS3Objects::put() would store it: type, metadata in any language, tags, storage
    /// class, encryption, and the conditions at the end. `checksum` and `verify` count for a put alone.
    /// @throws kx::CInvalidArgError for an option that makes no sense
    static CS3MultipartOptions of(const CS3PutOptions& object);
};

} // namespace norla
