// The samples of docs/ownership.md.
#include "docs/ownership/samples.h"
#include "kx/base/CError.h"
#include "tests/support/CLogRecorder.h"
#include "tests/support/CScriptedServer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::HasSubstr;

kx::String textOf(const std::string& utf8)
{
    return kx::String::fromUTF8(utf8);
}

TEST(OwnershipPageTest, aRequestKeepsItsHeaders)
{
    support::CScriptedServer server;
    server.onConnection().readHead().send("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\n{}");
    prepareQuestion(textOf(server.url()))->perform();
    EXPECT_THAT(server.received(0), HasSubstr("\r\nAccept: application/json\r\n"));
}

TEST(OwnershipPageTest, aBufferOnTheStackIsSent)
{
    const support::CLogRecorder log;
    support::CScriptedServer server;
    server.onConnection().readHead().readBytes(4).send("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
    const auto request = kx::newObj<norla::CNetRequest>();
    request->setURL(textOf(server.url()));
    postBytes(*request, "note");
    EXPECT_THAT(server.received(0), HasSubstr("\r\n\r\nnote"));
    EXPECT_EQ(request->getSendDataSource(), nullptr);
    EXPECT_THAT(log.lines(), testing::IsEmpty()); // of objects that go while somebody refers to them
}

TEST(OwnershipPageTest, aFailureKeepsNothingOfTheBuffer)
{
    support::CScriptedServer server;
    server.onConnection().readHead().readBytes(4).send("HTTP/1.1 500 No\r\nContent-Length: 0\r\n\r\n");
    const auto request = kx::newObj<norla::CNetRequest>();
    request->setURL(textOf(server.url()));
    EXPECT_THROW(postBytes(*request, "note"), kx::CError);
    EXPECT_EQ(request->getSendDataSource(), nullptr);
}

TEST(OwnershipPageTest, aListenerIsToldWhichRequestHasEnded)
{
    support::CScriptedServer server;
    server.onConnection().readHead().send("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
    const auto request = kx::newObj<norla::CNetRequest>();
    request->setURL(textOf(server.url()));
    kx::String told;
    tellTheEnd(*request, [&told](const kx::String& text) { told = text; });
    request->perform();
    EXPECT_EQ(told, textOf(server.url()) + ": done");
}

} // namespace
