// A pool ends beside servers that say nothing more, and those that do not answer a goodbye.
#include "norla/pool/CTransferPool.h"
#include "tests/norla/async/CSlowGoodbyeFixture.h"
#include "tests/support/errorOf.h"

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace {

using norla::CTransferPool;

class PoolGoodbyeTest : public CSlowGoodbyeFixture {
protected:
    /// The best of some, since the machine may be busy. @param prepare what the pool does before its end
    void expectQuickEnd(const std::function<void()>& prepare)
    {
        using std::chrono::steady_clock;
        constexpr int tries = 5;
        constexpr steady_clock::duration longestStop = std::chrono::milliseconds(250);
        constexpr steady_clock::duration waiting = std::chrono::seconds(5); // so long no machine is busy
        steady_clock::duration time = steady_clock::duration::max();
        for (int count = 0; count < tries && time > longestStop && !HasFailure(); ++count) {
            m_pool = kx::newObj<CTransferPool>();
            prepare();
            const auto begin = steady_clock::now();
            m_pool->stop();
            m_pool = nullptr;
            time = steady_clock::now() - begin;
            ASSERT_LT(time, waiting);
        }
        EXPECT_LE(time, longestStop);
    }

    /// Some at once, each over a connection of its own, which stays open behind it.
    void finish(const std::function<Request()>& makeRequest)
    {
        constexpr int count = 3;
        std::vector<kx::P<norla::CTransfer>> transfers;
        for (int number = 0; number < count; ++number) {
            const Request request = makeRequest();
            request->setOptionInt(CURLOPT_FRESH_CONNECT, 1); // the first may be ready before the last begins
            transfers.push_back(m_pool->start(request.get()));
        }
        for (const auto& transfer : transfers) {
            EXPECT_TRUE(transfer->wait(20'000));
            EXPECT_NO_THROW(transfer->check());
        }
    }

    /// libcurl's own goodbye within a transfer, behind a refusal.
    kx::P<norla::CTransfer> startRefused()
    {
        const size_t connection = server().connectionCount();
        server()
            .onConnection()
            .send("220 hello\r\n")
            .readUntil("\r\n")
            .send("250 you are welcome\r\n")
            .readUntil("HELP\r\n")
            .send("502 no\r\n")
            .readUntil("QUIT\r\n")
            .readToEnd();
        kx::P<norla::CTransfer> transfer = m_pool->start(requestTo(server().url("/", "smtp")).get());
        EXPECT_TRUE(waitUntil([=, this] { return server().received(connection).ends_with("QUIT\r\n"); }));
        return transfer;
    }

    /// A transfer that goes no further. @param greeting after which the server is silent
    void startSilent(const std::string& scheme, const std::string& greeting)
    {
        const size_t connection = server().connectionCount();
        server().onConnection().send(greeting).readBytes(1).stall();
        m_pool->start(requestTo(server().url("/file", scheme)).get());
        EXPECT_TRUE(waitUntil([this, connection] { return !server().received(connection).empty(); }));
    }

    kx::P<CTransferPool> m_pool;
};

TEST_F(PoolGoodbyeTest, ofFTPServersIsNotWaitedFor)
{
    expectQuickEnd([this] { finish([this] { return ftpRequest(); }); });
    expectGoodbye();
}

TEST_F(PoolGoodbyeTest, ofMailServersIsNotWaitedFor)
{
    expectQuickEnd([this] { finish([this] { return mailRequest(); }); });
    expectGoodbye();
}

TEST_F(PoolGoodbyeTest, isNotWaitedForInTheMiddleOfATransfer)
{
    expectQuickEnd([this] {
        startSilent("ftp", "220 hello\r\n");
        startSilent("smtp", "220 hello\r\n");
        startSilent("sftp", "");
        startSilent("sftp", "SSH-2.0-OpenSSH_9.2\r\n");
    });
}

TEST_F(PoolGoodbyeTest, isNotWaitedForWhereTheThreadWaitsBehindARefusalAlready)
{
    expectQuickEnd([this] { startRefused(); });
}

// Such a server would be waited for as long as a transfer may be silent: 30 seconds.
TEST_F(PoolGoodbyeTest, holdsUpOthersForASecondBehindARefusal)
{
    m_pool = kx::newObj<CTransferPool>();
    const kx::P<norla::CTransfer> refused = startRefused();
    const kx::P<norla::CTransfer> other = m_pool->start(ftpRequest().get());
    EXPECT_TRUE(other->wait(5'000));
    EXPECT_NO_THROW(other->check());
    ASSERT_TRUE(refused->isDone());
    EXPECT_EQ(support::messageOf([&] { refused->check(); }),
        "Weird server reply: Command failed: 502 (response code: smtp 502)");
}

TEST_F(PoolGoodbyeTest, isNotWaitedForWhereTheThreadClosesAConnectionAlready)
{
    expectQuickEnd([this] {
        const size_t connection = server().connectionCount();
        const Request request = ftpRequest();
        request->setOptionInt(CURLOPT_FORBID_REUSE, 1);
        m_pool->start(request.get());
        EXPECT_TRUE(waitUntil([=, this] { return server().received(connection).ends_with("QUIT\r\n"); }));
    });
}

} // namespace
