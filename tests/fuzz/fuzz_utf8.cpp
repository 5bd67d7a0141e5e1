// Text that is decoded and encoded again is the same text; the bytes of a path come back whatever they are.
#include "kx/base/CError.h"
#include "kx/files/TPathImpl.h"
#include "kx/text/String.h"
#include "tests/fuzz/require.h"

#include <cstdint>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const auto path = kx::TPathImpl<kx::CUnixPathTraits>::fromBytes(bytes);
    require(path.toBytes() == bytes, "a path gives back its bytes");
    try {
        const kx::String text = kx::String::fromUTF8(bytes);
        require(path.toString() == text, "a path in UTF-8 is read as UTF-8");
        require(text.toUTF8() == bytes, "decoding and encoding gives the same bytes");
        require(text.toDisplayUTF8() == bytes, "valid text is shown as it is");
    } catch (const kx::CError&) {
        // not UTF-8
    }
    return 0;
}
