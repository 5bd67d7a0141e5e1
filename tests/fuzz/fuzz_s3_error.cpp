#include "norla/s3/CS3Error.h"
#include "norla/s3/CS3ErrorResponse.h"
#include "tests/fuzz/s3Document.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const auto response = readDocument<norla::CS3ErrorResponse>(data, size);
    if (!response)
        return 0;
    const norla::CS3Error error(*response, 400);
    require(error.getS3Code() == response->getCode(), "the error has the document's code");
    require(
        error.getMessage().find(response->getMessage()) != kx::String::npos, "the error has the document's message");
    return 0;
}
