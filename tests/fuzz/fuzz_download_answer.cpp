// Lines: the first byte that was asked for, the end, the announced size, the status; then the header of the answer.
#include "kx/base/CError.h"
#include "kx/text/numbers.h"
#include "norla/core/plainURL.h"
#include "norla/files/downloadAnswer.h"
#include "norla/http/CHTTPContentRange.h"
#include "tests/fuzz/require.h"

#include <algorithm>
#include <cstdint>
#include <string_view>

namespace {

std::string_view takeLine(std::string_view& text)
{
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    return line;
}

std::optional<long long> takeNumber(std::string_view& text)
{
    try {
        return kx::parseInt64(norla::readable(takeLine(text)), false);
    } catch (const kx::CError&) {
        return std::nullopt;
    }
}

/// As a request makes one: no size is negative.
std::optional<long long> takeSize(std::string_view& text)
{
    const std::optional<long long> number = takeNumber(text);
    return number && *number >= 0 ? number : std::nullopt;
}

norla::CNetRequest::HeaderMap takeHeaders(std::string_view& text)
{
    norla::CNetRequest::HeaderMap headers;
    while (!text.empty()) {
        const std::string_view line = takeLine(text);
        const size_t colon = std::min(line.find(':'), line.size());
        headers[norla::readable(line.substr(0, colon)).toLower()]
            = norla::readable(line.substr(std::min(colon + 1, line.size()))).trim();
    }
    return headers;
}

void requirePart(const norla::CAskedPart& asked, const norla::CDownloadAnswer& answer)
{
    const auto range = norla::CHTTPContentRange::parse(answer.headers.at("content-range"));
    require(range->getFirst() == asked.start, "a part begins where it was asked for");
    require(!asked.end || range->getLast() < *asked.end, "it ends no later");
    require(range->getLast() >= range->getFirst(), "it has bytes");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::string_view text(reinterpret_cast<const char*>(data), size);
    norla::CAskedPart asked;
    asked.start = takeSize(text).value_or(0);
    asked.end = takeSize(text);
    asked.isPart = asked.start > 0 || asked.end;
    const std::optional<long long> announced = takeSize(text);
    const int status = static_cast<int>(std::clamp(takeNumber(text).value_or(-1), -1LL, 999LL));
    const norla::CNetRequest::HeaderMap headers = takeHeaders(text);
    const norla::CDownloadAnswer answer{.status = status, .headers = headers, .announced = announced};
    norla::CKnownResource known;
    const auto eTag = headers.find("etag");
    if (asked.isPart && eTag != headers.end()) {
        known.isKnown = true;
        known.validators.eTag = eTag->second.toUTF8();
        known.total = announced;
    }
    try {
        const auto verdict = norla::judgeAnswer(asked, answer, known);
        require(!known.total || *known.total >= 0, "no size is negative");
        if (verdict == norla::AnswerVerdict::Fits && asked.isPart && status >= 0)
            requirePart(asked, answer);
    } catch (const kx::CError& error) {
        require(!error.getMessage().isEmpty(), "the error says something");
    }
    return 0;
}
