#include "norla/core/CNetHeaders.h"
#include "norla/core/CNetRequest.h"

#include <string_view>

// Calls a web service; returns what it answers.
kx::String postJSON(const kx::String& url, const kx::String& json)
{
    const auto headers = kx::newObj<norla::CNetHeaders>();
    headers->add("Content-Type", "application/json");
    headers->add("Accept", "application/json");
    const auto request = kx::newObj<norla::CNetRequest>();
    request->setSafeDefaults();
    request->setURL(url);
    request->setCustomHTTPHeaders(headers.get());
    request->setSendDataAsUTF8(json);
    request->setHTTPMethod("POST");
    request->perform();
    const auto body = request->getDefaultReceiveBuffer();
    return kx::String::fromUTF8(std::string_view(reinterpret_cast<const char*>(body->getData()), body->getSize()));
}
