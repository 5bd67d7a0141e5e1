#pragma once

#include "kx/time/CTime.h"

#include <string>
#include <utility>
#include <vector>

namespace norla {

/// A request to an S3 store as its signature covers it. All texts are the bytes that are sent.
struct CS3RequestToSign {
    using Headers = std::vector<std::pair<std::string, std::string>>; // name, value

    /// In place of a digest: the body is signed as it is sent, chunk by chunk.
    static constexpr char streamingPayload[] = "STREAMING-AWS4-HMAC-SHA256-PAYLOAD";

    std::string method = "GET";
    std::string url;           ///< absolute, escaped once, with its query
    Headers headers;           ///< those that are sent, in their order; "Host" only where it is not the URL's
    std::string payloadSHA256; ///< of the body, 64 lower-case hexadecimal digits; empty: the body is not signed;
                               ///< or streamingPayload
    std::string bucketOfHost;  ///< the bucket that the host names; empty where the path begins with it
    kx::CTime time;            ///< when it is signed
};

} // namespace norla
