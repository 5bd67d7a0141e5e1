#include "kx/files/COutputFile.h"

#include "kx/text/numbers.h"
#include "tests/support/CDescriptor.h"
#include "tests/support/CTemporaryFolder.h"
#include "tests/support/CWithoutStandardInput.h"
#include "tests/support/errorOf.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <string_view>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using kx::COutputFile;

class COutputFileTest : public testing::Test {
protected:
    fs::path path(const std::string& name) const { return m_folder.path() / name; }

    kx::P<COutputFile> open(const std::string& name) const { return openPath(path(name)); }

    static kx::P<COutputFile> openPath(const fs::path& file)
    {
        return kx::newObj<COutputFile>(COutputFile::Path::fromBytes(file.native()));
    }

    static void write(COutputFile& file, std::string_view bytes)
    {
        ASSERT_EQ(file.write(reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size())),
            static_cast<int>(bytes.size()));
    }

    void writeWhole(const std::string& name, std::string_view bytes) const
    {
        const auto file = open(name);
        write(*file, bytes);
        file->finish();
    }

    kx::String openError(const std::string& name) const
    {
        return support::messageOf([&] { open(name); });
    }

    kx::String cannotBeWritten(const std::string& name, const kx::String& reason) const
    {
        return "The file '" + kx::String::fromUTF8(path(name).native()) + "' cannot be written: " + reason + ".";
    }

    unsigned modeOf(const std::string& name) const
    {
        return static_cast<unsigned>(fs::status(path(name)).permissions());
    }

    /// The names that the folder has.
    std::vector<std::string> names() const
    {
        std::vector<std::string> found;
        for (const auto& entry : fs::directory_iterator(m_folder.path()))
            found.push_back(entry.path().filename().native());
        return found;
    }

    const support::CTemporaryFolder m_folder;
};

TEST_F(COutputFileTest, holdsWhatWasWritten)
{
    writeWhole("new", "some bytes");
    EXPECT_EQ(m_folder.read("new"), "some bytes");
    EXPECT_EQ(names(), std::vector<std::string>{"new"});
}

TEST_F(COutputFileTest, takesNothingOfASizeBelowZero)
{
    const auto file = open("file");
    write(*file, "bytes");
    const unsigned char byte = 0;
    EXPECT_EQ(file->write(&byte, -1), 0);
    EXPECT_EQ(file->getPosition(), 5);
}

TEST_F(COutputFileTest, takesASingleByte)
{
    writeWhole("new", "x");
    EXPECT_EQ(m_folder.read("new"), "x");
}

TEST_F(COutputFileTest, canBeEmpty)
{
    writeWhole("new", "");
    EXPECT_EQ(m_folder.read("new"), "");
}

TEST_F(COutputFileTest, hasNoNameBeforeItIsFinished)
{
    const auto file = open("new");
    write(*file, "half");
    EXPECT_FALSE(fs::exists(path("new")));
}

TEST_F(COutputFileTest, keepsTheOlderFileUntilItIsFinished)
{
    m_folder.write("old", "older content");
    const auto file = open("old");
    write(*file, "new");
    EXPECT_EQ(m_folder.read("old"), "older content");
    file->finish();
    EXPECT_EQ(m_folder.read("old"), "new");
}

TEST_F(COutputFileTest, leavesNothingBehindWhenItIsNotFinished)
{
    m_folder.write("old", "older content");
    write(*open("old"), "half");
    EXPECT_EQ(names(), std::vector<std::string>{"old"});
    EXPECT_EQ(m_folder.read("old"), "older content");
}

TEST_F(COutputFileTest, namesWhatIsToBeRemovedIfTheProgramEnds)
{
    const auto file = open("new");
    EXPECT_EQ(names(), std::vector<std::string>{fs::path(file->getPartPath().toBytes()).filename()});
    EXPECT_EQ(fs::path(file->getPartPath().toBytes()).parent_path(), m_folder.path());
    file->finish();
    EXPECT_TRUE(file->getPartPath().isEmpty());
}

