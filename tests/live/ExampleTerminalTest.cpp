// What the example programs show on a terminal: no more than it has room for, and nothing that it takes for a command.
#include "examples/printable.h"
#include "examples/terminal.h"
#include "tests/live/CTerminalRun.h"
#include "tests/live/exampleRun.h"
#include "tests/support/CFTPServer.h"
#include "tests/support/CNginxServer.h"
#include "tests/support/CScriptedServer.h"
#include "tests/support/CTemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <memory>
#include <sstream>

namespace {

using live::CTerminalRun;
using live::run;
using support::CProcessRun;
using testing::HasSubstr;
using testing::Not;

TEST(PrintableTest, showsControlCharactersAndStrayBytes)
{
    EXPECT_EQ(printable(std::string("a\x1b[2J\r\n\t\x7f")), "a\\x1b[2J\\x0d\\x0a\\x09\\x7f");
    EXPECT_EQ(printable(kx::String(L"\x9b\x85")), "\\x9b\\x85"); // what some terminals take for escape sequences
    EXPECT_EQ(printable(std::string("gr\xFCn")), "gr\\xfcn");
}

TEST(PrintableTest, showsWhatTurnsTextAround)
{
    EXPECT_EQ(printable(kx::String(L"a\x202e"
                                   L"b\x2066\x200f")),
        "a\\u202eb\\u2066\\u200f");
}

TEST(PrintableTest, leavesLettersAlone)
{
    EXPECT_EQ(printable(std::string("Gr\xC3\xBC\xC3\x9F\x65 \xE2\x82\xAC \xF0\x9F\x98\x80")),
        "Gr\xC3\xBC\xC3\x9F\x65 \xE2\x82\xAC \xF0\x9F\x98\x80");
}

TEST(FittedTest, countsWhatTheTerminalShows)
{
    EXPECT_EQ(fitted("abcdef", 3), "abc");
    EXPECT_EQ(fitted(L"\x6f22\x5b57\x6f22", 5), "\xE6\xBC\xA2\xE5\xAD\x97");
    EXPECT_EQ(fitted("a\x1b"
                     "b",
                  4),
        "a"); // "\x1b" is shown in four columns
    EXPECT_EQ(fitted("a\x1b"
                     "b",
                  6),
        "a\\x1bb");
}

class ExampleTerminalTest : public testing::Test {
protected:
    static void SetUpTestSuite() { s_server = std::make_unique<support::CNginxServer>(); }
    static void TearDownTestSuite() { s_server.reset(); }

    static support::CNginxServer& server() { return *s_server; }

    /// The widest of the lines, which are separated by "\r" or "\n" and may begin by clearing the line.
    static size_t widest(const std::string& shown)
    {
        size_t width = 0;
        std::string text = shown;
        for (size_t at = 0; (at = text.find("\033[K")) != std::string::npos;)
            text.erase(at, 3);
        std::replace(text.begin(), text.end(), '\r', '\n');
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);)
            width = std::max(width, line.size());
        return width;
    }

    support::CTemporaryFolder m_folder;

private:
    static inline std::unique_ptr<support::CNginxServer> s_server;
};

TEST_F(ExampleTerminalTest, hasABarOfItsWidth)
{
    const std::string url = server().url(server().big(1 << 20));
    for (const unsigned short columns : std::array<unsigned short, 2>{40, 100}) {
        CTerminalRun fetch({"fetch", "--output", m_folder.path() / "big", url}, {}, columns);
        EXPECT_EQ(fetch.waitForEnd(), 0);
        const std::string bar = fetch.shown().substr(0, fetch.shown().find("100 %") + 5);
        EXPECT_EQ(widest(bar), columns - 1U) << fetch.shown();
        EXPECT_THAT(fetch.shown(), HasSubstr("\r[" + std::string(columns - 9U, '#') + "] 100 %"));
    }
}

TEST_F(ExampleTerminalTest, hasNoBarWhereThereIsNoRoom)
{
    CTerminalRun fetch({"fetch", "--output", m_folder.path() / "f", server().url("/digits.txt")}, {}, 8);
    EXPECT_EQ(fetch.waitForEnd(), 0);
    EXPECT_THAT(fetch.shown(), HasSubstr("\r100 %\r\n"));
}

TEST_F(ExampleTerminalTest, hasNoBarInWhatIsFetchedToIt)
{
    CTerminalRun fetch({"fetch", server().url("/digits.txt")});
    EXPECT_EQ(fetch.waitForEnd(), 0);
    EXPECT_TRUE(fetch.shown().starts_with("012345678910 bytes at ")) << fetch.shown();
}

