// What is asked of a pool is heard between any two servers that have something to say.
#include "norla/pool/CTransferPool.h"
#include "tests/norla/pool/CPoolFixture.h"
#include "tests/support/loopback.h"

#include <atomic>
#include <future>
#include <sys/socket.h>
#include <vector>

namespace {

using norla::CTransfer;
using norla::TransferState;

/// Two transfers whose servers speak when the test says so, and both at once for the pool: its thread is held up until
/// both have spoken.
class PoolFairnessTest : public CPoolFixture {
protected:
    /// A transfer that the server has heard of. Whenever something comes, `onData` is called.
    Transfer startSilent(const std::function<void()>& onData)
    {
        const auto request = kx::newObj<norla::CNetRequest>();
        request->setURL(kx::String::fromUTF8(support::loopbackURL("http", support::portOf(m_listener.get()), "/")));
        request->setReceiveDataSink(kx::newObj<CActionSink>(onData).get());
        auto transfer = pool().start(request.get());
        m_servers.emplace_back(accept(m_listener.get(), nullptr, nullptr));
        char byte = 0;
        EXPECT_EQ(recv(m_servers.back().get(), &byte, 1, 0), 1);
        return transfer;
    }

    /// Returns when the pool has read what both have said.
    void letBothSpeakAtOnce()
    {
        std::promise<void> held;
        std::promise<void> gate;
        const auto release = gate.get_future().share();
        server().onConnection().readHead().send("HTTP/1.1 200 OK\r\nContent-Length: 1\r\n\r\nx");
        const auto request = newRequest();
        request->setReceiveDataSink(kx::newObj<CActionSink>([&held, release] {
            held.set_value();
            release.wait();
        }).get());
        const auto holding = pool().start(request.get());
        held.get_future().wait();
        const std::string words = "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nabc";
        for (const support::CDescriptor& one : m_servers)
            EXPECT_EQ(send(one.get(), words.data(), words.size(), MSG_NOSIGNAL), static_cast<ssize_t>(words.size()));
        gate.set_value();
        EXPECT_TRUE(holding->wait(longest));
    }

private:
    support::CDescriptor m_listener = support::listenOnLoopback();
    std::vector<support::CDescriptor> m_servers;
};

TEST_F(PoolFairnessTest, aCancelIsHeardBeforeTheNextServer)
{
    std::atomic<int> heard{0};
    Transfer first;
    Transfer second;
    const auto cancelBoth = [&] {
        ++heard;
        first->cancel();
        second->cancel();
    };
    first = startSilent(cancelBoth);
    second = startSilent(cancelBoth);
    letBothSpeakAtOnce();
    EXPECT_TRUE(first->wait(longest));
    EXPECT_TRUE(second->wait(longest));
    EXPECT_EQ(heard, 1);
}

TEST_F(PoolFairnessTest, aStopIsHeardBeforeTheNextServer)
{
    std::atomic<int> heard{0};
    const auto stop = [&] {
        ++heard;
        pool().stop();
    };
    const Transfer first = startSilent(stop);
    const Transfer second = startSilent(stop);
    letBothSpeakAtOnce();
    EXPECT_TRUE(first->wait(longest));
    EXPECT_TRUE(second->wait(longest));
    EXPECT_EQ(heard, 1);
}

} // namespace
