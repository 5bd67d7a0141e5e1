#include "norla/core/CFileSink.h"

// Downloads into a file. When anything fails, an older file of that name is still there, as it was.
void download(const kx::String& url, const norla::CNetRequest::Path& path)
{
    const auto request = kx::newObj<norla::CNetRequest>();
    request->setSafeDefaults();
    request->setURL(url);
    const auto sink = kx::newObj<norla::CFileSink>(*request, path);
    request->setReceiveDataSink(sink.get());
    request->perform();
    sink->finish(); // gives the file its name
}
