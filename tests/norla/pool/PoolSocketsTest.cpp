// Sockets whose numbers, owners and moments are unusual.
#include "norla/core/errorKind.h"
#include "norla/pool/CTransferPool.h"
#include "tests/norla/pool/CPoolFixture.h"
#include "tests/support/CBusyPort.h"
#include "tests/support/CRawClient.h"
#include "tests/support/errorOf.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <future>

namespace {

using norla::CTransfer;

class PoolSocketsTest : public CPoolFixture {};

// libcurl 7.88 makes no data connection then until something happens to the other one.
TEST_F(PoolSocketsTest, goesOnWhenAnFTPServerSaysWhereItsDataAreBeforeItIsWaitedFor)
{
    support::CScriptedServer data;
    data.onConnection().send("one");
    data.onConnection().send("two");
    const std::string place = "229 Here (|||" + std::to_string(data.getPort()) + "|)\r\n";
    server()
        .onConnection()
        .send("220 Hello\r\n")
        .readUntil("\r\n")
        .send("230 In\r\n")
        .readUntil("PWD\r\n")
        .send("257 \"/\"\r\n")
        .readUntil("EPSV\r\n")
        .send(place)
        .readUntil("TYPE I\r\n")
        .send("200 Yes\r\n")
        .readUntil("\r\n")
        .send("213 3\r\n")
        .readUntil("\r\n")
        .send("150 Now\r\n226 Done\r\n" + place) // which answers the next EPSV
        .readUntil("EPSV\r\n")
        .readUntil("\r\n")
        .send("213 3\r\n")
        .readUntil("\r\n")
        .send("150 Now\r\n226 Done\r\n")
        .readToEnd();
    for (const char* body : {"one", "two"}) {
        const auto request = requestTo(server().url("/file", "ftp"));
        const auto transfer = pool().start(request.get());
        ASSERT_TRUE(transfer->wait(longest)) << body;
        EXPECT_EQ(failureOf(transfer), "");
        EXPECT_EQ(bodyOf(request), body);
    }
}

/// Takes data connections that the server makes, whose sockets libcurl opens and closes itself.
class ActiveFTPTest : public PoolSocketsTest {
protected:
    static constexpr int pieces = 10;

    /// What the server says on one connection, beside the data.
    void expectDownloads(int count)
    {
        support::CScript& script = server().onConnection();
        script.send("220 Hello\r\n").readUntil("\r\n").send("230 In\r\n").readUntil("PWD\r\n").send("257 \"/\"\r\n");
        for (int number = 0; number < count; ++number) {
            script.readUntil("EPRT ").readUntil("\r\n").send("200 Yes\r\n");
            if (number == 0)
                script.readUntil("TYPE I\r\n").send("200 Yes\r\n");
            script.readUntil("\r\n").send("213 10\r\n").readUntil("RETR").readUntil("\r\n");
            script.send("150 Now\r\n226 Done\r\n");
        }
        script.readUntil("QUIT\r\n");
    }

    /// Makes the data connection, on which a byte comes when the one before was taken.
    void sendPieces(int number, const std::atomic<int>& taken)
    {
        ASSERT_TRUE(waitUntil([&] { return countOf("RETR ") > number; }));
        support::CRawClient data(askedPort());
        for (int count = 0; count < pieces; ++count) {
            data.send("x");
            ASSERT_TRUE(waitUntil([&] { return taken > count; }));
        }
    }

private:
    int countOf(const std::string& text)
    {
        const std::string received = server().received(0);
        int count = 0;
        for (size_t at = received.find(text); at != std::string::npos; at = received.find(text, at + 1))
            ++count;
        return count;
    }

