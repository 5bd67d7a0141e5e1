// The samples of docs/ownership.md.
#include "docs/ownership/samples.h"
#include "kx/base/CError.h"
#include "tests/support/CLogRecorder.h"
#include "tests/support/CScriptedServer.h"
#include "tests/support/stringOf.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using support::stringOf;
using testing::HasSubstr;

TEST(OwnershipPageTest, aRequestKeepsItsHeaders)
{
    support::CScriptedServer server;
    server.onConnection().readHead().send("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\n{}");
    prepareQuestion(stringOf(server.url()))->perform();
    EXPECT_THAT(server.received(0), HasSubstr("\r\nAccept: application/json\r\n"));
}

TEST(OwnershipPageTest, aBufferOnTheStackIsSent)
{
    const support::CLogRecorder log;
    support::CScriptedServer server;
    server.onConnection().readHead().readBytes(4).send("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
    const auto request = kx::newObj<norla::CNetRequest>();
    request->setURL(stringOf(server.url()));
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
    request->setURL(stringOf(server.url()));
    EXPECT_THROW(postBytes(*request, "note"), kx::CError);
    EXPECT_EQ(request->getSendDataSource(), nullptr);
}

TEST(OwnershipPageTest, aListenerIsToldWhichRequestHasEnded)
{
    support::CScriptedServer server;
    server.onConnection().readHead().send("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
    const auto request = kx::newObj<norla::CNetRequest>();
    request->setURL(stringOf(server.url()));
    kx::String told;
    tellTheEnd(*request, [&told](const kx::String& text) { told = text; });
    request->perform();
    EXPECT_EQ(told, stringOf(server.url()) + ": done");
}

} // namespace
