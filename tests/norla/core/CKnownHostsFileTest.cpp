#include "norla/core/CKnownHostsFile.h"

#include "tests/support/CDescriptor.h"
#include "tests/support/CTemporaryFolder.h"
#include "tests/support/CWithoutStandardInput.h"
#include "tests/support/errorOf.h"
#include "tests/support/sleepingThread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <dlfcn.h>
#include <fcntl.h>
#include <future>
#include <optional>
#include <pwd.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

std::atomic<bool> isUserUnknown{false};

} // namespace

/// Stands before the C library's.
extern "C" int getpwuid_r(uid_t user, passwd* entry, char* buffer, size_t size, passwd** found)
{
    if (!isUserUnknown)
        return reinterpret_cast<decltype(&getpwuid_r)>(dlsym(RTLD_NEXT, "getpwuid_r"))(
            user, entry, buffer, size, found);
    *found = nullptr;
    return 0;
}

namespace {

using norla::CKnownHosts;
using norla::CKnownHostsFile;
using Verdict = CKnownHosts::Verdict;

const std::string hostKey{"\0\0\0\4type-one", 12};
const std::string otherHostKey{"\0\0\0\4type-two", 12};
const std::string knownLine = "host type AAAABHR5cGUtb25l\n";

class CKnownHostsFileTest : public testing::Test {
protected:
    CKnownHostsFile file(const std::string& name = "known_hosts") const
    {
        return CKnownHostsFile(CKnownHostsFile::Path::fromBytes((m_folder.path() / name).string()));
    }

    static kx::String reasonOf(const CKnownHostsFile& file)
    {
        const kx::String message
            = support::messageOf([&file] { static_cast<void>(file.add({.name = "host"}, hostKey)); });
        const kx::String start = "The file '" + file.getPath().toString() + "' of known SSH hosts cannot be written: ";
        return message.startsWith(start) ? message.substr(start.size()) : message;
    }

    unsigned int modeOf(const std::string& name) const
    {
        struct stat status {};
        EXPECT_EQ(stat((m_folder.path() / name).c_str(), &status), 0);
        return status.st_mode & 07777U;
    }

    const support::CTemporaryFolder m_folder;
};

TEST_F(CKnownHostsFileTest, knowsNobodyWhenItIsMissing)
{
    EXPECT_EQ(file("no/such/file").read().judge({.name = "host"}, hostKey), Verdict::Unknown);
}

TEST_F(CKnownHostsFileTest, isMadeForOneselfAlone)
{
    EXPECT_EQ(file("ssh/known_hosts").add({.name = "host"}, hostKey), Verdict::Known);
    EXPECT_EQ(m_folder.read("ssh/known_hosts"), knownLine);
    EXPECT_EQ(modeOf("ssh"), 0700U);
    EXPECT_EQ(modeOf("ssh/known_hosts"), 0600U);
}

TEST_F(CKnownHostsFileTest, keepsWhatOthersHaveWritten)
{
    const std::string before = "# comment\n\n@revoked * ssh-rsa AAAA gone\n|1|a|b ssh-rsa\ngarbage \xFF\n";
    m_folder.write("known_hosts", before);
    EXPECT_EQ(file().add({.name = "host"}, hostKey), Verdict::Known);
    EXPECT_EQ(m_folder.read("known_hosts"), before + knownLine);
}

TEST_F(CKnownHostsFileTest, keepsItsMode)
{
    chmod(m_folder.write("known_hosts", "").c_str(), 0640);
    EXPECT_EQ(file().add({.name = "host"}, hostKey), Verdict::Known);
    EXPECT_EQ(modeOf("known_hosts"), 0640U);
}

TEST_F(CKnownHostsFileTest, endsALineThatHasNoEnd)
{
    m_folder.write("known_hosts", "other");
    EXPECT_EQ(file().add({.name = "host"}, hostKey), Verdict::Known);
    EXPECT_EQ(m_folder.read("known_hosts"), "other\n" + knownLine);
}

TEST_F(CKnownHostsFileTest, isWrittenWhereALinkLeads)
{
    std::filesystem::create_symlink(m_folder.write("elsewhere", ""), m_folder.path() / "known_hosts");
    EXPECT_EQ(file().add({.name = "host"}, hostKey), Verdict::Known);
    EXPECT_EQ(m_folder.read("elsewhere"), knownLine);
}

TEST_F(CKnownHostsFileTest, hasAHostOnceHoweverManyAddIt)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([this] { EXPECT_EQ(file().add({.name = "host"}, hostKey), Verdict::Known); });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(m_folder.read("known_hosts"), knownLine);
}