TEST_F(ExampleTerminalTest, hasNoLinesOfDownloadsWhereTheCursorCannotGoUp)
{
    CTerminalRun downloads({"downloads", m_folder.path(), server().url("/digits.txt")}, {"TERM=dumb"});
    EXPECT_EQ(downloads.waitForEnd(), 0);
    EXPECT_EQ(downloads.shown(), "");
}

TEST_F(ExampleTerminalTest, hasNoMoreLinesOfDownloadsThanRows)
{
    constexpr unsigned short rows = 10;
    std::vector<std::string> words{"downloads", m_folder.path()};
    for (int i = 0; i < 40; ++i) {
        const std::string name = "a-file-with-a-name-that-is-longer-than-the-terminal-" + std::to_string(i);
        std::ofstream(server().root() / name) << "content";
        words.push_back(server().url("/" + name));
    }
    CTerminalRun downloads(words, {}, 30, rows);
    EXPECT_EQ(downloads.waitForEnd(), 0) << downloads.shown();
    EXPECT_THAT(downloads.shown(), HasSubstr("40 of 40 have ended\r\n"));
    EXPECT_LT(widest(downloads.shown().substr(downloads.shown().find("\033[K"))), 30U);
    const std::string up = "\033[" + std::to_string(rows - 1) + "A";
    size_t moves = 0;
    for (size_t at = 0; (at = downloads.shown().find("\033[", at)) != std::string::npos; ++at) {
        if (downloads.shown()[at + 2] == 'K')
            continue;
        ++moves;
        EXPECT_EQ(downloads.shown().substr(at, up.size()), up);
    }
    EXPECT_GT(moves, 0U);
}

TEST_F(ExampleTerminalTest, takesNoNameOfAURLForACommand)
{
    const std::string name = "a\x1b[2J\xC2\x9B.txt";
    const std::string url = server().url("/" + name);
    const auto shown
        = run({"downloads", m_folder.path(), url, server().url("/digits.txt")}, CProcessRun::Terminal::Errors);
    EXPECT_THAT(shown.errors(), Not(HasSubstr("\x1b[2J")));
    EXPECT_THAT(shown.errors(), Not(HasSubstr("\xC2\x9B")));
    EXPECT_THAT(shown.errors(), HasSubstr("a\\x1b[2J"));
    EXPECT_THAT(run({"fetch", url}).errors(), Not(HasSubstr("\x1b")));
    EXPECT_THAT(run({"fetch", "--" + name}).errors(), Not(HasSubstr("\x1b")));
}

TEST_F(ExampleTerminalTest, takesNoWordsOfAServerForACommand)
{
    support::CScriptedServer scripted;
    scripted.onConnection().readHead().send("HTTP/1.1 404 No\x1b[2J\r\nContent-Type: text/plain\r\n"
                                            "Content-Length: 8\r\n\r\nNo\x1b]0;x\n");
    const auto result = run({"fetch", scripted.url("/a")});
    EXPECT_THAT(result.errors(), Not(HasSubstr("\x1b")));
    EXPECT_THAT(result.errors(), HasSubstr("\n  404 No\\x1b[2J\n  No\\x1b]0;x\n"));
}

TEST_F(ExampleTerminalTest, isNotFilledWithTheWordsOfAServer)
{
    support::CScriptedServer scripted;
    scripted.onConnection().readHead().send(
        "HTTP/1.1 404 " + std::string(20000, 'x') + "\r\nContent-Length: 0\r\n\r\n");
    const auto result = run({"fetch", scripted.url("/a")});
    EXPECT_THAT(result.errors(), HasSubstr("\n  404 " + std::string(296, 'x') + "\n"));
}

TEST_F(ExampleTerminalTest, takesNoNameOfAServersFileForACommand)
{
    const support::CFTPServer ftp;
    std::ofstream(ftp.root() / "a\x1b[2J") << "";
    const std::vector<std::string> list{"ftp", "127.0.0.1:" + std::to_string(ftp.getPort()), "ls", "/"};
    const std::vector<std::string> login{"FTP_USER=user", "FTP_PASSWORD=secret"};
    const auto shown = run({.arguments = list, .environment = login, .terminal = CProcessRun::Terminal::Output});
    EXPECT_THAT(shown.output(), HasSubstr("\ta\\x1b[2J\n")) << shown.errors();
    const auto piped = run({.arguments = list, .environment = login});
    EXPECT_THAT(piped.output(), HasSubstr("\ta\x1b[2J\n"));
}

} // namespace
