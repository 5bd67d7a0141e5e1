#include "kx/base/CError.h"
#include "kx/time/CTimeFields.h"
#include "norla/http/util.h"
#include "tests/fuzz/require.h"

#include <cstdint>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const kx::String text = kx::String::fromLatin1({reinterpret_cast<const char*>(data), size});
    kx::CTime time;
    try {
        time = norla::parseTimestamp(text);
    } catch (const kx::CError& error) {
        require(error.getMessage() == "Error parsing timestamp '" + text + "'.", "the error quotes the text");
        return 0;
    }
    constexpr long long year9999 = 253'402'300'799'000'000;
    require(time.isSet() && time.getMicroseconds() % 1'000'000 == 0, "a time has whole seconds");
    if (time.getMicroseconds() > year9999)
        return 0;
    require(
        norla::parseTimestamp(kx::CTimeFields(time).toInternetTimestamp()) == time, "what is written is read again");
    return 0;
}
