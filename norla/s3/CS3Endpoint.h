#pragma once

#include "kx/base/visibility.h"
#include "kx/text/String.h"

namespace norla {

/// Where a store is and how it wants to be asked. A value with the defaults of most stores; the functions name what
/// differs with those that are widely used, as their public documentation says.
struct KX_EXPORT CS3Endpoint {
    enum class Addressing {
        Path, ///< https://host/bucket/object
        /// https://bucket.host/object: the bucket's name has to be one of a host, and over TLS without dots, which the
        /// certificates of stores are not for.
        VirtualHost
    };
    enum class Signature { V4, V2 };

    kx::String host; ///< "host" or "host:port"
    bool useTLS = true;
    kx::String region = "us-east-1"; ///< as the store calls it; part of signatures V4
    Addressing addressing = Addressing::Path;
    Signature signature = Signature::V4;

    /// @param region such as "eu-central-1"
    static CS3Endpoint aws(const kx::String& region);

    /// Backblaze B2. @param region such as "us-west-004", from the endpoint that a bucket's page names
    static CS3Endpoint b2(const kx::String& region);

    /// Ceph's gateway, which takes any region. @param host "host" or "host:port"
    static CS3Endpoint ceph(const kx::String& host, bool useTLS = true);

    /// Google Cloud Storage, with HMAC keys.
    static CS3Endpoint gcs();

    /// MinIO with its default region. @param host "host" or "host:port"
    static CS3Endpoint minio(const kx::String& host, bool useTLS = true);

    /// Cloudflare R2. @param account its id, 32 hexadecimal digits
    static CS3Endpoint r2(const kx::String& account);

    /// @param region such as "eu-central-1"
    static CS3Endpoint wasabi(const kx::String& region);
};

} // namespace norla
