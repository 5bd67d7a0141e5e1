#include "norla/files/CDownloadRecord.h"

#include "kx/text/hex.h"
#include "kx/text/numbers.h"
#include "sela/CDigest.h"

#include <algorithm>
#include <charconv>
#include <vector>

namespace norla {

namespace {

constexpr std::string_view recordTitle = "norla part of a file, 1";
constexpr size_t mostRanges = 10'000; // who writes them makes far fewer

std::string hexDigest(std::string_view bytes)
{
    sela::CDigest digest("SHA256");
    digest.update(bytes.data(), bytes.size());
    digest.finish();
    return kx::hexEncode({reinterpret_cast<const char*>(digest.getBytes()), digest.getLength()}).toUTF8();
}

/// A text from a server, on one line.
bool isOneLine(std::string_view text)
{
    return std::none_of(text.begin(), text.end(), [](unsigned char c) { return c < ' ' || c == 127; });
}

std::optional<long long> numberFrom(std::string_view text)
{
    long long number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() || number < 0)
        return std::nullopt;
    return number;
}

/// What stands before the character, which is taken away with it; all of the text where there is none.
std::string_view takeUpTo(std::string_view& text, char character)
{
    const size_t end = std::min(text.find(character), text.size());
    const std::string_view taken = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return taken;
}

/// One line. @return false when it makes no sense
bool takeRecordLine(CDownloadRecord& record, std::string_view line)
{
    const std::string_view name = takeUpTo(line, ' ');
    if (name == "identity") {
        record.identity = line;
    } else if (name == "place") {
        record.place = line;
    } else if (name == "etag") {
        record.validators.eTag = line;
    } else if (name == "last-modified") {
        record.validators.lastModified = line;
    } else if (name == "file-time") {
        const auto seconds = numberFrom(line);
        record.validators.fileTime = seconds.value_or(-1);
        return seconds.has_value();
    } else if (name == "modified") {
        const auto seconds = numberFrom(line);
        record.modified = seconds.value_or(-1);
        return seconds.has_value();
    } else if (name == "size") {
        record.total = numberFrom(line);
        return record.total.has_value();
    } else if (name == "bytes") {
        const auto start = numberFrom(takeUpTo(line, '-'));
        const auto end = numberFrom(line);
        if (!start || !end || *end <= *start || record.arrived.getAll().size() >= mostRanges)
            return false;
        record.arrived.add(*start, *end);
    } else {
        return false;
    }
    return true;
}

bool makesSense(const CDownloadRecord& record)
{
    const auto& ranges = record.arrived.getAll();
    return record.identity.size() == hexDigest("").size()
        && (!record.total || ranges.empty() || ranges.rbegin()->second <= *record.total);
}

} // namespace

std::string CDownloadRecord::toText() const
{
    std::string text(recordTitle);
    const auto add = [&text](std::string_view name, std::string_view value) {
        if (!value.empty() && isOneLine(value))
            text.append("\n").append(name).append(" ").append(value);
    };
    add("identity", identity);
    add("place", place);
    add("etag", validators.eTag);
    add("last-modified", validators.lastModified);
    if (validators.fileTime >= 0)
        add("file-time", std::to_string(validators.fileTime));
    if (modified >= 0)
        add("modified", std::to_string(modified));
    if (total)
        add("size", std::to_string(*total));
    for (const auto& [start, end] : arrived.getAll())
        add("bytes", std::to_string(start) + '-' + std::to_string(end));
    text += '\n';
    return text + "sha256 " + hexDigest(text) + '\n';
}

std::optional<CDownloadRecord> CDownloadRecord::fromText(std::string_view text)
{
    constexpr std::string_view last = "\nsha256 ";
    const size_t sum = text.rfind(last);
    if (sum == std::string_view::npos)
        return std::nullopt;
    const std::string_view body = text.substr(0, sum + 1);
    if (text.substr(sum + last.size()) != hexDigest(body) + '\n')
        return std::nullopt;
    std::string_view lines = body;
    if (takeUpTo(lines, '\n') != recordTitle)
        return std::nullopt;
    CDownloadRecord record;
    while (!lines.empty()) {
        if (!takeRecordLine(record, takeUpTo(lines, '\n')))
            return std::nullopt;
    }
    if (!makesSense(record))
        return std::nullopt;
    return record;
}

std::string identityOf(const kx::String& name)
{
    return hexDigest(name.toUTF8());
}

} // namespace norla
