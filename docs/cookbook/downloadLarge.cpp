#include "norla/files/CFileDownload.h"

#include <cstdio>

// Downloads a large file that is known by its digest, and shows how far it is. What a lost connection or the end of the
// program leaves is gone on with; what has another digest is an error, and nothing of it stays.
void downloadLarge(const kx::String& url, const norla::CNetRequest::Path& path, const kx::String& sha256)
{
    const auto show = [](const norla::CFileProgress& progress) {
        if (progress.total)
            std::fprintf(stderr, "\r%lld of %lld bytes, %.0f seconds left ", progress.done, *progress.total,
                progress.secondsLeft.value_or(0));
    };
    norla::CFileDownloadOptions options{.sha256 = sha256, .segments = 4};
    options.retries.attempts = 5;
    options.onProgress = show;
    kx::newObj<norla::CFileDownload>(url, path, options)->run();
}
