#pragma once

#include "kx/text/String.h"

namespace norla {

/// What of a bucket is listed, and how. A value; texts are not escaped. Each field is the parameter that the store's
/// documentation of ListObjectsV2, ListObjectVersions or ListMultipartUploads names.
struct CS3ListOptions {
    /// Only what has a name that begins so ("prefix"). Empty: everything.
    kx::String prefix = {};

    /// Only what has a name behind this one, which need not exist ("start-after", "key-marker"). Empty: from the first
    /// on.
    kx::String startAfter = {};

    /// How much a page may hold ("max-keys", "max-uploads"), 1 or more; -1: what the store likes, 1,000 as a rule,
    /// which is the most that stores give. One page is in memory at a time.
    int maxKeys = -1;

    /// Whether objects come with their owner ("fetch-owner"). Versions always do where the store tells it.
    bool fetchOwner = false;
};

} // namespace norla
