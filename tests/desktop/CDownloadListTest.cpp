#include "examples/desktop/CDownloadList.h"

#include "examples/desktop/CMainLoopExecutor.h"
#include "tests/support/CScriptedServer.h"
#include "tests/support/CTemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <thread>

namespace {

using norla::FileState;

constexpr const char* wholeAnswer
    = "HTTP/1.1 200 OK\r\nETag: \"1\"\r\nContent-Length: 6\r\nConnection: close\r\n\r\nabcdef";

/// A list whose callbacks come in the default main loop, which runs on the test's thread.
class CDownloadListTest : public testing::Test {
protected:
    CDownloadListTest()
    {
        CDownloadListSettings settings{.folder = Path::fromBytes(m_folder.path().native()),
            .atOnce = 2,
            .executor = kx::newObj<CMainLoopExecutor>(),
            .onChange = {}};
        settings.onChange = [this](size_t number) {
            EXPECT_EQ(std::this_thread::get_id(), m_thread);
            ++m_changes[number];
        };
        list.emplace(settings);
    }

    size_t add(const std::string& url) { return list->add(kx::String::fromUTF8(url)); }

    FileState stateOf(size_t number) const { return list->at(number).status().state; }

    /// Runs the loop until then, or for 20 seconds. What happens elsewhere is looked at 100 times a second.
    template <typename TCondition>
    bool runUntil(TCondition isReached)
    {
        const guint looks = g_timeout_add(
            10, [](gpointer) -> gboolean { return G_SOURCE_CONTINUE; }, nullptr);
        const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (!isReached() && std::chrono::steady_clock::now() < limit)
            g_main_context_iteration(nullptr, TRUE);
        g_source_remove(looks);
        return isReached();
    }

    /// The end is told behind it.
    bool runToEnd(size_t number)
    {
        const int before = m_changes[number];
        return runUntil([&] { return list->at(number).status().hasEnded() && m_changes[number] > before; });
    }

    std::string contentOf(const std::string& name) const { return m_folder.read(name); }

    support::CScriptedServer server;

private:
    const std::thread::id m_thread = std::this_thread::get_id();
    const support::CTemporaryFolder m_folder;
    std::map<size_t, int> m_changes;

protected:
    std::optional<CDownloadList> list;
};

TEST_F(CDownloadListTest, downloadsAFile)
{
    server.onConnection().readHead().send(wholeAnswer);
    const size_t number = add(server.url("/file.txt"));
    ASSERT_TRUE(runToEnd(number));
    EXPECT_EQ(stateOf(number), FileState::Succeeded) << list->at(number).status().text().toUTF8();
    EXPECT_EQ(contentOf("file.txt"), "abcdef");
    EXPECT_EQ(list->summary().substr(0, 16), "1 of 1 are there");
    EXPECT_TRUE(list->hasEnded());
}

TEST_F(CDownloadListTest, filesOfOneNameAreSeveral)
{
    for (int i = 0; i < 2; ++i)
        server.onConnection().readHead().send(wholeAnswer);
    EXPECT_EQ(list->at(add(server.url("/a/file.txt"))).name(), "file.txt");
    EXPECT_EQ(list->at(add(server.url("/b/file.txt"))).name(), "file (2).txt");
    ASSERT_TRUE(runUntil([&] { return list->hasEnded(); }));
    EXPECT_EQ(contentOf("file.txt"), "abcdef");
    EXPECT_EQ(contentOf("file (2).txt"), "abcdef");
}

TEST_F(CDownloadListTest, aURLWithoutANameHasAFileToo)
{
    server.onConnection().readHead().send(wholeAnswer);
    EXPECT_EQ(list->at(add(server.url("/"))).name(), "download");
}

TEST_F(CDownloadListTest, whatIsNoURLIsRefusedAndNotInTheList)
{
    EXPECT_THROW(add("gopher://127.0.0.1/file"), kx::CError);
    EXPECT_THROW(add("https://"), kx::CError);
    EXPECT_EQ(list->size(), 0U);
}

TEST_F(CDownloadListTest, whatHasFailedIsTriedAgain)
{
    server.onConnection().readHead().send("HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
    server.onConnection().readHead().send(wholeAnswer);
    const size_t number = add(server.url("/file.txt"));
    ASSERT_TRUE(runToEnd(number));
    EXPECT_EQ(stateOf(number), FileState::Failed);
    EXPECT_EQ(list->at(number).status().text(),
        kx::String::fromUTF8(
            "There is no '/file.txt' on the server 127.0.0.1:" + std::to_string(server.getPort()) + "."));
    list->act(DownloadAction::Retry, number);
    EXPECT_FALSE(list->hasEnded());
    ASSERT_TRUE(runToEnd(number));
    EXPECT_EQ(stateOf(number), FileState::Succeeded);
    EXPECT_EQ(contentOf("file.txt"), "abcdef");
}

TEST_F(CDownloadListTest, cancelsWhatStalls)
{
    server.onConnection().readHead().stall();
    const size_t number = add(server.url("/file.txt"));
    ASSERT_TRUE(runUntil([&] { return !server.received(0).empty(); }));
    list->act(DownloadAction::Cancel, number);
    ASSERT_TRUE(runToEnd(number));
    EXPECT_EQ(stateOf(number), FileState::Cancelled);
}

TEST_F(CDownloadListTest, pausesAndGoesOn)
{
    server.onConnection().readHead().send("HTTP/1.1 200 OK\r\nETag: \"1\"\r\nContent-Length: 6\r\n\r\nabc").stall();
    server.onConnection().readHead().send(
        "HTTP/1.1 206 Partial Content\r\nETag: \"1\"\r\nContent-Range: bytes 0-5/6\r\n"
        "Content-Length: 6\r\nConnection: close\r\n\r\nabcdef");
    const size_t number = add(server.url("/file.txt"));
    ASSERT_TRUE(runUntil([&] { return list->at(number).status().progress.done == 3; }));
    list->act(DownloadAction::Pause, number);
    EXPECT_EQ(list->at(number).status().text(), "Paused, 3 B of 6 B");
    ASSERT_TRUE(runUntil([&] { return stateOf(number) == FileState::Paused; }));
    list->act(DownloadAction::Pause, number); // which it is
    list->act(DownloadAction::Resume, number);
    ASSERT_TRUE(runToEnd(number));
    EXPECT_EQ(stateOf(number), FileState::Succeeded) << list->at(number).status().text().toUTF8();
    EXPECT_EQ(contentOf("file.txt"), "abcdef");
}

TEST_F(CDownloadListTest, nobodyIsToldBehindItsEnd)
{
    server.onConnection().readHead().stall();
    add(server.url("/file.txt"));
    ASSERT_TRUE(runUntil([&] { return !server.received(0).empty(); }));
    list.reset(); // cancels, and the end that this is waits in the loop
    while (g_main_context_iteration(nullptr, FALSE)) {
    }
}

} // namespace