TEST_F(COutputFileTest, touchesNoOtherFileBesideIt)
{
    m_folder.write("new.part", "somebody's");
    writeWhole("new", "bytes");
    EXPECT_EQ(m_folder.read("new.part"), "somebody's");
}

TEST_F(COutputFileTest, canBeWrittenTwiceAtOnceAndTheLastOneStays)
{
    const auto first = open("new");
    const auto second = open("new");
    write(*first, "first");
    write(*second, "second");
    first->finish();
    EXPECT_EQ(m_folder.read("new"), "first");
    second->finish();
    EXPECT_EQ(m_folder.read("new"), "second");
}

TEST_F(COutputFileTest, hasThePermissionsThatTheUmaskLeaves)
{
    const mode_t previous = umask(027);
    writeWhole("new", "bytes");
    umask(previous);
    EXPECT_EQ(modeOf("new"), 0640U);
}

TEST_F(COutputFileTest, keepsThePermissionsOfTheOlderFile)
{
    fs::permissions(m_folder.write("old", "secret"), fs::perms(0604));
    const auto file = open("old");
    EXPECT_EQ(static_cast<unsigned>(fs::status(file->getPartPath().toBytes()).permissions()), 0604U) << "at once";
    file->finish();
    EXPECT_EQ(modeOf("old"), 0604U);
}

TEST_F(COutputFileTest, doesNotRunAsSomebodyElse)
{
    fs::permissions(m_folder.write("old", "program"), fs::perms(06755));
    writeWhole("old", "another program");
    EXPECT_EQ(modeOf("old"), 0755U);
}

