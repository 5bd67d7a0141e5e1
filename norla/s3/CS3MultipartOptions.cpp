#include "norla/s3/CS3MultipartOptions.h"

#include "norla/s3/objectCall.h"

namespace norla {

CS3MultipartOptions CS3MultipartOptions::of(const CS3PutOptions& object)
{
    CS3MultipartOptions options;
    for (const auto& field : putHeaders(object)) {
        const kx::String name = field.first.toLower();
        if (name == "if-match" || name == "if-none-match")
            options.completeHeaders.push_back(field);
        else if (name.startsWith("x-amz-server-side-encryption-customer-"))
            options.partHeaders.push_back(field);
        else
            options.headers.push_back(field);
    }
    return options;
}

} // namespace norla
