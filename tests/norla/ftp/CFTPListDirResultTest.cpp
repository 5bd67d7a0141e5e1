#include "norla/ftp/CFTPListDirResult.h"

#include "tests/support/CLogRecorder.h"
#include "tests/support/errorOf.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

namespace {

using norla::CFTPListDirResult;

kx::TBuffer<unsigned char> bufferOf(std::string_view bytes)
{
    kx::TBuffer<unsigned char> buffer;
    buffer.append(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
    return buffer;
}

kx::P<CFTPListDirResult> parse(std::string_view bytes)
{
    return kx::newObj<CFTPListDirResult>(bufferOf(bytes));
}

std::vector<kx::String> namesIn(const CFTPListDirResult& listing)
{
    std::vector<kx::String> names;
    for (const auto& entry : listing.getEntries())
        names.push_back(entry->getName());
    return names;
}

std::vector<kx::String> namesIn(std::string_view bytes)
{
    return namesIn(*parse(bytes));
}

using Names = std::vector<kx::String>;

TEST(CFTPListDirResultTest, readsLinesInTheirOrder)
{
    EXPECT_EQ(namesIn("type=dir; b\r\n\r\ntype=file;size=1; a\n"), (Names{"b", "a"}));
    const auto listing = parse("type=dir; a\r\ntype=file;size=1; b\r\n");
    ASSERT_EQ(listing->getEntries().size(), 2u);
    EXPECT_EQ(listing->getEntries()[0]->getType(), norla::CFTPDirEntry::TypeDir);
    EXPECT_EQ(listing->getEntries()[1]->getSize(), 1);
}

TEST(CFTPListDirResultTest, takesAnyMixtureOfLineEnds)
{
    EXPECT_EQ(namesIn("\n\r\r\ntype=file; a\rtype=file; b\n\ntype=file; c"), (Names{"a", "b", "c"}));
}

TEST(CFTPListDirResultTest, keepsTheDirectoryItselfAndItsParent)
{
    EXPECT_EQ(namesIn("type=cdir; .\r\ntype=pdir; ..\r\ntype=file; a\r\n"), (Names{".", "..", "a"}));
}

TEST(CFTPListDirResultTest, isEmptyForAnEmptyDirectory)
{
    EXPECT_EQ(namesIn(""), Names());
    EXPECT_EQ(namesIn("\r\n"), Names());
}

TEST(CFTPListDirResultTest, readsUTF8)
{
    EXPECT_EQ(namesIn("type=file; Gr\xc3\xbc\xc3\x9f\x65\r\n"),
        Names{"Gr\xfc\xdf"
              "e"});
}

TEST(CFTPListDirResultTest, namesTheFirstLineThatItCannotRead)
{
    EXPECT_EQ(
        support::messageOf([] { parse("type=file; a\r\nbroken\r\nbad\r\n"); }), "Invalid FTP dir entry: 'broken'");
}

constexpr std::string_view mixed = "type=file; a\r\n\r\ntype=file; Gr\xfcn\r\nbroken\ntype=dir;size=5k; b\r"
                                   "type=dir;modify=1; c\r\n\xfe\xff\r\ntype=dir; Gr\xc3\xbcn";

TEST(CFTPListDirResultTest, keepsUnreadableLinesApartWhenTold)
{
    const auto listing = kx::newObj<CFTPListDirResult>(bufferOf(mixed), CFTPListDirResult::KeepUnreadable);
    EXPECT_EQ(namesIn(*listing), (Names{"a", "Gr\xfcn"}));
    EXPECT_EQ(listing->getUnreadableLines(),
        (std::vector<std::string>{
            "type=file; Gr\xfcn", "broken", "type=dir;size=5k; b", "type=dir;modify=1; c", "\xfe\xff"}));
}

TEST(CFTPListDirResultTest, keepsNothingApartOfWhatItCanRead)
{
    const std::string_view readable = "type=file;size=1; a\r\ntype=dir;modify=20200131235959; Gr\xc3\xbcn\n";
    const auto listing = kx::newObj<CFTPListDirResult>(bufferOf(readable), CFTPListDirResult::KeepUnreadable);
    EXPECT_EQ(namesIn(*listing), namesIn(readable));
    EXPECT_TRUE(listing->getUnreadableLines().empty());
    EXPECT_TRUE(parse(readable)->getUnreadableLines().empty());
}

TEST(CFTPListDirResultTest, refusesUnreadableLinesWhenToldSo)
{
    EXPECT_EQ(support::messageOf([] {
        kx::newObj<CFTPListDirResult>(bufferOf("type=file; a\r\nbroken\r\n"), CFTPListDirResult::RefuseUnreadable);
    }),
        "Invalid FTP dir entry: 'broken'");
}

TEST(CFTPListDirResultTest, logsNothing)
{
    const support::CLogRecorder log;
    kx::newObj<CFTPListDirResult>(bufferOf(mixed), CFTPListDirResult::KeepUnreadable);
    support::messageOf([] { parse(mixed); });
    EXPECT_EQ(log.lines(), std::vector<std::string>());
}

TEST(CFTPListDirResultTest, refusesBytesThatAreNotUTF8)
{
    EXPECT_NE(support::messageOf([] { parse("type=file; \xff\r\n"); }), "(no error)");
}

} // namespace
