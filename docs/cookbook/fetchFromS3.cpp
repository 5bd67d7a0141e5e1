#include "norla/files/CS3FileDownload.h"

// Fetches an object into a file, which appears under its name when all of it has come and is what the store says that
// it keeps. What a lost connection or the end of the program leaves is gone on with. When anything fails, an older file
// of that name stays.
void fetchFromS3(
    norla::CS3Client& client, const kx::String& bucket, const kx::String& name, const norla::CNetRequest::Path& path)
{
    norla::CS3FileDownloadOptions options;
    options.file.overwrite = true;
    options.file.retries.attempts = 5; // here the client's own policy does not count
    kx::newObj<norla::CS3FileDownload>(&client, bucket, name, path, options)->run();
}