TEST_F(CKnownHostsFileTest, waitsForOthersWhoAreWritingIt)
{
    const support::CDescriptor other(open(m_folder.write("known_hosts", "").c_str(), O_RDWR | O_CLOEXEC));
    ASSERT_EQ(flock(other.get(), LOCK_EX), 0);
    std::promise<pid_t> number;
    std::jthread adding([this, &number] {
        number.set_value(gettid());
        EXPECT_EQ(file().add({.name = "host"}, hostKey), Verdict::Known);
    });
    support::waitUntilAsleep(number.get_future().get());
    EXPECT_EQ(write(other.get(), knownLine.data(), knownLine.size()), static_cast<ssize_t>(knownLine.size()));
    EXPECT_EQ(flock(other.get(), LOCK_UN), 0);
    adding.join();
    EXPECT_EQ(m_folder.read("known_hosts"), knownLine);
}

TEST_F(CKnownHostsFileTest, waitsForOthersNoLongerThanItIsTold)
{
    static constexpr auto longestWait = std::chrono::milliseconds(50);
    const support::CDescriptor other(open(m_folder.write("known_hosts", "").c_str(), O_RDWR | O_CLOEXEC));
    ASSERT_EQ(flock(other.get(), LOCK_EX), 0);
    std::packaged_task<kx::String()> adding([this] {
        return support::messageOf([this] { static_cast<void>(file().add({.name = "host"}, hostKey, longestWait)); });
    });
    std::future<kx::String> message = adding.get_future();
    const std::jthread thread(std::move(adding));
    const bool isDone = message.wait_for(std::chrono::seconds(10)) == std::future_status::ready;
    EXPECT_EQ(flock(other.get(), LOCK_UN), 0); // or it would wait for ever
    EXPECT_TRUE(isDone);
    EXPECT_EQ(message.get(),
        "The file '" + file().getPath().toString() + "' of known SSH hosts cannot be written: locked by others.");
    EXPECT_EQ(m_folder.read("known_hosts"), "");
}

TEST_F(CKnownHostsFileTest, isTheOneThatOthersHavePutIntoItsPlaceMeanwhile)
{
    const support::CDescriptor other(open(m_folder.write("known_hosts", "").c_str(), O_RDWR | O_CLOEXEC));
    ASSERT_EQ(flock(other.get(), LOCK_EX), 0);
    std::promise<pid_t> number;
    std::jthread adding([this, &number] {
        number.set_value(gettid());
        EXPECT_EQ(file().add({.name = "host"}, hostKey), Verdict::Known);
    });
    support::waitUntilAsleep(number.get_future().get());
    std::filesystem::rename(m_folder.write("new", "# new\n"), m_folder.path() / "known_hosts");
    EXPECT_EQ(flock(other.get(), LOCK_UN), 0);
    adding.join();
    EXPECT_EQ(m_folder.read("known_hosts"), "# new\n" + knownLine);
}

TEST_F(CKnownHostsFileTest, isNotChangedForAHostThatOthersHaveAddedWithAnotherKey)
{
    EXPECT_EQ(file().add({.name = "host"}, otherHostKey), Verdict::Known);
    const std::string before = m_folder.read("known_hosts");
    EXPECT_EQ(file().add({.name = "host"}, hostKey), Verdict::Changed);
    EXPECT_EQ(m_folder.read("known_hosts"), before);
}

