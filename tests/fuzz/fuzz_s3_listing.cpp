#include "norla/s3/CS3ListObjectsResult.h"
#include "tests/fuzz/s3Document.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const auto page = readDocument<norla::CS3ListObjectsResult>(data, size);
    if (!page)
        return 0;
    for (const auto& object : page->getContents())
        require(!object->getKey().isEmpty(), "every object has a key");
    return 0;
}
