#include "norla/core/errorKind.h"
#include "norla/core/explain.h"
#include "norla/files/CS3FileDownload.h"
#include "norla/files/CS3FileUpload.h"

// Brings a file into a store and back under another name. Whatever breaks off, also the program, is gone on with by the
// next call. The text is for a person; empty when both are there.
kx::String storeAndFetch(norla::CS3Client& client, const kx::String& bucket, const kx::String& name,
    const norla::CNetRequest::Path& file, const norla::CNetRequest::Path& copy)
{
    norla::CS3FileUploadOptions up;
    up.object.contentType = "application/octet-stream";
    up.overwrite = true;
    norla::CS3FileDownloadOptions down;
    down.file.segments = 4;
    down.file.retries.attempts = 5;
    try {
        kx::newObj<norla::CS3FileUpload>(&client, file, bucket, name, up)->run();
        kx::newObj<norla::CS3FileDownload>(&client, bucket, name, copy, down)->run();
        return {};
    } catch (const kx::CError& error) {
        return norla::getErrorKind(error) == norla::ErrorKind::Cancelled ? kx::String() : norla::explain(error);
    }
}
