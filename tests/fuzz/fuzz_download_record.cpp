#include "norla/files/CDownloadRecord.h"
#include "tests/fuzz/require.h"

#include <cstdint>
#include <string>

namespace {

/// With the digest that makes the text a record, so that its lines are read.
std::string signedText(const std::string& lines)
{
    const std::string text = "norla part of a file, 1\nidentity " + norla::identityOf("x") + '\n' + lines + '\n';
    return text + "sha256 " + norla::identityOf(kx::String::fromLatin1(text)) + '\n';
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    for (const std::string& text : {bytes, signedText(bytes)}) {
        const auto record = norla::CDownloadRecord::fromText(text);
        if (!record)
            continue;
        const auto& ranges = record->arrived.getAll();
        require(!record->total || ranges.empty() || ranges.rbegin()->second <= *record->total, "it makes sense");
        require(norla::CDownloadRecord::fromText(record->toText()).has_value(), "what is written is read again");
    }
    return 0;
}
