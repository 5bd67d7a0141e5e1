// The example get when it is ended in the middle, and at a terminal.
#include "tests/live/CGetRun.h"
#include "tests/live/CTerminalRun.h"
#include "tests/support/CChildProcess.h"
#include "tests/support/CDescriptor.h"
#include "tests/support/CFTPServer.h"
#include "tests/support/distinctBytes.h"
#include "tests/support/files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <regex>
#include <sstream>

namespace {

using live::CGetRun;
using live::CTerminalRun;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

constexpr size_t fileSize = 8 << 20;

class GetEndTest : public testing::Test, protected CGetRun {
protected:
    GetEndTest() { support::writeFile(server().root() / "file.bin", m_bytes); }

    /// Ends a slow run by a signal, when it has noted for the first time what has come.
    void interrupt(int number, std::vector<std::string> urls)
    {
        urls.insert(urls.begin(), {"--limit", "1M"});
        const live::CSignalDisposition disposition(number, SIG_DFL);
        const support::CDescriptor errors(open(elsewhere("errors", "").c_str(), O_RDWR | O_CLOEXEC));
        const auto command = live::prepared({.arguments = this->command(std::move(urls))});
        support::CChildProcess program(
            {.arguments = command.arguments, .environment = command.environment, .errors = errors.get()});
        const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (!isThere("file.bin.norla-record") && std::chrono::steady_clock::now() < limit)
            ASSERT_FALSE(program.waitForEnd(std::chrono::milliseconds(5)));
        ASSERT_EQ(kill(program.getPid(), number), 0);
        ASSERT_TRUE(program.waitForEnd(std::chrono::seconds(10)));
        EXPECT_EQ(program.exitStatus(), 128 + number);
        m_errors.resize(1 << 16);
        const ssize_t size = pread(errors.get(), m_errors.data(), m_errors.size(), 0);
        m_errors.resize(static_cast<size_t>(std::max<ssize_t>(size, 0)));
    }

    bool isThere(const std::string& name) const { return std::filesystem::exists(folder() / name); }

    /// Whether the last request was one for the rest of the file.
    bool hasGoneOn() const
    {
        return std::regex_search(server().lastAccess(), std::regex("GET /file.bin .* 206 range=bytes=[1-9][0-9]*- "));
    }

