#include "norla/files/CPartFile.h"

#include "kx/base/CError.h"
#include "tests/support/CTemporaryFolder.h"

#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <memory>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using norla::CPartFile;

class CPartFileTest : public testing::Test {
protected:
    CPartFile::Path path(const std::string& name = "file") const
    {
        return CPartFile::Path::fromBytes((m_folder.path() / name).native());
    }

    static void write(CPartFile& part, long long position, std::string_view bytes)
    {
        part.write(position, reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
    }

    template <typename TAction>
    static std::string errorOf(const TAction& action)
    {
        try {
            action();
        } catch (const kx::CError& error) {
            return error.what();
        }
        return "";
    }

    unsigned modeOf(const std::string& name) const
    {
        struct stat status {};
        EXPECT_EQ(stat((m_folder.path() / name).c_str(), &status), 0) << name;
        return status.st_mode & 0777;
    }

    size_t fileCount() const
    {
        return static_cast<size_t>(std::distance(fs::directory_iterator(m_folder.path()), fs::directory_iterator()));
    }

    const support::CTemporaryFolder m_folder;
};

TEST_F(CPartFileTest, givesTheFileItsNameAndLeavesNothingElse)
{
    CPartFile part(path());
    write(part, 3, "def");
    write(part, 0, "abc");
    part.writeRecord("text");
    EXPECT_FALSE(part.isTaken());
    part.finish({}, false);
    EXPECT_EQ(m_folder.read("file"), "abcdef");
    EXPECT_EQ(fileCount(), 1u);
}

TEST_F(CPartFileTest, staysForTheNextOne)
{
    {
        CPartFile part(path());
        write(part, 0, "abc");
        part.writeRecord("first");
        part.writeRecord("text");
    }
    const CPartFile part(path());
    EXPECT_EQ(part.getSize(), 3);
    EXPECT_EQ(part.readRecord(), "text");
}

TEST_F(CPartFileTest, aChildThatKnowsNothingOfItDoesNotKeepIt)
{
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe(ends.data()), 0);
    auto part = std::make_unique<CPartFile>(path());
    const pid_t child = fork();
    if (child == 0) {
        close(ends[1]);
        char byte = 0;
        _exit(static_cast<int>(::read(ends[0], &byte, 1)));
    }
    close(ends[0]);
    part.reset();
    EXPECT_EQ(errorOf([&] { part = std::make_unique<CPartFile>(path()); }), "");
    close(ends[1]); // which the child waits for
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
}

TEST_F(CPartFileTest, leavesAloneWhatSomebodyHasPutInItsPlace)
{
    CPartFile part(path());
    write(part, 0, "abc");
    fs::remove(m_folder.path() / "file.norla-part");
    m_folder.write("file.norla-part", "somebody's");
    m_folder.write("file.norla-record", "somebody's");
    EXPECT_NE(errorOf([&] { part.writeRecord("text"); }), "");
    EXPECT_NE(errorOf([&] { part.removeRecord(); }), "");
    EXPECT_NE(errorOf([&] { part.finish({}, true); }), "");
    part.remove();
    EXPECT_EQ(m_folder.read("file.norla-part"), "somebody's");
    EXPECT_EQ(m_folder.read("file.norla-record"), "somebody's");
    EXPECT_EQ(fileCount(), 2u);
}

TEST_F(CPartFileTest, givesBackTheRoomThatItDoesNotFill)
{
    constexpr long long blockUnit = 512; // of st_blocks
    CPartFile part(path());
    write(part, 0, "abc");
    part.reserve(64 << 20);
    part.releaseReserve();
    struct stat status {};
    ASSERT_EQ(stat((m_folder.path() / "file.norla-part").c_str(), &status), 0);
    EXPECT_EQ(status.st_size, 3);
    EXPECT_LT(status.st_blocks * blockUnit, 1 << 20);
}

TEST_F(CPartFileTest, aRecordThatCannotBeWrittenLeavesNothing)
{
    CPartFile part(path());
    fs::create_directory(m_folder.path() / "file.norla-record");
    EXPECT_NE(errorOf([&] { part.writeRecord("text"); }), "");
    EXPECT_EQ(fileCount(), 2u);
}

TEST_F(CPartFileTest, aRemovedRecordIsGone)
{
    CPartFile part(path());
    part.removeRecord();
    part.writeRecord("text");
    part.removeRecord();
    EXPECT_FALSE(part.readRecord());
}

TEST_F(CPartFileTest, anEnormousRecordIsNone)
{
    m_folder.write("file.norla-record", std::string((1 << 20) + 1, 'x'));
    EXPECT_FALSE(CPartFile(path()).readRecord());
}

TEST_F(CPartFileTest, belongsToOneAtATime)
{
    const CPartFile part(path());
    EXPECT_EQ(errorOf([&] { CPartFile other(path()); }),
        "The file '" + (m_folder.path() / "file").native() + "' is being written by another transfer.");
}

