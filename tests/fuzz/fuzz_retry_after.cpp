// Two lines: when to come again, and the server's clock.
#include "norla/core/plainURL.h"
#include "norla/core/retryAfter.h"
#include "tests/fuzz/require.h"

#include <algorithm>
#include <cstdint>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const size_t end = std::min(text.find('\n'), text.size());
    const norla::CNetRequest::HeaderMap headers{{"retry-after", norla::readable(text.substr(0, end))},
        {"date", norla::readable(text.substr(std::min(end + 1, text.size())))}};
    const auto span = norla::getRetryAfter(headers, kx::CTime(0));
    require(!span || span->isInfinite() || span->getMicroseconds() >= 0, "nobody is to come again before now");
    return 0;
}
