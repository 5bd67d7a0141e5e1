#include "kx/base/CError.h"
#include "norla/http/util.h"
#include "tests/fuzz/require.h"

#include <cstdint>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    int code = 0;
    kx::String info;
    kx::String line;
    try {
        line = kx::String::fromUTF8({reinterpret_cast<const char*>(data), size});
        norla::parseHTTPStatusLine(line, code, info);
    } catch (const kx::CError&) {
        return 0;
    }
    require(info == info.trim(), "the reason is trimmed");
    require(line.substr(0, 5).toLower() == "http/", "the line begins with its protocol");
    require(norla::getStatusCodeFromHTTPStatusLine(line) == code, "the code is the same alone");
    require(norla::getInfoFromHTTPStatusLine(line) == info, "the reason is the same alone");
    return 0;
}
