#include "norla/core/plainURL.h"
#include "norla/files/suggestedName.h"
#include "tests/fuzz/require.h"

#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    for (const kx::String& name : {norla::suggestedNameIn(norla::readable(bytes)), norla::suggestedNameOf(bytes)}) {
        const std::string utf8 = name.toUTF8();
        require(utf8.size() <= 255, "a file system takes it");
        require(utf8.find_first_of("/\\\n\r") == std::string::npos && utf8.find('\0') == std::string::npos,
            "it is one name on one line");
        require(utf8.empty() || (utf8.front() != '.' && utf8.front() != ' ' && utf8.back() != ' '), "it is seen");
    }
    return 0;
}
