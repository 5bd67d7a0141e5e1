// FTP listings beside decoding the same bytes.
#include "bench/compare.h"
#include "norla/ftp/CFTPListDirResult.h"

#include <cstdio>
#include <malloc.h>
#include <string>

namespace {

kx::P<kx::TBuffer<unsigned char>> listing(int lines)
{
    std::string text;
    for (int i = 0; i < lines; ++i)
        text += "type=file;size=" + std::to_string(i) + ";modify=20261121084937;perm=adfrw;unique=801U"
            + std::to_string(i) + ";unix.mode=0644; image-" + std::to_string(i) + ".jpg\r\n";
    auto buffer = kx::newObj<kx::TBuffer<unsigned char>>();
    buffer->append(reinterpret_cast<const unsigned char*>(text.data()), text.size());
    return buffer;
}

bool compareParsing(const char* name, int lines, int rounds)
{
    const auto bytes = listing(lines);
    const auto bare = [&bytes] {
        kx::String::fromUTF8({reinterpret_cast<const char*>(bytes->getData()), bytes->getSize()});
    };
    return bench::compare({name, 5.0, rounds, bare, [&bytes] { norla::CFTPListDirResult{*bytes}; }});
}

void printMemory(int lines)
{
    const auto bytes = listing(lines);
    const size_t before = mallinfo2().uordblks;
    const norla::CFTPListDirResult result(*bytes);
    std::printf("memory of %d entries: %.0f bytes each, beside %.0f bytes a line\n", lines,
        static_cast<double>(mallinfo2().uordblks - before) / lines, static_cast<double>(bytes->getSize()) / lines);
}

} // namespace

int main()
{
    bench::printHeading();
    bool good = compareParsing("a listing of 100,000 lines beside decoding", 100'000, 15);
    good &= compareParsing("a listing of 1,000,000 lines", 1'000'000, 3);
    printMemory(100'000);
    printMemory(1'000'000);
    return good ? 0 : 1;
}
