#include "kx/base/CError.h"
#include "norla/s3/multipartDocuments.h"
#include "tests/fuzz/require.h"
#include "tests/fuzz/s3Document.h"

#include <cstdint>
#include <string_view>

namespace {

/// What it throws is an error that says something.
template <typename TRead>
void read(const TRead& reading)
{
    try {
        reading();
    } catch (const kx::CError& error) {
        require(!error.getMessage().isEmpty(), "the error says something");
    }
}

void checkPage(std::string_view document)
{
    constexpr int marker = 3;
    const norla::CS3PartPage page = norla::partsIn(document, marker);
    int last = 0;
    for (const auto& part : page.parts) {
        require(part.number > last && part.number <= norla::mostS3Parts, "parts come by number");
        require(part.size >= 0, "no part is smaller than nothing");
        last = part.number;
    }
    require(page.nextMarker == 0 || page.nextMarker > marker, "a list that goes on advances");
    static_cast<void>(norla::eTagOfParts(page.parts));
    if (!page.parts.empty())
        static_cast<void>(norla::completionOf(page.parts));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string_view document(reinterpret_cast<const char*>(data), size);
    read([document] { require(!norla::uploadIdIn(document).isEmpty(), "an upload has an id"); });
    read([document] { static_cast<void>(norla::completedETagIn(document)); });
    read([document] { static_cast<void>(norla::eTagIn(document, "CopyPartResult")); });
    read([document] { checkPage(document); });
    return 0;
}
