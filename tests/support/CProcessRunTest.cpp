#include "tests/support/CProcessRun.h"

#include "tests/support/CChildProcess.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <stdexcept>

using support::CProcessRun;
using testing::HasSubstr;

namespace {

CProcessRun::CSettings shell(const std::string& script)
{
    return {.arguments = {"sh", "-c", script}};
}

TEST(CProcessRunTest, capturesTheOutputsAndTheStatus)
{
    const CProcessRun run(shell("echo out; echo err >&2; exit 7"));
    EXPECT_EQ(run.output(), "out\n");
    EXPECT_EQ(run.errors(), "err\n");
    EXPECT_EQ(run.exitStatus(), 7);
}

TEST(CProcessRunTest, tellsTheSignalThatEndedTheProgram)
{
    EXPECT_EQ(CProcessRun({"sh", "-c", "kill -TERM $$"}).exitStatus(), 128 + 15);
}

TEST(CProcessRunTest, givesInputAndEnvironment)
{
    CProcessRun::CSettings settings = shell("cat; echo \"$NAME\"");
    settings.input = "input\n";
    settings.environment = {"NAME=value"};
    EXPECT_EQ(CProcessRun(settings).output(), "input\nvalue\n");
}

TEST(CProcessRunTest, passesNoLibraryPathOnByItself)
{
    const char* const before = std::getenv("LD_LIBRARY_PATH");
    const std::string original = before ? before : "";
    setenv("LD_LIBRARY_PATH", "/nowhere", 1);
    CProcessRun::CSettings settings = shell("echo \"${LD_LIBRARY_PATH-none}\"");
    const CProcessRun without(settings);
    settings.environment = support::inheritedLibraryPath();
    const CProcessRun with(settings);
    setenv("LD_LIBRARY_PATH", original.c_str(), 1);
    EXPECT_EQ(without.output(), "none\n");
    EXPECT_EQ(with.output(), "/nowhere\n");
}

TEST(CProcessRunTest, capturesMoreThanAPipeHolds)
{
    const CProcessRun run(shell("head -c 1000000 /dev/zero; head -c 1000000 /dev/zero >&2"));
    EXPECT_EQ(run.output().size(), 1'000'000U);
    EXPECT_EQ(run.errors().size(), 1'000'000U);
}

TEST(CProcessRunTest, showsTerminalsToTheProgram)
{
    const std::string script = "test -t 1 && echo out; test -t 2 && echo err >&2; stty size < /dev/stderr";
    CProcessRun::CSettings settings = shell(script);
    settings.terminal = CProcessRun::Terminal::Errors;
    const CProcessRun errors(settings);
    EXPECT_EQ(errors.output(), "24 80\n");
    EXPECT_EQ(errors.errors(), "err\n");
    settings.terminal = CProcessRun::Terminal::Both;
    const CProcessRun both(settings);
    EXPECT_EQ(both.output(), "out\n24 80\n");
    EXPECT_EQ(both.errors(), "err\n");
    settings.terminal = CProcessRun::Terminal::Output;
    EXPECT_EQ(CProcessRun(settings).output(), "out\n");
}

TEST(CProcessRunTest, killsAProgramThatTakesTooLong)
{
    CProcessRun::CSettings settings = shell("echo begun; sleep 1000");
    settings.limit = std::chrono::milliseconds(300);
    try {
        const CProcessRun run(settings);
        FAIL() << "no error";
    } catch (const std::runtime_error& error) {
        EXPECT_THAT(error.what(), HasSubstr("sh did not end in time; its output: begun\n"));
    }
}

TEST(CProcessRunTest, namesTheProgramThatIsMissing)
{
    EXPECT_THROW(CProcessRun({"no-such-program"}), std::runtime_error);
}

} // namespace
