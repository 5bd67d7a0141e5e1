#include "norla/files/CFileDownload.h"

// Downloads a file, and goes on where an earlier call has ended, also one of a program that was killed. Returns how
// many bytes had to come this time.
long long resumeDownload(const kx::String& url, const norla::CNetRequest::Path& path)
{
    norla::CFileDownloadOptions options;
    options.retries.attempts = 5; // of this call; each goes on behind the one before
    const auto download = kx::newObj<norla::CFileDownload>(url, path, options);
    download->run();
    return download->getProgress().moved;
}
