#include "tests/support/CScriptedServer.h"

#include "tests/support/CRawClient.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <future>
#include <memory>

using support::CRawClient;
using support::CScriptedServer;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

namespace {

TEST(CScriptedServerTest, answersByteForByte)
{
    CScriptedServer server;
    server.onConnection().readHead().send(std::string("HTTP/1.0 200 OK\r\n\r\na\0b", 22));
    CRawClient client(server.getPort());
    client.send("GET / HTTP/1.0\r\n\r\n");
    EXPECT_EQ(client.readToEnd(), std::string("HTTP/1.0 200 OK\r\n\r\na\0b", 22));
    client.close();
    server.join();
    EXPECT_EQ(server.received(0), "GET / HTTP/1.0\r\n\r\n");
    EXPECT_THAT(server.problems(), IsEmpty());
}

TEST(CScriptedServerTest, namesItsURL)
{
    const CScriptedServer server;
    const std::string port = std::to_string(server.getPort());
    EXPECT_EQ(server.url(), "http://127.0.0.1:" + port + "/");
    EXPECT_EQ(server.url("/a?b", "ftp"), "ftp://127.0.0.1:" + port + "/a?b");
}

TEST(CScriptedServerTest, readsUpToATerminatorThatComesInPieces)
{
    CScriptedServer server;
    server.onConnection().readUntil("END").send("1").readUntil("END").send("2").readBytes(4).send("3");
    CRawClient client(server.getPort());
    client.send("aE");
    client.send("N");
    client.send("Db");
    EXPECT_EQ(client.readOnce(), "1");
    client.send("EEND12");
    EXPECT_EQ(client.readOnce(), "2");
    client.send("34");
    EXPECT_EQ(client.readToEnd(), "3");
    client.close();
    server.join();
    EXPECT_EQ(server.received(0), "aENDbEEND1234");
    EXPECT_THAT(server.problems(), IsEmpty());
}

TEST(CScriptedServerTest, readsToTheEnd)
{
    CScriptedServer server;
    server.onConnection().readToEnd().send("bye");
    CRawClient client(server.getPort());
    client.send("all of this");
    client.shutdown();
    EXPECT_EQ(client.readToEnd(), "bye");
    EXPECT_EQ(server.received(0), "all of this");
}

TEST(CScriptedServerTest, playsOneScriptPerConnectionAtTheSameTime)
{
    CScriptedServer server;
    server.onConnection().send("first\n").readUntil("go").send("again");
    server.onConnection().send("second\n").readUntil("go");
    CRawClient first(server.getPort());
    EXPECT_EQ(first.readUntil("\n"), "first\n");
    CRawClient second(server.getPort());
    EXPECT_EQ(second.readUntil("\n"), "second\n");
    second.send("go");
    EXPECT_EQ(second.readToEnd(), "");
    first.send("and go");
    EXPECT_EQ(first.readToEnd(), "again");
    EXPECT_EQ(server.connectionCount(), 2U);
    EXPECT_EQ(server.received(0), "and go");
    EXPECT_EQ(server.received(1), "go");
    EXPECT_EQ(server.received(2), "");
}

TEST(CScriptedServerTest, sendsPiecesThatArriveOneByOne)
{
    CScriptedServer server;
    const std::vector<std::string> pieces{"H", "TTP", "/1.1 ", "200", "\r", "\n"};
    server.onConnection().sendPieces(pieces);
    CRawClient client(server.getPort());
    EXPECT_EQ(client.readPieces(), pieces);
}

TEST(CScriptedServerTest, sendsPiecesToAClientThatDoesNotRead)
{
    CScriptedServer server;
    server.onConnection().sendPieces({"a", "b"});
    CRawClient client(server.getPort());
    server.join();
    EXPECT_EQ(client.readToEnd(), "ab");
}

TEST(CScriptedServerTest, sendsABlockManyTimes)
{
    CScriptedServer server;
    server.onConnection().sendRepeated(std::string(100'000, 'x'), 300);
    CRawClient client(server.getPort());
    const std::string all = client.readToEnd();
    EXPECT_EQ(all.size(), 30'000'000U);
    EXPECT_EQ(std::count(all.begin(), all.end(), 'x'), 30'000'000);
}

TEST(CScriptedServerTest, resetsTheConnectionAfterTheGivenBytes)
{
    CScriptedServer server;
    server.onConnection().send("half a").readUntil("ok").reset();
    CRawClient client(server.getPort());
    EXPECT_EQ(client.readOnce(), "half a");
    client.send("ok");
    EXPECT_TRUE(client.endsWithReset());
    server.join();
    EXPECT_THAT(server.problems(), IsEmpty());
}

TEST(CScriptedServerTest, recordsWhatTheClientSendsAfterTheSendingSideIsClosed)
{
    CScriptedServer server;
    server.onConnection().send("no more").close();
    CRawClient client(server.getPort());
    EXPECT_EQ(client.readToEnd(), "no more");
    client.send("but I");
    client.close();
    server.join();
    EXPECT_EQ(server.received(0), "but I");
}

TEST(CScriptedServerTest, joinDoesNotWaitForAClientThatKeepsItsConnection)
{
    CScriptedServer server;
    server.onConnection().send("done");
    CRawClient client(server.getPort());
    server.join();
    EXPECT_THAT(server.problems(), IsEmpty());
    EXPECT_EQ(client.readToEnd(), "done");
}

TEST(CScriptedServerTest, closesHardWithoutReadingOn)
{
    CScriptedServer server;
    server.onConnection().readBytes(1).closeHard();
    CRawClient client(server.getPort());
    client.send("1");
    EXPECT_EQ(client.readToEnd(), "");
}

TEST(CScriptedServerTest, sendsItsLastBytesTogetherWithTheEnd)
{
    constexpr int connections = 200; // a race is lost in a few of them
    CScriptedServer server;
    for (int i = 0; i < connections; ++i) {
        server.onConnection().readBytes(1).sendAndClose("the last");
        CRawClient client(server.getPort());
        client.send("1");
        EXPECT_TRUE(client.endsTogetherWith("the last"));
    }
    server.join();
    EXPECT_THAT(server.problems(), IsEmpty());
}

TEST(CScriptedServerTest, stallsUntilTheClientCloses)
{
    CScriptedServer server;
    server.onConnection().send("wait").stall();
    auto client = std::make_unique<CRawClient>(server.getPort());
    EXPECT_EQ(client->readOnce(), "wait");
    client->close();
    server.join();
    EXPECT_THAT(server.problems(), IsEmpty());
}

TEST(CScriptedServerTest, destructionEndsEveryKindOfWaiting)
{
    std::promise<void> never;
    auto server = std::make_unique<CScriptedServer>();
    server->onConnection().send("1").stall();
    server->onConnection().send("2").readBytes(1);
    server->onConnection().send("3").waitFor(never.get_future().share());
    server->onConnection().send("4").sendRepeated(std::string(1'000'000, 'x'), 1000);
    std::vector<std::unique_ptr<CRawClient>> clients;
    for (int i = 0; i < 4; ++i) {
        clients.push_back(std::make_unique<CRawClient>(server->getPort()));
        EXPECT_THAT(clients.back()->readOnce(), StartsWith(std::to_string(i + 1)));
    }
    const auto start = std::chrono::steady_clock::now();
    server.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
}

TEST(CScriptedServerTest, waitsForTheTestToOpenTheGate)
{
    std::promise<void> gate;
    CScriptedServer server;
    server.onConnection().send("before").waitFor(gate.get_future().share()).send("after");
    CRawClient client(server.getPort());
    EXPECT_EQ(client.readOnce(), "before");
    gate.set_value();
    EXPECT_EQ(client.readToEnd(), "after");
    EXPECT_THAT(server.problems(), IsEmpty());
}

TEST(CScriptedServerTest, tellsAConnectionWithoutAScript)
{
    CScriptedServer server;
    CRawClient client(server.getPort());
    EXPECT_EQ(client.readToEnd(), "");
    EXPECT_THAT(server.problems(), ElementsAre("connection 0 has no script"));
    server.onConnection().send("later");
    EXPECT_EQ(CRawClient(server.getPort()).readToEnd(), "later");
}

TEST(CScriptedServerTest, tellsAPeerThatClosesWhileAStepReads)
{
    CScriptedServer server;
    server.onConnection().send("x").readBytes(10).send("never");
    CRawClient client(server.getPort());
    client.send("short");
    client.shutdown();
    EXPECT_EQ(client.readToEnd(), "x");
    server.join();
    EXPECT_THAT(server.problems(),
        ElementsAre("connection 0, step 1 (readBytes): the peer closed the connection after 5 bytes of this step"));
}

TEST(CScriptedServerTest, tellsAPeerThatClosesWhileAStepSends)
{
    CScriptedServer server;
    server.onConnection().sendRepeated(std::string(1'000'000, 'x'), 100);
    CRawClient client(server.getPort());
    client.readOnce();
    client.close();
    server.join();
    ASSERT_THAT(server.problems(), SizeIs(1));
    EXPECT_THAT(server.problems()[0], StartsWith("connection 0, step 0 (sendRepeated): the peer closed"));
}

TEST(CScriptedServerTest, tellsAStepBehindTheEndOfItsConnection)
{
    CScriptedServer server;
    server.onConnection().closeHard().send("never");
    EXPECT_EQ(CRawClient(server.getPort()).readToEnd(), "");
    server.join();
    EXPECT_THAT(
        server.problems(), ElementsAre("connection 0, step 1 (send): the script has closed the connection before"));
}

} // namespace
