#include "kx/files/readWholeFile.h"

#include "tests/support/CTemporaryFolder.h"
#include "tests/support/CWithoutStandardInput.h"
#include "tests/support/errorOf.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

namespace {

using Path = kx::TPathImpl<kx::CUnixPathTraits>;

constexpr size_t most = 100'000;

class ReadWholeFileTest : public testing::Test {
protected:
    Path pathOf(const char* name) const { return Path::fromBytes((m_folder.path() / name).string()); }

    /// The reason for which it is not read.
    kx::String reasonFor(const char* name, size_t limit = most) const
    {
        const Path path = pathOf(name);
        const kx::String message = support::messageOf([&] { kx::readWholeFile(path, limit); });
        const kx::String start = "The file '" + path.toString() + "' cannot be read: ";
        return message.startsWith(start) ? message.substr(start.size()) : message;
    }

    const support::CTemporaryFolder m_folder;
};

TEST_F(ReadWholeFileTest, givesAllBytes)
{
    const std::string bytes = std::string(40'000, 'x') + '\0' + "end\n";
    m_folder.write("file", bytes);
    EXPECT_EQ(kx::readWholeFile(pathOf("file"), most), bytes);
}

TEST_F(ReadWholeFileTest, givesAnEmptyFile)
{
    m_folder.write("file", "");
    EXPECT_EQ(kx::readWholeFile(pathOf("file"), most), "");
}

TEST_F(ReadWholeFileTest, followsLinks)
{
    std::filesystem::create_symlink(m_folder.write("file", "text"), m_folder.path() / "link");
    EXPECT_EQ(kx::readWholeFile(pathOf("link"), most), "text");
}

TEST_F(ReadWholeFileTest, tellsThatThereIsNone)
{
    EXPECT_EQ(reasonFor("missing"), "No such file or directory.");
}

TEST_F(ReadWholeFileTest, givesNothingWhereNoneIsFine)
{
    EXPECT_EQ(kx::readWholeFileIfThere(pathOf("missing"), most), std::nullopt);
}

TEST_F(ReadWholeFileTest, refusesAFolder)
{
    EXPECT_EQ(reasonFor("."), "Is a directory.");
}

TEST_F(ReadWholeFileTest, waitsForNoPipe)
{
    ASSERT_EQ(mkfifo((m_folder.path() / "pipe").c_str(), 0600), 0);
    EXPECT_EQ(reasonFor("pipe"), "it is no regular file.");
}

TEST_F(ReadWholeFileTest, refusesWhatIsTooLarge)
{
    m_folder.write("file", "12345");
    EXPECT_EQ(reasonFor("file", 5), "(no error)");
    EXPECT_EQ(reasonFor("file", 4), "it is too large.");
}

TEST_F(ReadWholeFileTest, refusesAZeroCharacter)
{
    const Path path(kx::String(std::wstring(L"a\0b", 3)));
    EXPECT_NE(support::errorOf([&] { kx::readWholeFileIfThere(path, most); }), nullptr);
}

TEST_F(ReadWholeFileTest, readsAndClosesInAProgramWithoutStandardInput)
{
    m_folder.write("file", "text");
    const support::CWithoutStandardInput closed;
    EXPECT_EQ(kx::readWholeFile(pathOf("file"), most), "text");
    EXPECT_TRUE(closed.isFree());
}

} // namespace
