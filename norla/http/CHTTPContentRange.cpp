#include "norla/http/CHTTPContentRange.h"

#include "kx/base/CError.h"
#include "kx/text/numbers.h"

namespace norla {

namespace {

[[noreturn]] void throwInvalid(const kx::String& header)
{
    throw kx::CError("Invalid HTTP Content-Range header: " + header);
}

} // namespace

CHTTPContentRange::CHTTPContentRange(const kx::String& unit, long long first, long long last, long long total)
    : m_unit(unit)
    , m_first(first)
    , m_last(last)
    , m_total(total)
{
}

CHTTPContentRange::~CHTTPContentRange() = default;

kx::P<CHTTPContentRange> CHTTPContentRange::parse(const kx::String& header)
{
    const kx::String text = header.trim();
    const size_t blank = text.find(L' '); // never at the start of a trimmed text: there is always a unit before it
    const size_t slash = text.find(L'/', blank);
    if (slash == kx::String::npos)
        throwInvalid(text);
    kx::String first = "-1";
    kx::String last = "-1";
    const size_t dash = text.find(L'-', blank + 1);
    if (dash != kx::String::npos) {
        // A dash behind the slash leaves the slash in the first number, which is an error there.
        first = text.substr(blank + 1, dash - blank - 1);
        last = text.substr(dash + 1, slash - dash - 1);
    } else if (text.substr(blank + 1, slash - blank - 1) != "*") {
        throwInvalid(text);
    }
    const kx::String total = text.substr(slash + 1);
    const long long firstNumber = kx::parseInt64(first, false);
    const long long lastNumber = kx::parseInt64(last, false);
    const long long totalNumber = total == "*" ? -1 : kx::parseInt64(total, false);
    return kx::newObj<CHTTPContentRange>(text.substr(0, blank).toLower(), firstNumber, lastNumber, totalNumber);
}

} // namespace norla
