#include "norla/s3/CS3Client.h"
#include "norla/s3/CS3ParallelUpload.h"

// A client for a store, for this recipe and the next ones. The endpoint: CS3Endpoint::aws("eu-central-1"), for one, or
// CS3Endpoint::minio("host:9000"). The credentials: newObj<CS3SharedCredentialsFile>(), those of ~/.aws/credentials, or
// newObj<CS3StaticCredentials>(CS3Credentials{.accessKeyId = keyId, .secretAccessKey = secret}); get() of either.
kx::P<norla::CS3Client> openS3(const norla::CS3Endpoint& endpoint, norla::IS3Credentials* credentials)
{
    auto client = kx::newObj<norla::CS3Client>(endpoint, credentials);
    client->setSafeDefaults();
    client->setRetryPolicy({.attempts = 5});
    return client;
}

// Stores a file of any size by parts, several at once, each of which is tried again by itself. Tells ten times a second
// how far it is. When it fails, nothing of it stays in the store.
void storeInS3(norla::CS3Client& client, const kx::String& bucket, const kx::String& name,
    const norla::CNetRequest::Path& path, const std::function<void(long long bytes, long long total)>& report)
{
    const auto request = kx::newObj<norla::CNetRequest>();
    norla::CS3ParallelUpload upload(&client, request.get(), {.onProgress = report});
    upload.upload(path, bucket, name);
}
