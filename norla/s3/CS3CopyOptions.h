#pragma once

#include "kx/text/String.h"
#include "norla/s3/CS3Conditions.h"
#include "norla/s3/CS3PutOptions.h"

#include <string>

namespace norla {

/// How an object is copied, in the words of the store's documentation ("CopyObject"). A value. Fields are named in the
/// order in which they stand here.
struct CS3CopyOptions {
    kx::String sourceVersionId = {};     ///< which version; empty: the newest
    CS3Conditions sourceConditions = {}; ///< of the object that is copied; headers x-amz-copy-source-if-...
    std::string sourceCustomerKey = {};  ///< the key that it was stored with; empty: none

    /// Whether the copy gets the content headers and metadata of `target` in place of the source's; header
    /// x-amz-metadata-directive. A copy of an object onto itself wants it, as a rule.
    bool replaceMetadata = false;

    bool replaceTags = false; ///< the same for the tags; header x-amz-tagging-directive

    /// What the copy is stored with. Storage class, ACL, encryption, conditions and more headers count always. The
    /// checksum is the store's to make: MD5 is none that it could (header x-amz-checksum-algorithm).
    CS3PutOptions target = {};
};

} // namespace norla
