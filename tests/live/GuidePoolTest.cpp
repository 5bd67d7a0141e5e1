// The samples of docs/guide.md that run transfers in a pool.
#include "docs/guide/samples.h"
#include "norla/pool/CTransferPool.h"
#include "tests/support/CNginxServer.h"
#include "tests/support/CScriptedServer.h"
#include "tests/support/stringOf.h"

#include <gtest/gtest.h>

#include <fstream>
#include <future>
#include <glib.h>
#include <unistd.h>

using support::stringOf;

namespace {

kx::String notFoundAt(const support::CNginxServer& server)
{
    return stringOf("There is no '/status/404' on the server 127.0.0.1:" + std::to_string(server.getPort())
        + "; the server says: \"Not here\".");
}

kx::String cancelledAt(const support::CScriptedServer& server)
{
    return stringOf("The transfer with the server 127.0.0.1:" + std::to_string(server.getPort()) + " was cancelled.");
}

TEST(GuidePoolTest, fetchesPages)
{
    const support::CNginxServer server;
    const kx::String good = stringOf(server.url("/digits.txt"));
    const auto problems = fetchPages({good, stringOf(server.url("/status/404")), good});
    ASSERT_EQ(problems.size(), 1U);
    EXPECT_EQ(problems.front(), notFoundAt(server));
    EXPECT_EQ(server.accessLog().size(), 3U);
}

/// A window that shows one download, while the main loop of this thread runs.
class GuideWindowTest : public testing::Test {
protected:
    ~GuideWindowTest() override
    {
        m_pool = nullptr;
        g_main_loop_unref(m_loop);
    }

    /// @param onLine what the person does who sees a line
    void run(const std::string& url, const std::function<void(const std::string& line)>& onLine = {})
    {
        cancel = showDownload(*m_pool, stringOf(url), [this, onLine](const kx::String& line) {
            lines.push_back(line.toUTF8());
            if (onLine)
                onLine(lines.back());
            if (!lines.back().ends_with(" bytes"))
                g_main_loop_quit(m_loop);
        });
        const auto limit = g_timeout_add_seconds(20, &GuideWindowTest::onLimit, m_loop);
        g_main_loop_run(m_loop);
        g_source_remove(limit);
    }

    std::vector<std::string> lines;
    std::function<void()> cancel;

private:
    static gboolean onLimit(void* loop)
    {
        ADD_FAILURE() << "no end was told";
        g_main_loop_quit(static_cast<GMainLoop*>(loop));
        return G_SOURCE_CONTINUE;
    }

    GMainLoop* const m_loop = g_main_loop_new(nullptr, FALSE);
    kx::P<norla::CTransferPool> m_pool = makeWindowPool();
};

TEST_F(GuideWindowTest, showsHowADownloadGoes)
{
    support::CScriptedServer server;
    std::promise<void> rest;
    server.onConnection()
        .readHead()
        .send("HTTP/1.1 200 OK\r\nContent-Length: 6\r\n\r\nabc")
        .waitFor(rest.get_future().share())
        .send("def");
    bool isSent = false;
    run(server.url(), [&](const std::string& line) {
        if (line == "3 bytes" && !std::exchange(isSent, true))
            rest.set_value();
    });
    ASSERT_GE(lines.size(), 3U);
    EXPECT_EQ(lines[lines.size() - 2], "6 bytes");
    EXPECT_EQ(lines.back(), "It is all there.");
}

TEST_F(GuideWindowTest, cancelsADownload)
{
    support::CScriptedServer server;
    server.onConnection().readHead().send("HTTP/1.1 200 OK\r\nContent-Length: 6\r\n\r\nabc").stall();
    size_t linesAfterClick = 0;
    run(server.url(), [&](const std::string& line) {
        if (line != "3 bytes" || linesAfterClick > 0)
            return;
        cancel();
        linesAfterClick = lines.size();
    });
    EXPECT_EQ(lines.back(), cancelledAt(server).toUTF8());
    EXPECT_LT(linesAfterClick, lines.size());
}

TEST_F(GuideWindowTest, showsWhatWentWrong)
{
    const support::CNginxServer server;
    run(server.url("/status/404"));
    EXPECT_EQ(lines.back(), notFoundAt(server).toUTF8());
}

class GuidePollTest : public testing::Test {
protected:
    GuidePollTest() { EXPECT_EQ(pipe(m_ends), 0); }
    ~GuidePollTest() override
    {
        close(m_ends[0]);
        close(m_ends[1]);
    }

    int keyboard() const { return m_ends[0]; }
    void press() const { EXPECT_EQ(write(m_ends[1], "q", 1), 1); }

private:
    int m_ends[2] = {-1, -1};
};

TEST_F(GuidePollTest, fetchesAPage)
{
    const support::CNginxServer server;
    EXPECT_EQ(fetchUnlessKey(stringOf(server.url("/digits.txt")), keyboard()), "It is all there.");
}

TEST_F(GuidePollTest, cancelsAtAKey)
{
    support::CScriptedServer server;
    server.onConnection().readHead().stall();
    auto outcome = std::async(std::launch::async, [&] { return fetchUnlessKey(stringOf(server.url()), keyboard()); });
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (server.received(0).empty() && std::chrono::steady_clock::now() < limit)
        std::this_thread::yield();
    press();
    EXPECT_EQ(outcome.get(), cancelledAt(server));
}

class GuideAwaitTest : public testing::Test {
protected:
    std::string follow(const std::string& url)
    {
        std::promise<std::string> told;
        const auto pool = kx::newObj<norla::CTransferPool>();
        followAddress(*pool, stringOf(url), [&told](const kx::String& page) { told.set_value(page.toUTF8()); });
        auto page = told.get_future();
        return page.wait_for(std::chrono::seconds(20)) == std::future_status::ready ? page.get() : "(nothing)";
    }

    const support::CNginxServer m_server;
};

TEST_F(GuideAwaitTest, fetchesTwoPagesInTurn)
{
    std::ofstream(m_server.root() / "address.txt") << m_server.url("/digits.txt");
    EXPECT_EQ(follow(m_server.url("/address.txt")), "0123456789");
}

TEST_F(GuideAwaitTest, tellsWhatWentWrong)
{
    EXPECT_EQ(follow(m_server.url("/status/404")), notFoundAt(m_server).toUTF8());
}

} // namespace
