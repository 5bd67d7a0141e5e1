#include "norla/core/CFileSink.h"
#include "norla/core/CNetHeaders.h"

// Fetches the rest of a file whose beginning is there already, if it is still the one that had this "ETag" (or this
// "Last-Modified"); or else all of it.
void resumeDownload(const kx::String& url, const norla::CNetRequest::Path& path, const kx::String& etag)
{
    const auto headers = kx::newObj<norla::CNetHeaders>();
    headers->add("If-Range", etag);
    const auto request = kx::newObj<norla::CNetRequest>();
    request->setSafeDefaults();
    request->setURL(url);
    request->setCustomHTTPHeaders(headers.get());
    const auto file = kx::newObj<norla::CFileSink>(*request, path, norla::CFileSink::Older::Resume);
    request->setRange(file->getFile().getLength(), -1);
    request->setReceiveDataSink(file.get());
    request->perform();
    file->finish();
}
