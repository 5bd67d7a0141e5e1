// The body of an error response, made into text for a person; its first byte says whether it is announced as HTML.
#include "norla/core/CNetRequest.h"
#include "tests/fuzz/require.h"

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    const bool isHTML = data[0] % 2 == 1;
    norla::CNetRequest::HeaderMap headers;
    if (isHTML)
        headers["content-type"] = "text/html";
    const kx::String message
        = norla::CNetRequest::getServerErrorMessageFromResponseData(data + 1, static_cast<int>(size - 1), headers);
    require(message.size() <= 4096, "the message is no longer than what it is made from");
    if (!isHTML)
        return 0;
    require(message == message.trim(), "the text of HTML is trimmed");
    require(message.find("  ") == kx::String::npos && message.find("\n\n") == kx::String::npos
            && message.find(L'\t') == kx::String::npos,
        "white space is normalised");
    return 0;
}
