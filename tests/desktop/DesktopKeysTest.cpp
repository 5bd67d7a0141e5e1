// The example desktop as a person uses it who has a keyboard.
#include "tests/desktop/CVirtualDisplay.h"
#include "tests/support/CProcessRun.h"
#include "tests/support/CScriptedServer.h"
#include "tests/support/CServerProcess.h"
#include "tests/support/CTemporaryFolder.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

using Words = std::vector<std::string>;

constexpr const char* head = "HTTP/1.1 200 OK\r\nETag: \"1\"\r\nContent-Length: 6\r\n";
constexpr const char* end = "Connection: close\r\n\r\nabcdef";

class DesktopKeysTest : public testing::Test {
protected:
    /// Opens the window. @param urls what is in its list
    void start(const Words& urls = {})
    {
        Words arguments{NORLA_DESKTOP, "--directory", m_folder.path().string()};
        arguments.insert(arguments.end(), urls.begin(), urls.end());
        m_program = std::make_unique<support::CServerProcess>(support::CServerProcess::CSettings{.arguments = arguments,
            .package = "",
            .logFile = m_logs.path() / "log",
            .environment = environment(),
            .stopLimit = std::chrono::seconds(60)});
        use({"search", "--sync", "--onlyvisible", "--name", "^Downloads$", "windowfocus", "--sync"});
    }

    void type(const std::string& text) { use({"type", "--delay", "1", text}); }
    void press(const std::string& key) { use({"key", key}); }

    /// From the line for a URL to the list, of which all is chosen then.
    void chooseAll()
    {
        for (const char* key : {"Tab", "Tab", "ctrl+a"})
            press(key);
    }

    /// Again and again, since what is not possible yet does nothing, for 20 seconds at most. @return whether it is
    /// there
    bool pressUntilFileIsThere(const Words& keys)
    {
        const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (!isFileThere() && std::chrono::steady_clock::now() < limit) {
            for (const std::string& key : keys)
                press(key);
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        return isFileThere();
    }

    support::CScriptedServer server;

private:
    Words environment() const
    {
        Words words = m_display.environment();
        for (const std::string& word : support::inheritedLibraryPath())
            words.push_back(word);
        return words;
    }

    void use(Words words) const
    {
        words.insert(words.begin(), "xdotool");
        const support::CProcessRun run({.arguments = words, .package = "xdotool", .environment = environment()});
        ASSERT_EQ(run.exitStatus(), 0) << run.errors();
    }

    bool isFileThere() const
    {
        return std::filesystem::exists(m_folder.path() / "file") && m_folder.read("file") == "abcdef";
    }

    const support::CTemporaryFolder m_folder;
    const support::CTemporaryFolder m_logs;
    const CVirtualDisplay m_display;
    std::unique_ptr<support::CServerProcess> m_program;
};

TEST_F(DesktopKeysTest, aURLThatIsTypedIsDownloaded)
{
    server.onConnection().readHead().send(std::string(head) + end);
    start();
    type(server.url("/file"));
    EXPECT_TRUE(pressUntilFileIsThere({"Return"}));
}

TEST_F(DesktopKeysTest, whatHasFailedIsTriedAgain)
{
    server.onConnection().readHead().send("HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
    server.onConnection().readHead().send(std::string(head) + end);
    start({server.url("/file")});
    chooseAll();
    EXPECT_TRUE(pressUntilFileIsThere({"alt+t"}));
}

TEST_F(DesktopKeysTest, aDownloadPausesAndGoesOn)
{
    server.onConnection().readHead().send(std::string(head) + "\r\nabc").stall();
    server.onConnection().readHead().send(
        "HTTP/1.1 206 Partial Content\r\nETag: \"1\"\r\nContent-Range: bytes 0-5/6\r\n"
        "Content-Length: 6\r\n"
        + std::string(end));
    start({server.url("/file")});
    chooseAll();
    EXPECT_TRUE(pressUntilFileIsThere({"alt+p", "alt+r"}));
}

TEST_F(DesktopKeysTest, aDownloadThatWasCancelledIsTriedAgain)
{
    server.onConnection().readHead().stall();
    server.onConnection().readHead().send(std::string(head) + end);
    start({server.url("/file")});
    chooseAll();
    EXPECT_TRUE(pressUntilFileIsThere({"alt+c", "alt+t"}));
}

} // namespace
