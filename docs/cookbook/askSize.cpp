#include "norla/core/CNetRequest.h"

// How many bytes a file on a server has, without fetching it; -1 when the server does not say.
long long askSize(const kx::String& url)
{
    const auto request = kx::newObj<norla::CNetRequest>();
    request->setSafeDefaults();
    request->setURL(url);
    request->setHTTPMethod("HEAD");
    request->perform();
    return static_cast<long long>(request->getDownloadSize());
}
