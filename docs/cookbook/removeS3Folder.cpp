#include "norla/core/CNetRequest.h"
#include "norla/s3/CS3BatchDelete.h"
#include "norla/s3/CS3ObjectListing.h"

// Removes all that is in a folder of a bucket, also in the folders in it. The folder: such as "photos/2026/", with its
// "/"; "" is the whole bucket. Tells what the store has not removed, and why.
kx::TArray<norla::CS3DeleteFailure> removeS3Folder(
    norla::CS3Client& client, const kx::String& bucket, const kx::String& folder)
{
    const auto request = kx::newObj<norla::CNetRequest>();
    norla::CS3ObjectListing objects(&client, request.get(), bucket, {.prefix = folder});
    norla::CS3BatchDelete removal(&client, request.get(), bucket);
    while (objects.next())
        removal.add(objects.getCurrent()->key);
    removal.finish(); // else what was added last is not removed
    return removal.takeFailures();
}
