#include "tests/support/CServerProcess.h"

#include "tests/support/CTemporaryFolder.h"
#include "tests/support/loopback.h"
#include "tests/support/systemError.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <fcntl.h>
#include <memory>
#include <poll.h>
#include <signal.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

using support::CServerProcess;
using testing::HasSubstr;

namespace {

class CServerProcessTest : public testing::Test {
protected:
    CServerProcess::CSettings shell(const std::string& script) const
    {
        return {.arguments = {"/bin/sh", "-c", script}, .package = "dash", .logFile = m_folder.path() / "log"};
    }

    const support::CTemporaryFolder& folder() const { return m_folder; }

private:
    support::CTemporaryFolder m_folder;
};

const char* const startsAStubbornProcess = "(trap '' TERM; echo started; sleep 1000) & wait";

/// A pipe that tells whether somebody else still holds its writing end.
struct CPipe {
    CPipe()
    {
        std::array<int, 2> ends{};
        support::checked(pipe2(ends.data(), O_CLOEXEC), "pipe2");
        readEnd = support::CDescriptor(ends[0]);
        writeEnd = support::CDescriptor(ends[1]);
    }

    /// Closes our writing end. @return whether all others are closed within ten seconds
    bool isLetGo()
    {
        writeEnd.close();
        pollfd watched{readEnd.get(), POLLIN, 0};
        return poll(&watched, 1, 10'000) == 1;
    }

    support::CDescriptor readEnd;
    support::CDescriptor writeEnd;
};

/// @return what the action throws
template <typename TAction>
std::string errorOf(TAction action)
{
    try {
        action();
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "no error";
}

TEST_F(CServerProcessTest, namesTheProgramAndThePackageThatAreMissing)
{
    CServerProcess::CSettings settings = shell("");
    settings.arguments = {"/usr/sbin/no-such-server"};
    settings.package = "no-such-package";
    EXPECT_EQ(errorOf([&] { CServerProcess process(settings); }),
        "there is no program /usr/sbin/no-such-server: install the Debian package no-such-package");
}

TEST_F(CServerProcessTest, failsWithTheLogOfAProgramThatEnds)
{
    CServerProcess process(shell("echo 'cannot serve' >&2; exit 3"));
    EXPECT_EQ(errorOf([&] { process.waitUntilLogged("ready"); }),
        "/bin/sh (Debian package dash) ended with status 3; its log: cannot serve\n");
}

TEST_F(CServerProcessTest, isReadyWhenItHasLoggedSo)
{
    CServerProcess process(shell("echo \"$VARIABLE\"; sleep 1000"));
    process.waitUntilLogged("\n");
    CServerProcess::CSettings settings = shell("echo \"$VARIABLE\"; sleep 1000");
    settings.environment = {"VARIABLE=its value"};
    CServerProcess other(settings);
    other.waitUntilLogged("its value\n");
    EXPECT_EQ(other.log(), "its value\n");
}

TEST_F(CServerProcessTest, inheritsTheGivenSocketsAlone)
{
    const support::CDescriptor given = support::listenOnLoopback();
    const support::CDescriptor kept = support::listenOnLoopback();
    CServerProcess::CSettings settings = shell("ls -l /proc/self/fd | grep -c socket; sleep 1000");
    settings.inheritedDescriptors = {given.get()};
    CServerProcess process(settings);
    process.waitUntilLogged("\n");
    EXPECT_EQ(process.log(), "1\n");
}

TEST_F(CServerProcessTest, isConnectableWhileItHoldsAListeningSocket)
{
    support::CDescriptor listener = support::listenOnLoopback();
    const unsigned short port = support::portOf(listener.get());
    CServerProcess::CSettings settings = shell("exec sleep 1000");
    settings.inheritedDescriptors = {listener.get()};
    CServerProcess process(settings);
    listener.close();
    process.waitUntilConnectable(port);
    process.stop();
    EXPECT_FALSE(support::connectToLoopback(port));
}

TEST_F(CServerProcessTest, stopEndsWhatTheProgramHasStarted)
{
    CPipe pipe;
    CServerProcess::CSettings settings = shell(startsAStubbornProcess);
    settings.inheritedDescriptors = {pipe.writeEnd.get()};
    CServerProcess process(settings);
    process.waitUntilLogged("started");
    process.stop();
    process.stop();
    EXPECT_TRUE(pipe.isLetGo());
}

TEST_F(CServerProcessTest, killEndsWhatTheProgramHasStarted)
{
    CPipe pipe;
    CServerProcess::CSettings settings = shell("trap '' TERM; " + std::string(startsAStubbornProcess));
    settings.inheritedDescriptors = {pipe.writeEnd.get()};
    CServerProcess process(settings);
    process.waitUntilLogged("started");
    process.kill();
    process.kill();
    EXPECT_TRUE(pipe.isLetGo());
}

TEST_F(CServerProcessTest, nothingOutlivesATestThatIsKilled)
{
    CPipe pipe;
    const pid_t test = fork();
    if (test == 0) {
        CServerProcess::CSettings settings = shell(startsAStubbornProcess);
        settings.inheritedDescriptors = {pipe.writeEnd.get()};
        CServerProcess process(settings);
        process.waitUntilLogged("started");
        raise(SIGKILL);
    }
    int status = 0;
    EXPECT_EQ(waitpid(test, &status, 0), test);
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_THAT(folder().read("log"), HasSubstr("started"));
    EXPECT_TRUE(pipe.isLetGo());
}

TEST_F(CServerProcessTest, takesAnotherPortIfSomebodyWasFaster)
{
    int attempts = 0;
    unsigned short port = 0;
    const auto settingsFor = [&](unsigned short) {
        return shell(++attempts < 3 ? "echo Address already in use; exit 1" : "echo listening; sleep 1000");
    };
    const auto server = CServerProcess::startOnFreePort(settingsFor, "listening", port);
    EXPECT_EQ(attempts, 3);
    EXPECT_NE(port, 0);
    const auto failing = [&](unsigned short) { return shell("echo broken; exit 1"); };
    EXPECT_THAT(errorOf([&] { CServerProcess::startOnFreePort(failing, "listening", port); }), HasSubstr("broken"));
}

} // namespace
