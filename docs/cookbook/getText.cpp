#include "norla/core/CNetRequest.h"

#include <string_view>

// The text at an address, in UTF-8. Throws what there is to show to a person when it cannot be had.
kx::String getText(const kx::String& url)
{
    const auto request = kx::newObj<norla::CNetRequest>();
    request->setSafeDefaults();
    request->setURL(url);
    request->perform();
    const auto body = request->getDefaultReceiveBuffer();
    return kx::String::fromUTF8(std::string_view(reinterpret_cast<const char*>(body->getData()), body->getSize()));
}
