#include "norla/core/errorKind.h"
#include "norla/core/explain.h"
#include "norla/files/CFileDownload.h"

// Fetches a file of which a digest is known, over as many as four connections. The text is for a person; empty when the
// file is there. What a lost connection or the end of the program leaves is gone on with by the next call.
kx::String fetchRelease(const kx::String& url, const norla::CNetRequest::Path& path, const kx::String& sha256,
    const std::function<void(const norla::CFileProgress&)>& report)
{
    norla::CFileDownloadOptions options;
    options.sha256 = sha256;
    options.segments = 4;
    options.keepModificationTime = true;
    options.retries.attempts = 5;
    options.onProgress = report; // done, total, bytes a second, seconds left
    const auto download = kx::newObj<norla::CFileDownload>(url, path, options);
    try {
        download->run(); // another thread may call cancel(), pause() and resume()
        return {};
    } catch (const kx::CError& error) {
        return norla::getErrorKind(error) == norla::ErrorKind::Cancelled ? kx::String() : norla::explain(error);
    }
}
