#include "norla/core/CFileSource.h"

// Stores a file at an address: with PUT on an HTTP server, with STOR on an FTP server.
void uploadFile(const kx::String& url, const norla::CNetRequest::Path& path)
{
    const auto request = kx::newObj<norla::CNetRequest>();
    request->setSafeDefaults();
    request->setURL(url);
    const auto file = kx::newObj<norla::CFileSource>(path);
    request->setSendDataSource(file.get());
    request->setSendDataSize(file->getLength());
    request->setUpload(true);
    request->perform();
}
