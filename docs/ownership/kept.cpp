#include "norla/core/CNetHeaders.h"
#include "norla/core/CNetRequest.h"

// A request for anybody to perform. It keeps the header lines, to which nobody else has a reference when this returns.
kx::P<norla::CNetRequest> prepareQuestion(const kx::String& url)
{
    const auto headers = kx::newObj<norla::CNetHeaders>();
    headers->add("Accept", "application/json");
    auto request = kx::newObj<norla::CNetRequest>();
    request->setSafeDefaults();
    request->setURL(url);
    request->setCustomHTTPHeaders(headers.get());
    return request;
}
