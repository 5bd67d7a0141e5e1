#include "norla/s3/CS3Client.h"
#include "norla/s3/CS3ObjectListing.h"
#include "norla/s3/CS3Objects.h"
#include "norla/s3/CS3ParallelUpload.h"

// The same for the stores of today. The credentials: kx::newObj<norla::CS3SharedCredentialsFile>(), for one.
kx::P<norla::CS3Client> openStore(const norla::CS3Endpoint& endpoint, norla::IS3Credentials* credentials)
{
    auto client = kx::newObj<norla::CS3Client>(endpoint, credentials); // CS3Endpoint::aws("eu-central-1"), for one
    client->setSafeDefaults();
    client->setRetryPolicy({.attempts = 5, .budget = kx::CTimeSpan::fromSeconds(60)});
    return client;
}

// Stores a note that says who wrote it, and a file of any size beside it; returns the names of all that is there.
kx::TArray<kx::String> archive(norla::CS3Client& client, const kx::String& bucket, const std::string& note,
    const norla::CNetRequest::Path& file, const std::function<void(long long bytes, long long total)>& report)
{
    const auto request = kx::newObj<norla::CNetRequest>();
    norla::CS3Objects objects(&client, request.get());
    objects.put(bucket, "archive/note.txt", note, {.contentType = "text/plain", .metadata = {{"author", L"Zoë"}}});

    norla::CS3ParallelUpload upload(&client, request.get(), {.onProgress = report});
    upload.upload(file, bucket, "archive/file");

    kx::TArray<kx::String> names;
    norla::CS3ObjectListing listing(&client, request.get(), bucket, {.prefix = "archive/"});
    while (listing.next())
        names.push_back(listing.getCurrent()->key);
    return names;
}

// A page about what is in the bucket shows this link; it works for an hour.
kx::String linkTo(norla::CS3Client& client, const kx::String& bucket, const kx::String& name)
{
    return client.presignObjectURL(
        *kx::newObj<norla::CNetRequest>(), "GET", bucket, name, kx::CTimeSpan::fromSeconds(3600));
}
