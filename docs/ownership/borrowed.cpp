#include "norla/core/CNetRequest.h"

#include <string_view>

// The buffer is borrowed, so that it may stand here: it is there until the transfer has ended, and not looked at later.
void postBytes(norla::CNetRequest& request, std::string_view bytes)
{
    norla::CNetRequest::Buffer body;
    body.append(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
    request.setSendDataBuffer(&body);
    request.setHTTPMethod("POST"); // after the body, whose size it takes
    try {
        request.perform();
    } catch (...) {
        request.setSendDataSource(nullptr); // whoever performs it again sets another body
        throw;
    }
    request.setSendDataSource(nullptr);
}
