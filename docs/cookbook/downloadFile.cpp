#include "norla/core/CFileSink.h"

// The file appears under its name when all of it has come. When anything fails, an older file of that name stays.
void downloadFile(const kx::String& url, const norla::CNetRequest::Path& path)
{
    const auto request = kx::newObj<norla::CNetRequest>();
    request->setSafeDefaults();
    request->setURL(url);
    const auto file = kx::newObj<norla::CFileSink>(*request, path);
    request->setReceiveDataSink(file.get());
    request->perform();
    file->finish(); // gives it its name
}
