#include "tests/support/CTemporaryFolder.h"

#include <gtest/gtest.h>

#include <optional>
#include <stdexcept>

namespace {

TEST(CTemporaryFolderTest, keepsBytesInFiles)
{
    const support::CTemporaryFolder folder;
    const std::string bytes("a\0\n\xff", 4);
    const std::filesystem::path file = folder.write("sub/file.bin", bytes);
    EXPECT_EQ(file, folder.path() / "sub/file.bin");
    EXPECT_EQ(folder.read("sub/file.bin"), bytes);
}

TEST(CTemporaryFolderTest, isRemovedWithEverythingInIt)
{
    std::optional<support::CTemporaryFolder> folder(std::in_place);
    folder->write("sub/file", "x");
    const std::filesystem::path path = folder->path();
    EXPECT_TRUE(is_directory(path));
    folder.reset();
    EXPECT_FALSE(exists(path));
}

TEST(CTemporaryFolderTest, namesTheFileThatCannotBeRead)
{
    const support::CTemporaryFolder folder;
    try {
        folder.read("missing");
        FAIL() << "no error";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(error.what(), (folder.path() / "missing").string() + " cannot be read");
    }
}

} // namespace