TEST_F(CPartFileTest, replacesNothingUnlessToldTo)
{
    m_folder.write("file", "older");
    CPartFile part(path());
    write(part, 0, "newer");
    EXPECT_TRUE(part.isTaken());
    EXPECT_EQ(errorOf([&] { part.finish({}, false); }),
        "The file '" + (m_folder.path() / "file").native() + "' cannot be written: File exists.");
    EXPECT_EQ(m_folder.read("file"), "older");
    part.finish({}, true);
    EXPECT_EQ(m_folder.read("file"), "newer");
}

TEST_F(CPartFileTest, setsPermissionsAndTime)
{
    CPartFile part(path());
    part.finish({.permissions = 0640, .modified = 784111777}, false);
    struct stat status {};
    ASSERT_EQ(stat((m_folder.path() / "file").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0640u);
    EXPECT_EQ(status.st_mtime, 784111777);
}

TEST_F(CPartFileTest, isForItsOwnerAloneOnDemand)
{
    CPartFile part(path(), true);
    part.writeRecord("text");
    EXPECT_EQ(modeOf("file.norla-part"), 0600u);
    EXPECT_EQ(modeOf("file.norla-record"), 0600u);
}

TEST_F(CPartFileTest, closesAnOlderPartToOthersOnDemand)
{
    {
        const CPartFile part(path());
        fs::permissions(m_folder.path() / "file.norla-part", fs::perms(0644));
    }
    const CPartFile part(path(), true);
    EXPECT_EQ(modeOf("file.norla-part"), 0600u);
}

TEST_F(CPartFileTest, followsNoLinkThatSomebodyHasPutThere)
{
    m_folder.write("target", "theirs");
    fs::create_symlink(m_folder.path() / "target", m_folder.path() / "file.norla-part");
    EXPECT_NE(errorOf([&] { CPartFile part(path()); }), "");
    EXPECT_EQ(m_folder.read("target"), "theirs");
}

TEST_F(CPartFileTest, writesNoFileThatHasAnotherName)
{
    m_folder.write("target", "theirs");
    fs::create_hard_link(m_folder.path() / "target", m_folder.path() / "file.norla-part");
    EXPECT_EQ(errorOf([&] { CPartFile part(path()); }),
        "The file '" + (m_folder.path() / "file").native()
            + "' cannot be written: what is called 'file.norla-part' beside it is no file of this user alone.");
}

TEST_F(CPartFileTest, waitsForNobodyAtAPipe)
{
    ASSERT_EQ(mkfifo((m_folder.path() / "file.norla-part").c_str(), 0600), 0);
    EXPECT_NE(errorOf([&] { CPartFile part(path()); }), "");
}

TEST_F(CPartFileTest, takesTheLongestName)
{
    const std::string name(255, 'n');
    {
        CPartFile part(path(name));
        part.writeRecord("text");
    }
    CPartFile part(path(name));
    EXPECT_EQ(part.readRecord(), "text");
    part.finish({}, false);
    EXPECT_TRUE(fs::exists(m_folder.path() / name));
    EXPECT_EQ(fileCount(), 1u);
}

TEST_F(CPartFileTest, longNamesThatBeginAlikeHaveTheirOwn)
{
    const CPartFile first(path(std::string(254, 'n') + "1"));
    const CPartFile second(path(std::string(254, 'n') + "2"));
    EXPECT_EQ(fileCount(), 2u);
}

TEST_F(CPartFileTest, namesPathAndReasonWhereThereIsNoFolder)
{
    EXPECT_EQ(errorOf([&] { CPartFile part(path("missing/file")); }),
        "The file '" + (m_folder.path() / "missing/file").native() + "' cannot be written: No such file or directory.");
    EXPECT_NE(errorOf([&] { CPartFile part{CPartFile::Path("")}; }), "");
    EXPECT_NE(errorOf([&] { CPartFile part(path("folder/")); }), "");
}

TEST_F(CPartFileTest, aFolderThatVanishesIsAnError)
{
    fs::create_directory(m_folder.path() / "folder");
    CPartFile part(path("folder/file"));
    fs::remove_all(m_folder.path() / "folder");
    write(part, 0, "abc");
    EXPECT_NE(errorOf([&] { part.finish({}, false); }), "");
}

TEST_F(CPartFileTest, isFoundInAFolderThatWasMoved)
{
    fs::create_directory(m_folder.path() / "folder");
    CPartFile part(path("folder/file"));
    fs::rename(m_folder.path() / "folder", m_folder.path() / "moved");
    write(part, 0, "abc");
    part.finish({}, false);
    EXPECT_EQ(m_folder.read("moved/file"), "abc");
}

TEST_F(CPartFileTest, removesWhatItHasMade)
{
    CPartFile part(path());
    part.writeRecord("text");
    part.remove();
    EXPECT_EQ(fileCount(), 0u);
}

TEST_F(CPartFileTest, moreThanTheDiskCanHoldIsAnErrorAtOnce)
{
    CPartFile part(path());
    EXPECT_NE(errorOf([&] { part.reserve(1LL << 60); }), "");
    EXPECT_EQ(part.getSize(), 0);
}

} // namespace
