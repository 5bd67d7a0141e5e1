#include "norla/core/errorKind.h"
#include "norla/core/explain.h"
#include "norla/files/CFileUpload.h"

// Sends a file to a server where nobody has to see half of it. The text is for a person; empty when all of it is there.
// What has come over FTP or SFTP when the line breaks is gone on with by the next call.
kx::String sendFile(const kx::String& url, const norla::CNetRequest::Path& path,
    const std::function<void(const norla::CFileProgress&)>& report)
{
    norla::CFileUploadOptions options;
    options.askSizeAfterwards = true; // of an HTTP server; the others are always asked
    options.overwrite = true;
    options.retries.attempts = 5;
    options.onProgress = report;
    const auto upload = kx::newObj<norla::CFileUpload>(url, path, options);
    try {
        upload->run(); // another thread may call cancel(), pause() and resume()
        return {};
    } catch (const kx::CError& error) {
        return norla::getErrorKind(error) == norla::ErrorKind::Cancelled ? kx::String() : norla::explain(error);
    }
}
