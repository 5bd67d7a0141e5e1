#include "kx/base/CError.h"
#include "norla/s3/encodedMetadata.h"
#include "tests/fuzz/require.h"

#include <algorithm>
#include <cstdint>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    norla::decodeMetadata(kx::String::fromLatin1(bytes)); // never fails
    kx::String value;
    try {
        value = kx::String::fromUTF8(bytes);
    } catch (const kx::CError&) {
        return 0;
    }
    const kx::String encoded = norla::encodeMetadata(value);
    require(norla::decodeMetadata(encoded) == value, "what is encoded comes back");
    require(std::all_of(encoded.begin(), encoded.end(),
                [](wchar_t character) { return character >= L' ' && character <= L'~'; }),
        "it is printable ASCII");
    return 0;
}
