#include "norla/s3/CS3Endpoint.h"

namespace norla {

CS3Endpoint CS3Endpoint::aws(const kx::String& region)
{
    return {.host = "s3." + region + ".amazonaws.com", .region = region, .addressing = Addressing::VirtualHost};
}

CS3Endpoint CS3Endpoint::b2(const kx::String& region)
{
    return {.host = "s3." + region + ".backblazeb2.com", .region = region};
}

CS3Endpoint CS3Endpoint::ceph(const kx::String& host, bool useTLS)
{
    return {.host = host, .useTLS = useTLS};
}

CS3Endpoint CS3Endpoint::gcs()
{
    return {.host = "storage.googleapis.com", .region = "auto"};
}

CS3Endpoint CS3Endpoint::minio(const kx::String& host, bool useTLS)
{
    return {.host = host, .useTLS = useTLS};
}

CS3Endpoint CS3Endpoint::r2(const kx::String& account)
{
    return {.host = account + ".r2.cloudflarestorage.com", .region = "auto"};
}

CS3Endpoint CS3Endpoint::wasabi(const kx::String& region)
{
    return {.host = "s3." + region + ".wasabisys.com", .region = region};
}

} // namespace norla
