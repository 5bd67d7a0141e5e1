#include "norla/s3/CS3CopyObjectResult.h"
#include "tests/fuzz/s3Document.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const auto result = readDocument<norla::CS3CopyObjectResult>(data, size);
    if (result && result->getErrorResponse())
        require(result->getETag().isEmpty() && result->getLastModified().isEmpty(), "a failed copy made no object");
    return 0;
}
