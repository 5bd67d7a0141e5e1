#include "kx/base/CError.h"
#include "norla/ftp/CFTPListDirResult.h"
#include "tests/fuzz/require.h"

#include <algorithm>
#include <cstdint>

namespace {

size_t countLines(const uint8_t* data, size_t size)
{
    const auto isLineEnd = [](uint8_t byte) { return byte == '\r' || byte == '\n'; };
    size_t lines = 0;
    for (size_t i = 0; i < size; ++i)
        lines += !isLineEnd(data[i]) && (i == 0 || isLineEnd(data[i - 1]));
    return lines;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    kx::TBuffer<unsigned char> bytes;
    bytes.append(data, size);
    const norla::CFTPListDirResult kept(bytes, norla::CFTPListDirResult::KeepUnreadable);
    const size_t lines = countLines(data, size);
    require(
        kept.getEntries().size() + kept.getUnreadableLines().size() == lines, "every line is kept, this way or that");
    try {
        const norla::CFTPListDirResult listing(bytes);
        require(listing.getEntries().size() == lines, "every line is an entry");
        require(kept.getUnreadableLines().empty(), "what can be read as a whole can be read line by line");
        for (const auto& entry : listing.getEntries())
            require(entry->getName().toUTF8().size() < size, "a name is part of its line");
    } catch (const kx::CError& error) {
        require(!kept.getUnreadableLines().empty(), "what cannot be read as a whole has such a line");
        require(error.getDomain().isEmpty() && error.getCode() == -1, "the error is a plain one");
    }
    return 0;
}