TEST_F(COutputFileTest, keepsTheOwnerWhereTheProcessMayGiveFilesAway)
{
    const bool mayGive = geteuid() == 0;
    const uid_t owner = mayGive ? 1 : geteuid();
    const gid_t group = mayGive ? 2 : getegid();
    const fs::path old = m_folder.write("old", "bytes");
    ASSERT_EQ(chown(old.c_str(), owner, group), 0);
    writeWhole("old", "new");
    struct stat status {};
    ASSERT_EQ(stat(old.c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, owner);
    EXPECT_EQ(status.st_gid, group);
}

TEST_F(COutputFileTest, belongsToWhoWritesItOnDemandWhoeverOwnedTheOlderFile)
{
    const fs::path old = m_folder.write("old", "bytes");
    ASSERT_EQ(chown(old.c_str(), geteuid() == 0 ? 1 : geteuid(), getegid()), 0);
    const auto file = kx::newObj<COutputFile>(
        COutputFile::Path::fromBytes(old.native()), COutputFile::COptions{.readers = COutputFile::Readers::Owner});
    file->finish();
    struct stat status {};
    ASSERT_EQ(stat(old.c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, geteuid());
}

TEST_F(COutputFileTest, isNoPipeWhenOnlyItsOwnerMayReadIt)
{
    ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
    const support::CDescriptor reader(
        ::open(path("pipe").c_str(), O_RDWR | O_CLOEXEC)); // so that to open it waits for nobody
    EXPECT_EQ(support::messageOf([this] {
        kx::newObj<COutputFile>(COutputFile::Path::fromBytes(path("pipe").native()),
            COutputFile::COptions{.readers = COutputFile::Readers::Owner});
    }),
        "The file '" + kx::String::fromUTF8(path("pipe").native()) + "' cannot be written: it is no regular file.");
}

/// The process has no more rights than an ordinary user while one of these lives.
class CAsOrdinaryUser {
public:
    CAsOrdinaryUser()
    {
        if (m_wasRoot && (setegid(nobody) != 0 || seteuid(nobody) != 0))
            ADD_FAILURE() << "root cannot become another";
    }
    ~CAsOrdinaryUser()
    {
        if (m_wasRoot && (seteuid(0) != 0 || setegid(m_group) != 0))
            ADD_FAILURE() << "the process cannot become root again";
    }
    CAsOrdinaryUser(const CAsOrdinaryUser&) = delete;
    CAsOrdinaryUser& operator=(const CAsOrdinaryUser&) = delete;

private:
    static constexpr id_t nobody = 65534;

    const bool m_wasRoot = geteuid() == 0;
    const gid_t m_group = getegid();
};

/// What one of the users and groups of a file may do, as the kernel has it in an access list (acl(5), xattr(7)).
struct CAccess {
    std::uint16_t whose;
    std::uint16_t permissions;
    std::uint32_t id;
};

class COutputFileAccessTest : public COutputFileTest {
protected:
    static constexpr const char* ofTheFile = "system.posix_acl_access";
    static constexpr const char* ofNewFiles = "system.posix_acl_default";

    /// One other user may read and write, and so may the owner; the group and everybody may do nothing.
    static std::string listOfAnotherUser()
    {
        constexpr std::uint32_t version = 2;
        constexpr std::uint32_t nobody = 0xffffffff;
        constexpr std::array<CAccess, 5> entries{
            {{0x01, 6, nobody}, {0x02, 6, 12345}, {0x04, 0, nobody}, {0x10, 6, nobody}, {0x20, 0, nobody}}};
        std::string list(sizeof version + sizeof entries, '\0');
        std::memcpy(list.data(), &version, sizeof version);
        std::memcpy(list.data() + sizeof version, entries.data(), sizeof entries);
        return list;
    }

    static void setList(const fs::path& file, const char* attribute)
    {
        const std::string list = listOfAnotherUser();
        ASSERT_EQ(setxattr(file.c_str(), attribute, list.data(), list.size(), 0), 0) << std::strerror(errno);
    }

    std::string listOf(const std::string& name) const
    {
        std::array<char, 256> list{};
        const ssize_t size = getxattr(path(name).c_str(), ofTheFile, list.data(), list.size());
        return {list.data(), static_cast<size_t>(std::max<ssize_t>(size, 0))};
    }
};

TEST_F(COutputFileAccessTest, isKeptForSingleUsers)
{
    setList(m_folder.write("old", "bytes"), ofTheFile);
    writeWhole("old", "new");
    EXPECT_EQ(listOf("old"), listOfAnotherUser());
}

TEST_F(COutputFileAccessTest, isNotGivenToThoseOfTheFolderWhereTheOlderFileHasNone)
{
    ASSERT_EQ(chmod(m_folder.write("old", "bytes").c_str(), 0660), 0);
    setList(m_folder.path(), ofNewFiles);
    writeWhole("old", "new");
    EXPECT_EQ(listOf("old"), "");
    EXPECT_EQ(modeOf("old"), 0660U);
}

TEST_F(COutputFileAccessTest, isWhatTheFolderGivesToANewFile)
{
    setList(m_folder.path(), ofNewFiles);
    writeWhole("new", "bytes");
    EXPECT_EQ(listOf("new"), listOfAnotherUser());
}

TEST_F(COutputFileTest, doesNotReplaceAFileThatMustNotBeWritten)
{
    fs::permissions(m_folder.write("old", "older content"), fs::perms(0444));
    fs::permissions(m_folder.path(), fs::perms(0777));
    const CAsOrdinaryUser user;
    EXPECT_EQ(openError("old"), cannotBeWritten("old", "Permission denied"));
    EXPECT_EQ(names(), std::vector<std::string>{"old"});
}

TEST_F(COutputFileTest, saysAtOnceThatItsFolderTakesNoFile)
{
    fs::permissions(m_folder.path(), fs::perms(0555));
    {
        const CAsOrdinaryUser user;
        EXPECT_EQ(openError("new"), cannotBeWritten("new", "Permission denied"));
    }
    fs::permissions(m_folder.path(), fs::perms(0755));
}

TEST_F(COutputFileTest, keepsNothingOpenOfAFileThatCannotBeMade)
{
    const auto descriptorCount
        = [] { return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()); };
    const auto before = descriptorCount();
    EXPECT_THROW(openPath("/proc/self/file"), kx::CError); // not even root can make one there
    EXPECT_EQ(descriptorCount(), before);
}

TEST_F(COutputFileTest, givesAnotherGroupNoMoreThanEverybody)
{
    fs::permissions(m_folder.write("old", "older content"), fs::perms(0662)); // root's, in the continuous integration
    fs::permissions(m_folder.path(), fs::perms(0777));
    const bool keepsGroup = geteuid() != 0;
    const CAsOrdinaryUser user;
    writeWhole("old", "new");
    EXPECT_EQ(modeOf("old"), keepsGroup ? 0662U : 0622U);
}

TEST_F(COutputFileTest, replacesTheFileThatALinkLeadsTo)
{
    m_folder.write("folder/real", "older content");
    fs::create_symlink("folder/real", path("inner"));
    fs::create_symlink(path("inner"), path("link"));
    const auto file = open("link");
    write(*file, "new");
    EXPECT_EQ(m_folder.read("folder/real"), "older content");
    file->finish();
    EXPECT_EQ(m_folder.read("folder/real"), "new");
    EXPECT_TRUE(fs::is_symlink(path("link")));
    EXPECT_TRUE(fs::is_symlink(path("inner")));
}

TEST_F(COutputFileTest, makesTheFileThatALinkLeadsToInVain)
{
    fs::create_symlink("nothing yet", path("link"));
    writeWhole("link", "new");
    EXPECT_TRUE(fs::is_symlink(path("link")));
    EXPECT_EQ(m_folder.read("nothing yet"), "new");
}

TEST_F(COutputFileTest, refusesLinksInACircle)
{
    fs::create_symlink("b", path("a"));
    fs::create_symlink("a", path("b"));
    EXPECT_EQ(openError("a"), cannotBeWritten("a", "Too many levels of symbolic links"));
    EXPECT_TRUE(fs::is_symlink(path("a")));
}

class COutputFileChainTest : public COutputFileTest {
protected:
    /// The first of that many links, one behind the other, to the file "real".
    std::string chain(int count) const
    {
        m_folder.write("real", "older content");
        std::string last = "real";
        for (int i = 0; i < count; ++i) {
            const std::string link = "link" + std::to_string(i);
            fs::create_symlink(last, path(link));
            last = link;
        }
        return last;
    }

    static constexpr int mostLinks = 40; // that the kernel follows
};

TEST_F(COutputFileChainTest, isFollowedAsFarAsTheKernelDoes)
{
    writeWhole(chain(mostLinks), "new");
    EXPECT_EQ(m_folder.read("real"), "new");
}

TEST_F(COutputFileChainTest, isRefusedWhereItIsLongerThanTheKernelFollows)
{
    const std::string tooLong = chain(mostLinks + 1);
    EXPECT_EQ(openError(tooLong), cannotBeWritten(tooLong, "Too many levels of symbolic links"));
}

TEST_F(COutputFileTest, findsItsFolderWhenThatIsMoved)
{
    fs::create_directory(path("before"));
    const auto file = open("before/new");
    fs::rename(path("before"), path("after"));
    file->finish();
    EXPECT_TRUE(fs::exists(path("after/new")));
}

TEST_F(COutputFileTest, isFoundFromTheWorkingFolder)
{
    const fs::path before = fs::current_path();
    fs::current_path(m_folder.path());
    const auto file = openPath("new");
    fs::current_path(before);
    file->finish();
    EXPECT_TRUE(fs::exists(path("new")));
}

/// A device that is nobody else's.
TEST_F(COutputFileTest, writesStraightToADevice)
{
    const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_EQ(unlockpt(master), 0);
    const fs::path terminal = ptsname(master);
    const auto file = openPath(terminal);
    EXPECT_TRUE(file->getPartPath().isEmpty());
    write(*file, "bytes");
    file->finish();
    std::array<char, 16> bytes{};
    EXPECT_EQ(read(master, bytes.data(), bytes.size()), 5);
    EXPECT_TRUE(fs::is_character_file(terminal));
    close(master);
}

TEST_F(COutputFileTest, writesStraightToAPipe)
{
    ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
    const int reader = ::open(path("pipe").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    writeWhole("pipe", "bytes");
    std::array<char, 16> bytes{};
    EXPECT_EQ(read(reader, bytes.data(), bytes.size()), 5);
    close(reader);
    EXPECT_TRUE(fs::is_fifo(path("pipe")));
}

TEST_F(COutputFileTest, writesStraightToAPipeInAProgramWithoutStandardInput)
{
    ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
    const support::CDescriptor reader(::open(path("pipe").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    const support::CWithoutStandardInput closed;
    writeWhole("pipe", "bytes");
    std::array<char, 16> bytes{};
    EXPECT_EQ(read(reader.get(), bytes.data(), bytes.size()), 5);
}

TEST_F(COutputFileTest, closesTheFolderInAProgramWithoutStandardInput)
{
    const support::CWithoutStandardInput closed;
    writeWhole("new", "bytes");
    EXPECT_TRUE(closed.isFree());
}

TEST_F(COutputFileTest, closesAPipeThatIsNotFinishedInAProgramWithoutStandardInput)
{
    ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
    const support::CDescriptor reader(::open(path("pipe").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    const support::CWithoutStandardInput closed;
    write(*open("pipe"), "bytes");
    EXPECT_TRUE(closed.isFree());
}

TEST_F(COutputFileTest, appearsInAProgramWithoutStandardInput)
{
    const support::CWithoutStandardInput closed;
    writeWhole("new", "bytes");
    EXPECT_EQ(m_folder.read("new"), "bytes");
}

TEST_F(COutputFileTest, writesStraightToAFileThatHasNoNameAnyMore)
{
    const int descriptor = ::open(m_folder.write("gone", "older content").c_str(), O_RDWR | O_CLOEXEC);
    fs::remove(path("gone"));
    const auto file = openPath("/proc/self/fd/" + std::to_string(descriptor));
    write(*file, "bytes");
    file->finish();
    std::array<char, 16> bytes{};
    EXPECT_EQ(pread(descriptor, bytes.data(), bytes.size(), 0), 5);
    close(descriptor);
    EXPECT_TRUE(names().empty());
}

/// No file of the process may grow beyond a size while one of these lives.
class CFileSizeLimit {
public:
    explicit CFileSizeLimit(rlim_t bytes)
        : m_previousHandler(std::signal(SIGXFSZ, SIG_IGN))
    {
        getrlimit(RLIMIT_FSIZE, &m_previous);
        const rlimit limit{bytes, m_previous.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~CFileSizeLimit()
    {
        setrlimit(RLIMIT_FSIZE, &m_previous);
        std::signal(SIGXFSZ, m_previousHandler);
    }
    CFileSizeLimit(const CFileSizeLimit&) = delete;
    CFileSizeLimit& operator=(const CFileSizeLimit&) = delete;

private:
    void (*const m_previousHandler)(int);
    rlimit m_previous{};
};

TEST_F(COutputFileTest, isNeverFinishedWithBytesMissing)
{
    m_folder.write("old", "older content");
    const auto file = open("old");
    {
        const CFileSizeLimit limit(3);
        EXPECT_EQ(support::messageOf([&] { write(*file, "bytes"); }), cannotBeWritten("old", "File too large"));
    }
    EXPECT_THROW(file->finish(), kx::CError);
    EXPECT_EQ(m_folder.read("old"), "older content");
    EXPECT_EQ(names(), std::vector<std::string>{"old"});
}

TEST_F(COutputFileTest, leavesNothingBehindWhenItCannotHaveItsName)
{
    const auto file = open("new");
    fs::create_directory(path("new"));
    EXPECT_EQ(support::messageOf([&] { file->finish(); }), cannotBeWritten("new", "Is a directory"));
    EXPECT_EQ(names(), std::vector<std::string>{"new"});
}

TEST_F(COutputFileTest, takesNothingBehindItsEnd)
{
    const auto file = open("new");
    file->finish();
    const kx::String message = "The file '" + kx::String::fromUTF8(path("new").native()) + "' is closed.";
    EXPECT_EQ(support::messageOf([&] { write(*file, "x"); }), message);
    EXPECT_EQ(support::messageOf([&] { file->seek(0); }), message);
    EXPECT_EQ(support::messageOf([&] { file->finish(); }), message);
}

TEST_F(COutputFileTest, canBeWrittenAgainFromAnEarlierPosition)
{
    const auto file = open("new");
    write(*file, "0123456789");
    file->seek(3);
    EXPECT_EQ(file->getPosition(), 3);
    write(*file, "abc");
    EXPECT_EQ(file->getLength(), 10);
    file->finish();
    EXPECT_EQ(m_folder.read("new"), "012abc6789");
}

TEST_F(COutputFileTest, canBeWrittenAgainFromItsStart)
{
    const auto file = open("new");
    write(*file, "0123456789");
    file->seek(0);
    write(*file, "abc");
    file->finish();
    EXPECT_EQ(m_folder.read("new"), "abc3456789");
}

TEST_F(COutputFileTest, canBeginAnew)
{
    const auto file = open("new");
    write(*file, "a long first attempt");
    file->restart();
    EXPECT_EQ(file->getPosition(), 0);
    write(*file, "short");
    EXPECT_EQ(file->getLength(), 5);
    file->finish();
    EXPECT_EQ(m_folder.read("new"), "short");
}

TEST_F(COutputFileTest, cannotTakeBackWhatHasGoneToAPipe)
{
    ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
    const int reader = ::open(path("pipe").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    const auto file = open("pipe");
    file->restart(); // nothing has gone yet
    write(*file, "bytes");
    EXPECT_EQ(support::messageOf([&] { file->restart(); }), cannotBeWritten("pipe", "Invalid argument"));
    close(reader);
}

TEST_F(COutputFileTest, hasNoPositionsOutsideOfItself)
{
    const auto file = open("new");
    write(*file, "01234");
    EXPECT_THROW(file->seek(-1), kx::CError);
    EXPECT_THROW(file->seek(6), kx::CError);
    file->seek(5);
    EXPECT_EQ(file->getPosition(), 5);
}

TEST_F(COutputFileTest, refusesADirectory)
{
    EXPECT_EQ(openError(""), cannotBeWritten("", "Is a directory"));
    EXPECT_EQ(openError("new/"), cannotBeWritten("new/", "Is a directory"));
}

TEST_F(COutputFileTest, namesTheFolderThatIsNotThere)
{
    EXPECT_EQ(openError("nowhere/new"), cannotBeWritten("nowhere/new", "No such file or directory"));
    EXPECT_EQ(support::messageOf([] { openPath(""); }), "The file '' cannot be written: No such file or directory.");
}

TEST_F(COutputFileTest, keepsTheSystemsErrorBesideTheMessage)
{
    const auto error = support::errorOf([this] { open("nowhere/new"); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getDomain(), "");
    EXPECT_EQ(error->getCode(), -1);
    EXPECT_EQ(error->getProps().get("systemError"), kx::toString(ENOENT));
}

TEST_F(COutputFileTest, refusesANameWithAZeroCharacter)
{
    using namespace std::string_literals;
    EXPECT_THROW(openPath(path("new\0er"s)), kx::CError);
    EXPECT_TRUE(names().empty());
}

TEST_F(COutputFileTest, canHaveTheLongestOfNames)
{
    const std::string longest(255, 'n');
    writeWhole(longest, "bytes");
    EXPECT_EQ(m_folder.read(longest), "bytes");
}

TEST_F(COutputFileTest, canHaveANameOutsideUTF8)
{
    writeWhole("Gr\xFC\xDF", "bytes");
    EXPECT_EQ(m_folder.read("Gr\xFC\xDF"), "bytes");
}

class COutputFileStartTest : public COutputFileTest {
protected:
    kx::P<COutputFile> openBehind(const std::string& name) const
    {
        return kx::newObj<COutputFile>(COutputFile::Path::fromBytes(path(name).native()),
            COutputFile::COptions{.start = COutputFile::Start::OlderContent});
    }
};

TEST_F(COutputFileStartTest, goesOnBehindAnOlderFile)
{
    const std::string older(3 << 20, 'o');
    m_folder.write("old", older);
    const auto file = openBehind("old");
    EXPECT_EQ(file->getLength(), 3 << 20);
    EXPECT_EQ(file->getPosition(), 3 << 20);
    write(*file, "bytes");
    EXPECT_EQ(m_folder.read("old"), older);
    file->finish();
    EXPECT_EQ(m_folder.read("old"), older + "bytes");
}

TEST_F(COutputFileStartTest, beginsAtTheStartWhereThereIsNoOlderFile)
{
    const auto file = openBehind("new");
    EXPECT_EQ(file->getLength(), 0);
    write(*file, "bytes");
    file->finish();
    EXPECT_EQ(m_folder.read("new"), "bytes");
}

TEST_F(COutputFileStartTest, leavesTheOlderFileAsItWasWithoutAnEnd)
{
    m_folder.write("old", "older content");
    write(*openBehind("old"), "bytes");
    EXPECT_EQ(m_folder.read("old"), "older content");
    EXPECT_EQ(names(), std::vector<std::string>{"old"});
}

TEST_F(COutputFileStartTest, beginsAnewBehindTheOlderContent)
{
    m_folder.write("old", "older ");
    const auto file = openBehind("old");
    write(*file, "a first attempt");
    file->restart();
    EXPECT_EQ(file->getPosition(), 6);
    write(*file, "bytes");
    file->finish();
    EXPECT_EQ(m_folder.read("old"), "older bytes");
}

TEST_F(COutputFileStartTest, beginsAnewWithAnotherStart)
{
    m_folder.write("old", "older ");
    const auto file = openBehind("old");
    write(*file, "attempt");
    file->restart(COutputFile::Start::Empty);
    EXPECT_EQ(file->getLength(), 0);
    write(*file, "another attempt");
    file->restart();
    EXPECT_EQ(file->getLength(), 6);
    write(*file, "bytes");
    file->restart(COutputFile::Start::Empty);
    write(*file, "new");
    file->finish();
    EXPECT_EQ(m_folder.read("old"), "new");
}

TEST_F(COutputFileStartTest, hasNoPositionInTheOlderContent)
{
    m_folder.write("old", "older");
    const auto file = openBehind("old");
    write(*file, "bytes");
    file->seek(5);
    EXPECT_EQ(support::messageOf([&] { file->seek(4); }),
        "There is no position 4 in the file '" + kx::String::fromUTF8(path("old").native()) + "'.");
}

TEST_F(COutputFileTest, isForItsOwnerAloneOnDemand)
{
    m_folder.write("old", "older content");
    fs::permissions(path("old"), fs::perms::all);
    for (const char* name : {"old", "new"}) {
        const mode_t mask = umask(0);
        const auto file = kx::newObj<COutputFile>(COutputFile::Path::fromBytes(path(name).native()),
            COutputFile::COptions{.readers = COutputFile::Readers::Owner});
        umask(mask);
        EXPECT_EQ(
            fs::status(file->getPartPath().toBytes()).permissions(), fs::perms::owner_read | fs::perms::owner_write);
        file->finish();
        EXPECT_EQ(modeOf(name), 0600U);
    }
}

} // namespace
