#include "norla/core/CNetRequest.h"
#include "norla/http/util.h"

// Sends a form without files, "name=Zo%c3%ab&age=30": what a server expects of a simple page.
void postFields(const kx::String& url, const kx::TMap<kx::String, kx::String>& fields)
{
    const auto request = kx::newObj<norla::CNetRequest>();
    request->setSafeDefaults();
    request->setURL(url);
    request->setSendDataAsUTF8(norla::encodeURLParams(fields));
    request->setHTTPMethod("POST"); // after the body, whose size it takes
    request->perform();
}
