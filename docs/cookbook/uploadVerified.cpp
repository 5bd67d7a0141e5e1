#include "norla/files/CFileUpload.h"

// Stores a file at an address and sees that all of it is there: an HTTP server is asked for its size afterwards, over
// FTP and SFTP it gets its name when its size is right. A file that changes meanwhile is an error.
void uploadVerified(const kx::String& url, const norla::CNetRequest::Path& path,
    const std::function<void(const norla::CFileProgress&)>& report)
{
    norla::CFileUploadOptions options{.askSizeAfterwards = true, .overwrite = true};
    options.retries.attempts = 5;
    options.onProgress = report;
    kx::newObj<norla::CFileUpload>(url, path, options)->run();
}
