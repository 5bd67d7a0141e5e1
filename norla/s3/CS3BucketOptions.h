#pragma once

#include "kx/text/String.h"

namespace norla {

/// How CS3Buckets::create() makes a bucket. A value.
struct CS3BucketOptions {
    /// Where the objects are kept, "LocationConstraint" in the store's documentation of CreateBucket: such as
    /// "eu-central-1". Empty: where the store likes, which with Amazon's is the one place that must not be named,
    /// "us-east-1".
    kx::String region = {};

    /// Who may do what, the header "x-amz-acl": such as "private" or "public-read". Empty: the owner alone, or what the
    /// store has as its rule.
    kx::String acl = {};

    /// Whether objects can be locked against removal, the header "x-amz-bucket-object-lock-enabled". Such a bucket has
    /// versions and keeps them.
    bool objectLock = false;
};

} // namespace norla
