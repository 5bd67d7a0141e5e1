// Servers that never answer the goodbye which libcurl says when it closes a connection.
#include "norla/async/CAsyncNetRequestThread.h"
#include "tests/norla/async/CSlowGoodbyeFixture.h"

#include <optional>

namespace {

using norla::CAsyncNetRequestManager;
using norla::CAsyncNetRequestThread;
using norla::CNetRequest;
using std::chrono::steady_clock;

constexpr auto limit = std::chrono::seconds(1);

class SlowGoodbyeTest : public CSlowGoodbyeFixture {
protected:
    template <typename TAction>
    static void expectQuick(TAction action)
    {
        const auto start = steady_clock::now();
        action();
        EXPECT_LT(steady_clock::now() - start, limit);
    }

    static void finish(CAsyncNetRequestManager& manager, CNetRequest& request)
    {
        manager.addRequest(&request);
        while (manager.handleEvents(nullptr) == 0)
            manager.waitForEvents(100);
        EXPECT_NO_THROW(request.checkAsyncResult());
    }
};

TEST_F(SlowGoodbyeTest, ofAnFTPServerIsNotWaitedForByTheRequest)
{
    auto request = ftpRequest();
    request->perform();
    expectQuick([&request] { request = nullptr; });
    expectGoodbye();
}

TEST_F(SlowGoodbyeTest, ofAMailServerIsNotWaitedForByTheRequest)
{
    auto request = mailRequest();
    request->perform();
    expectQuick([&request] { request = nullptr; });
    expectGoodbye();
}

TEST_F(SlowGoodbyeTest, isNotWaitedForAfterAReset)
{
    auto request = ftpRequest();
    request->perform();
    request->reset();
    expectQuick([&request] { request = nullptr; });
    expectGoodbye();
}

TEST_F(SlowGoodbyeTest, isNotWaitedForByTheManager)
{
    auto manager = kx::newObj<CAsyncNetRequestManager>();
    finish(*manager, *ftpRequest());
    expectQuick([&manager] { manager = nullptr; });
    expectGoodbye();
}

// libcurl closes the connections of a request's own when a multi handle takes it, or later when the request goes.
TEST_F(SlowGoodbyeTest, isNotWaitedForByAManagerThatTakesTheRequest)
{
    const auto manager = kx::newObj<CAsyncNetRequestManager>();
    auto request = ftpRequest();
    request->perform();
    expectQuick([&] {
        manager->addRequest(request.get());
        manager->removeRequest(request.get());
        request = nullptr;
    });
    expectGoodbye();
}

// The sockets of the manager's connections are the manager's, whoever made them.
TEST_F(SlowGoodbyeTest, isNotWaitedForWhenTheRequestWentBefore)
{
    auto manager = kx::newObj<CAsyncNetRequestManager>();
    {
        const auto request = ftpRequest();
        finish(*manager, *request);
    }
    expectQuick([&manager] { manager = nullptr; });
    expectGoodbye();
}

TEST_F(SlowGoodbyeTest, isNotWaitedForByTheThreadsStop)
{
    const auto thread = kx::newObj<CAsyncNetRequestThread>();
    const auto request = ftpRequest();
    thread->addRequest(request.get());
    thread->start();
    ASSERT_TRUE(request->waitAsyncDone(20'000));
    expectQuick([&thread] { thread->stop(true); });
    expectGoodbye();
}

// More idle connections than libcurl keeps by itself for one transfer at a time.
TEST_F(SlowGoodbyeTest, isNotSaidWhileIdleConnectionsAreFew)
{
    constexpr int connections = 20;
    std::vector<std::unique_ptr<support::CScriptedServer>> servers;
    auto manager = kx::newObj<CAsyncNetRequestManager>();
    for (int i = 0; i < connections; ++i) {
        auto& one = *servers.emplace_back(std::make_unique<support::CScriptedServer>());
        one.onConnection()
            .send("220 hello\r\n")
            .readUntil("USER anonymous\r\n")
            .send("230 in\r\n")
            .readUntil("PWD\r\n")
            .send("257 \"/\"\r\n")
            .stall();
        const auto request = requestTo(one.url("/", "ftp"));
        request->setOptionInt(CURLOPT_NOBODY, 1);
        expectQuick([&] { finish(*manager, *request); });
    }
    for (const auto& one : servers)
        EXPECT_TRUE(one->received(0).ends_with("PWD\r\n")) << one->received(0);
    expectQuick([&manager] { manager = nullptr; });
}

} // namespace
