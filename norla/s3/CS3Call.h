#pragma once

#include "kx/base/P.h"
#include "kx/text/String.h"
#include "norla/core/CNetRequest.h"

#include <string>
#include <utility>
#include <vector>

namespace norla {

/// One operation of an S3 store, in the words of the store's documentation. A value; texts are not escaped.
struct CS3Call {
    using Fields = std::vector<std::pair<kx::String, kx::String>>; // name, value

    kx::String method = "GET";
    kx::String bucketName = {}; ///< empty: the operation is one of the service
    kx::String objectName = {}; ///< empty: of the bucket
    Fields parameters = {};     ///< of the query; one without a value, such as "uploads", has an empty one
    Fields headers = {};        ///< an empty value is sent as such

    std::string body = {};                       ///< in memory, such as a document
    kx::P<CNetRequest::IDataSource> source = {}; ///< gives the body in place of that; each attempt seeks to its start
    long long sourceSize = 0;                    ///< in bytes
    std::string sourceSHA256 = {};               ///< 64 lower-case hexadecimal digits; empty: it is not signed
    kx::P<CNetRequest::IDataSink> sink = {};     ///< null: the request's default receive buffer

    /// Whether it does no harm to perform it twice, so that a CRetryPolicy may, though the method is POST.
    bool mayRepeat = false;
};

} // namespace norla
