#include "norla/s3/CS3ListObjectsResult.h"
#include "tests/fuzz/s3Document.h"

namespace {

/// The same page with its names decoded: what can be read as it stands has as many objects then, or a name is no text.
void readDecoded(const uint8_t* data, size_t size, const norla::CS3ListObjectsResult* page)
{
    const auto bytes = kx::newObj<kx::TBuffer<unsigned char>>();
    bytes->append(data, size);
    try {
        const norla::CS3ListObjectsResult decoded(bytes.get(), norla::CS3ListObjectsResult::Names::AsTheDocumentSays);
        for (const auto& object : decoded.getContents())
            require(!object->getKey().isEmpty(), "every object has a key");
        require(!page || page->getContents().size() == decoded.getContents().size(), "no object is lost");
    } catch (const kx::CError& error) {
        require(!page || error.getMessage().endsWith("listing is not UTF-8."), "names alone can be wrong");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const auto page = readDocument<norla::CS3ListObjectsResult>(data, size);
    readDecoded(data, size, page.get());
    if (!page)
        return 0;
    for (const auto& object : page->getContents())
        require(!object->getKey().isEmpty(), "every object has a key");
    return 0;
}
