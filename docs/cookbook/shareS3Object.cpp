#include "norla/s3/CS3Client.h"

// A link by which whoever has it may fetch the object for a day, with any browser. The store is not asked.
kx::String shareS3Object(norla::CS3Client& client, const kx::String& bucket, const kx::String& name)
{
    const auto request = kx::newObj<norla::CNetRequest>();
    return client.presignObjectURL(*request, "GET", bucket, name, kx::CTimeSpan::fromSeconds(24LL * 3600));
}