TEST_F(CKnownHostsFileTest, refusesAHostThatCannotStandInIt)
{
    const kx::String message = support::messageOf([this] { static_cast<void>(file().add({.name = "a,b"}, hostKey)); });
    EXPECT_TRUE(message.startsWith("The host 'a,b' cannot be remembered in the file '")) << message;
    EXPECT_FALSE(std::filesystem::exists(m_folder.path() / "known_hosts"));
}

TEST_F(CKnownHostsFileTest, tellsWhyItCannotBeWritten)
{
    EXPECT_EQ(reasonOf(file("no/such/file")), "No such file or directory.");
    EXPECT_EQ(reasonOf(file(".")), "Is a directory.");
    m_folder.write("file", "");
    EXPECT_EQ(reasonOf(file("file/known_hosts")), "Not a directory.");
}

TEST_F(CKnownHostsFileTest, waitsForNoPipe)
{
    ASSERT_EQ(mkfifo((m_folder.path() / "known_hosts").c_str(), 0600), 0);
    EXPECT_EQ(reasonOf(file()), "Invalid argument.");
}

TEST_F(CKnownHostsFileTest, isWrittenWhateverErrorWasBefore)
{
    errno = EINTR; // as after a wait that a signal has interrupted
    EXPECT_EQ(file("ssh/known_hosts").add({.name = "host"}, hostKey), Verdict::Known);
}

/// As a disk that is full in the middle of the line.
TEST_F(CKnownHostsFileTest, takesHalfALineBack)
{
    const std::string before = "# comment\n";
    m_folder.write("known_hosts", before);
    rlimit usual{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &usual), 0);
    rlimit small = usual;
    small.rlim_cur = before.size() + 5;
    const auto usualAction = std::signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    const kx::String reason = reasonOf(file());
    setrlimit(RLIMIT_FSIZE, &usual);
    std::signal(SIGXFSZ, usualAction);
    EXPECT_EQ(reason, "No space left on device.");
    EXPECT_EQ(m_folder.read("known_hosts"), before);
}

/// HOME as the test wants it, and as it was afterwards.
class CUsualKnownHostsFileTest : public testing::Test {
protected:
    ~CUsualKnownHostsFileTest() override
    {
        isUserUnknown = false;
        if (m_home)
            setenv("HOME", m_home->c_str(), 1);
        else
            unsetenv("HOME");
    }

private:
    const std::optional<std::string> m_home
        = std::getenv("HOME") ? std::optional<std::string>(std::getenv("HOME")) : std::nullopt;
};

TEST_F(CUsualKnownHostsFileTest, isThatOfTheUser)
{
    setenv("HOME", "/somewhere", 1);
    EXPECT_EQ(CKnownHostsFile::usualPath().toString(), "/somewhere/.ssh/known_hosts");
    for (const char* useless : {"", "relative"}) {
        setenv("HOME", useless, 1);
        const kx::String path = CKnownHostsFile::usualPath().toString();
        EXPECT_TRUE(path.startsWith("/") && path.endsWith("/.ssh/known_hosts")) << path;
        EXPECT_EQ(path.find("relative"), kx::String::npos);
    }
}

TEST_F(CUsualKnownHostsFileTest, isNoneWhereNobodyKnowsTheUser)
{
    unsetenv("HOME");
    isUserUnknown = true;
    EXPECT_EQ(support::messageOf([] { CKnownHostsFile::usualPath(); }),
        "The user has no home folder, whose .ssh/known_hosts would tell the known SSH hosts.");
}

TEST_F(CKnownHostsFileTest, isWrittenAndClosedInAProgramWithoutStandardInput)
{
    const support::CWithoutStandardInput closed;
    EXPECT_EQ(file().add({.name = "host"}, hostKey), Verdict::Known);
    EXPECT_EQ(m_folder.read("known_hosts"), knownLine);
    EXPECT_TRUE(closed.isFree());
}

TEST_F(CKnownHostsFileTest, isClosedUnchangedInAProgramWithoutStandardInput)
{
    m_folder.write("known_hosts", knownLine);
    const support::CWithoutStandardInput closed;
    EXPECT_EQ(file().add({.name = "host"}, hostKey), Verdict::Known);
    EXPECT_TRUE(closed.isFree());
}

} // namespace
