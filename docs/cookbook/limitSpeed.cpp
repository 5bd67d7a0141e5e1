#include "norla/core/CFileSink.h"

// Downloads in the background of other things: no more than so many bytes a second.
void downloadSlowly(const kx::String& url, const norla::CNetRequest::Path& path, long long bytesPerSecond)
{
    const auto request = kx::newObj<norla::CNetRequest>();
    request->setSafeDefaults();
    request->setURL(url);
    request->setOptionInt64(CURLOPT_MAX_RECV_SPEED_LARGE, bytesPerSecond); // CURLOPT_MAX_SEND_SPEED_LARGE for uploads
    const auto file = kx::newObj<norla::CFileSink>(*request, path);
    request->setReceiveDataSink(file.get());
    request->perform();
    file->finish();
}