    const std::string m_bytes = support::distinctBytes(fileSize);
    std::string m_errors;
};

TEST_F(GetEndTest, goesOnBehindAKill)
{
    interrupt(SIGKILL, {server().url("/file.bin")});
    EXPECT_FALSE(isThere("file.bin"));
    const auto result = get({server().url("/file.bin")});
    EXPECT_EQ(result.exitStatus(), 0);
    EXPECT_TRUE(content("file.bin") == m_bytes);
    EXPECT_TRUE(hasGoneOn()) << server().lastAccess();
    EXPECT_THAT(result.errors(), testing::StartsWith("get: file.bin: 8.0 MiB, "));
    EXPECT_THAT(result.errors(), HasSubstr(" of it now\n"));
    EXPECT_EQ(files().size(), 1U);
}

TEST_F(GetEndTest, keepsThePartsAtASignalAndSaysSo)
{
    interrupt(SIGINT, {server().url("/file.bin"), server().url("/digits.txt")});
    EXPECT_THAT(m_errors,
        testing::ContainsRegex("\nget: file.bin: not whole \\([0-9.]+ [KM]iB kept\\)\n"
                               "get: interrupted; to go on, run it again with --skip\n"
                               "get: 1 of 2 files, "));
    EXPECT_TRUE(isThere("file.bin.norla-part"));
    EXPECT_FALSE(isThere("file.bin"));
    EXPECT_EQ(content("digits.txt"), "0123456789");
    EXPECT_EQ(get({"--skip", server().url("/file.bin"), server().url("/digits.txt")}).exitStatus(), 0);
    EXPECT_TRUE(hasGoneOn()) << server().lastAccess();
    EXPECT_TRUE(content("file.bin") == m_bytes);
}

TEST_F(GetEndTest, endsAlsoWhatWaits)
{
    interrupt(SIGTERM, {"--at-once", "1", server().url("/file.bin"), server().url("/digits.txt")});
    EXPECT_FALSE(isThere("digits.txt"));
    EXPECT_THAT(m_errors, HasSubstr("get: 0 of 2 files, "));
    EXPECT_THAT(m_errors, Not(HasSubstr("digits")));
}

TEST_F(GetEndTest, beginsAnewWhenItIsToldTo)
{
    interrupt(SIGKILL, {server().url("/file.bin")});
    EXPECT_EQ(get({"--anew", server().url("/file.bin")}).exitStatus(), 0);
    EXPECT_THAT(server().lastAccess(), HasSubstr(" 200 range=- "));
    EXPECT_TRUE(content("file.bin") == m_bytes);
}

TEST_F(GetEndTest, goesOnWhenItIsToldTo)
{
    interrupt(SIGKILL, {server().url("/file.bin")});
    EXPECT_EQ(get({"--resume", server().url("/file.bin")}).exitStatus(), 0);
    EXPECT_TRUE(hasGoneOn()) << server().lastAccess();
    EXPECT_TRUE(content("file.bin") == m_bytes);
}

TEST_F(GetEndTest, tellsWhatIsKeptBehindAFailureToo)
{
    interrupt(SIGKILL, {server().url("/file.bin")});
    std::filesystem::remove(server().root() / "file.bin");
    const auto result = get({server().url("/file.bin")});
    EXPECT_EQ(result.exitStatus(), 1);
    EXPECT_THAT(result.errors(),
        testing::ContainsRegex("There is no '/file.bin' [^\n]* \\([0-9.]+ [KM]iB kept\\)\n"
                               "get: to go on, run it again\n"));
}

TEST_F(GetEndTest, fetchesAFileOverSeveralConnections)
{
    const std::string bytes = support::distinctBytes(12 << 20);
    support::writeFile(server().root() / "large.bin", bytes);
    EXPECT_EQ(get({"--segments", "4", "--limit", "16M", server().url("/large.bin")}).exitStatus(), 0);
    EXPECT_TRUE(content("large.bin") == bytes);
    const auto log = server().accessLog();
    EXPECT_GE(std::count_if(log.begin(), log.end(),
                  [](const std::string& line) { return line.find(" 206 ") != std::string::npos; }),
        2);
}

/// What a terminal has shown, in lines as wide as they were written, without commands to the cursor.
std::vector<std::string> linesOf(const std::string& shown)
{
    const std::string text = std::regex_replace(shown, std::regex("\033\\[[0-9]*[A-Z]|\r"), "");
    std::istringstream all(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(all, line);)
        lines.push_back(line);
    return lines;
}

TEST_F(GetEndTest, drawsALineOfProgressForEachFile)
{
    support::writeFile(server().root() / "also with a name that is long.bin", m_bytes);
    CTerminalRun terminal(command({"--limit", "8M", server().url("/file.bin"),
                              server().url("/also%20with%20a%20name%20that%20is%20long.bin")}),
        {}, 60);
    EXPECT_EQ(terminal.waitForEnd(), 0);
    const auto lines = linesOf(terminal.shown());
    EXPECT_THAT(lines,
        testing::Contains(
            testing::MatchesRegex("file\\.bin  *[0-9]+%  *[0-9.]+ [KM]iB  *[0-9.]+ [KM]iB/s  *[0-9]:[0-5][0-9] left")))
        << terminal.shown();
    EXPECT_THAT(lines, testing::Contains(testing::MatchesRegex("also with a name t  *[0-9]+%  *[0-9.]+ [KM]iB .*")));
    EXPECT_THAT(lines, testing::Contains(testing::MatchesRegex("[01] of 2 files  *[0-9]+%  *[0-9.]+ [KM]iB .*")));
    EXPECT_THAT(lines, testing::Contains("get: file.bin: 8.0 MiB"));
    for (const std::string& line : lines)
        EXPECT_TRUE(line.size() < 60 || line.starts_with("get: ")) << line;
}

TEST_F(GetEndTest, drawsNoMoreThanThereIsRoomFor)
{
    std::vector<std::string> words{"--limit", "3M", "--at-once", "8"};
    for (int i = 0; i < 8; ++i) {
        const std::string name = "file-" + std::to_string(i);
        support::writeFile(server().root() / name, m_bytes.substr(0, 1 << 20));
        words.push_back(server().url("/" + name));
    }
    constexpr unsigned short columns = 24;
    constexpr unsigned short rows = 5;
    CTerminalRun terminal(command(words), {}, columns, rows);
    EXPECT_EQ(terminal.waitForEnd(), 0);
    const std::regex up("\033\\[([0-9]+)A");
    size_t moves = 0;
    for (std::sregex_iterator move(terminal.shown().begin(), terminal.shown().end(), up);
         move != std::sregex_iterator(); ++move, ++moves)
        EXPECT_LT(std::stoi((*move)[1]), rows);
    EXPECT_GT(moves, 0U) << terminal.shown();
    for (const std::string& line : linesOf(terminal.shown()))
        EXPECT_TRUE(line.size() < columns || line.starts_with("get: ")) << line;
}

TEST_F(GetEndTest, drawsNothingWhereTheCursorCannotGoUpOrNobodyWantsIt)
{
    CTerminalRun dumb(command({server().url("/digits.txt")}), {"TERM=dumb"});
    EXPECT_EQ(dumb.waitForEnd(), 0);
    EXPECT_THAT(dumb.shown(), testing::StartsWith("get: digits.txt: 10 B\r\nget: 1 file, "));
    CTerminalRun quiet(command({"--quiet", "--overwrite", server().url("/digits.txt")}));
    EXPECT_EQ(quiet.waitForEnd(), 0);
    EXPECT_EQ(quiet.shown(), "");
}

TEST_F(GetEndTest, asksForEachPasswordOnce)
{
    const support::CFTPServer ftp;
    support::writeFile(ftp.root() / "more.txt", "more");
    const std::string address = "ftp://user@127.0.0.1:" + std::to_string(ftp.getPort());
    CTerminalRun terminal(command({address + "/digits.txt", address + "/more.txt"}));
    terminal.waitFor("Password for user at 127.0.0.1:" + std::to_string(ftp.getPort()) + ": ");
    terminal.type("secret\n");
    EXPECT_EQ(terminal.waitForEnd(), 0) << terminal.shown();
    EXPECT_THAT(files(), ElementsAre("digits.txt=0123456789", "more.txt=more"));
}

} // namespace
