#include "norla/ftp/CFTPListDirResult.h"

#include "tests/support/errorOf.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

namespace {

using norla::CFTPListDirResult;

kx::P<CFTPListDirResult> parse(std::string_view bytes)
{
    kx::TBuffer<unsigned char> buffer;
    buffer.append(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
    return kx::newObj<CFTPListDirResult>(buffer);
}

std::vector<kx::String> namesIn(std::string_view bytes)
{
    std::vector<kx::String> names;
    const auto listing = parse(bytes);
    for (const auto& entry : listing->getEntries())
        names.push_back(entry->getName());
    return names;
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

TEST(CFTPListDirResultTest, refusesBytesThatAreNotUTF8)
{
    EXPECT_NE(support::messageOf([] { parse("type=file; \xff\r\n"); }), "(no error)");
}

} // namespace