    /// Of the last "EPRT |1|127.0.0.1|port|".
    unsigned short askedPort()
    {
        const std::string received = server().received(0);
        const size_t end = received.rfind('|');
        const size_t begin = received.rfind('|', end - 1) + 1;
        return static_cast<unsigned short>(std::stoi(received.substr(begin, end - begin)));
    }
};

// Whose socket has the number of the first one's as a rule.
TEST_F(ActiveFTPTest, takesAtOnceWhatComesOverTheSecondConnection)
{
    constexpr int downloads = 2;
    expectDownloads(downloads);
    for (int number = 0; number < downloads; ++number) {
        std::atomic<int> taken{0};
        const auto request = requestTo(server().url("/file", "ftp"));
        request->setOptionString(CURLOPT_FTPPORT, "-");
        request->setReceiveDataSink(kx::newObj<CActionSink>([&taken] { ++taken; }).get());
        const auto transfer = pool().start(request.get(), {.attemptDeadline = kx::CTimeSpan::fromSeconds(5)});
        sendPieces(number, taken); // libcurl looks once a second without being told
        ASSERT_TRUE(transfer->wait(longest));
        EXPECT_EQ(failureOf(transfer), "");
    }
}

/// A transfer that its own sink pauses, and that another one's end lets go on.
class PausedTransferTest : public PoolSocketsTest {
protected:
    std::chrono::steady_clock::duration timeToItsEnd()
    {
        const auto request = newRequest();
        CURL* const handle = request->getEasyHandle();
        std::atomic<bool> isPaused{false};
        request->setReceiveDataSink(kx::newObj<CActionSink>([&isPaused, handle] {
            if (!isPaused.exchange(true))
                curl_easy_pause(handle, CURLPAUSE_RECV);
        }).get());
        answer(ok("hello")); // after which its socket has nothing to say
        const auto paused = pool().start(request.get());
        EXPECT_TRUE(waitUntil([&isPaused] { return isPaused.load(); }));
        EXPECT_FALSE(paused->wait(300)); // libcurl looks by itself in the beginning
        const auto start = letGoOn(handle);
        EXPECT_TRUE(paused->wait(longest));
        EXPECT_EQ(failureOf(paused), "");
        return std::chrono::steady_clock::now() - start;
    }

private:
    std::chrono::steady_clock::time_point letGoOn(CURL* handle)
    {
        std::promise<std::chrono::steady_clock::time_point> moment;
        answer(ok(""));
        CTransfer::Options options;
        options.onDone = [&moment, handle](CTransfer&) {
            curl_easy_pause(handle, CURLPAUSE_CONT);
            moment.set_value(std::chrono::steady_clock::now());
        };
        pool().start(newRequest().get(), options);
        return moment.get_future().get();
    }
};

// libcurl looks once a second without being told.
TEST_F(PausedTransferTest, goesOnAtOnceWhenACallbackOfAnotherOneLetsIt)
{
    constexpr auto shortest = std::chrono::milliseconds(150);
    auto quickest = std::chrono::steady_clock::duration::max();
    for (int count = 0; count < 10 && quickest > shortest; ++count)
        quickest = std::min(quickest, timeToItsEnd());
    EXPECT_LE(quickest, shortest);
}

/// A transfer behind one that was given up while it was connecting, whose socket's number it has as a rule.
class GivenUpConnectionTest : public PoolSocketsTest {
protected:
    using Request = CAsyncFixture::Request;

    /// Without a watch libcurl looks again after 200 ms, each time; a busy machine takes that long now and then.
    /// then.
    void expectQuickEnd(const std::function<Request(const std::string&)>& makeRequest)
    {
        constexpr auto shortest = std::chrono::milliseconds(150);
        auto quickest = std::chrono::steady_clock::duration::max();
        for (int count = 0; count < 10 && quickest > shortest; ++count)
            quickest = std::min(quickest, timeOfTransfer(makeRequest));
        EXPECT_LE(quickest, shortest);
    }

private:
    std::chrono::steady_clock::duration timeOfTransfer(const std::function<Request(const std::string&)>& makeRequest)
    {
        const auto givenUp = pool().start(makeRequest(m_busy.url()).get());
        EXPECT_FALSE(givenUp->wait(100)); // it has come to wait for the connection
        givenUp->cancel();
        givenUp->wait(longest);
        answer("HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: 0\r\n\r\n");
        const auto start = std::chrono::steady_clock::now();
        EXPECT_TRUE(pool().start(makeRequest(server().url()).get())->wait(longest));
        return std::chrono::steady_clock::now() - start;
    }

    const support::CBusyPort m_busy;
};

TEST_F(GivenUpConnectionTest, leavesItsNumberToOneThatIsWatched)
{
    expectQuickEnd(&GivenUpConnectionTest::requestTo);
}

TEST_F(GivenUpConnectionTest, leavesItsNumberToOneThatIsWatchedAlsoWhereTheApplicationOpensThem)
{
    expectQuickEnd([](const std::string& url) {
        const auto open = [](void*, curlsocktype, curl_sockaddr* address) {
            return static_cast<curl_socket_t>(::socket(address->family, address->socktype, address->protocol));
        };
        auto request = requestTo(url);
        request->setOptionPtr(CURLOPT_OPENSOCKETFUNCTION, reinterpret_cast<void*>(+open));
        return request;
    });
}

} // namespace
