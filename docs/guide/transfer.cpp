#include "norla/core/CCURLError.h"
#include "norla/core/CNetHeaders.h"
#include "norla/core/CNetRequest.h"

// Sends a text by POST; returns the answer's type (empty when the server does not say), or what to show to the user.
kx::String postNote(const kx::String& url, const kx::String& note)
{
    const auto headers = kx::newObj<norla::CNetHeaders>();
    headers->add("Content-Type", "text/plain; charset=utf-8");
    const auto request = kx::newObj<norla::CNetRequest>();
    request->setSafeDefaults(); // first: what is set afterwards counts in its place
    request->setURL(url);
    request->setCustomHTTPHeaders(headers.get());
    request->setSendDataAsUTF8(note);
    request->setHTTPMethod("POST"); // after the body, whose size it takes
    try {
        request->perform();
        const auto& answered = request->getResponseHeaderMap();
        const auto type = answered.find("content-type"); // names are in lower case
        return type == answered.end() ? kx::String() : type->second;
    } catch (const norla::CCURLError& error) {
        return error.getMessage() + "\n" + error.getProps().get("serverMessage");
    }
}
