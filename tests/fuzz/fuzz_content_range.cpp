#include "kx/base/CError.h"
#include "kx/text/numbers.h"
#include "norla/http/CHTTPContentRange.h"
#include "tests/fuzz/require.h"

#include <cstdint>
#include <string_view>

namespace {

/// The header as it would be written.
kx::String written(const norla::CHTTPContentRange& range, const kx::String& total)
{
    return range.getUnit() + " " + kx::toString(range.getFirst()) + "-" + kx::toString(range.getLast()) + "/" + total;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const kx::String header = kx::String::fromLatin1({reinterpret_cast<const char*>(data), size});
    kx::P<norla::CHTTPContentRange> range;
    try {
        range = norla::CHTTPContentRange::parse(header);
    } catch (const kx::CError&) {
        return 0;
    }
    require(!range->getUnit().isEmpty(), "there is a unit");
    require(range->getUnit() == range->getUnit().toLower(), "the unit is in lower case");
    require(header.toLower().trim().startsWith(range->getUnit() + " "), "the header begins with the unit");
    if (range->getFirst() < 0) // which is written with a dash of its own, or as a star
        return 0;
    const auto again = norla::CHTTPContentRange::parse(written(*range, kx::toString(range->getTotal())));
    require(again->getUnit() == range->getUnit() && again->getFirst() == range->getFirst()
            && again->getLast() == range->getLast() && again->getTotal() == range->getTotal(),
        "what is written is read again");
    require(norla::CHTTPContentRange::parse(written(*range, "*"))->getTotal() == -1, "a star is no total");
    return 0;
}
