#include "norla/core/CFileSink.h"
#include "norla/s3/CS3Objects.h"

// Fetches an object into a file, which appears under its name when all of it has come and is what the store says that
// it keeps. When anything fails, an older file of that name stays.
void fetchFromS3(
    norla::CS3Client& client, const kx::String& bucket, const kx::String& name, const norla::CNetRequest::Path& path)
{
    const auto request = kx::newObj<norla::CNetRequest>();
    const auto file = kx::newObj<norla::CFileSink>(*request, path);
    norla::CS3Objects(&client, request.get()).get(bucket, name, file.get());
    file->finish(); // gives it its name
}
