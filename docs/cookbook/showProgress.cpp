#include "norla/files/CFileDownload.h"

// Downloads a file, and tells ten times a second, and once when all is there, how far it is. What the report throws
// ends the download.
void downloadAndShow(const kx::String& url, const norla::CNetRequest::Path& path,
    const std::function<void(const norla::CFileProgress&)>& report)
{
    const norla::CFileDownloadOptions options{.overwrite = true, .onProgress = report};
    kx::newObj<norla::CFileDownload>(url, path, options)->run();
}
