#include "tests/support/CPostfixServer.h"

#include "tests/support/loopback.h"
#include "tests/support/runCurl.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>

using support::CPostfixServer;
using support::CProcessRun;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

namespace {

CProcessRun sendMail(const CPostfixServer& server, const std::vector<std::string>& options, const std::string& message)
{
    std::vector<std::string> arguments = options;
    arguments.insert(arguments.end(),
        {server.url(), "--insecure", "--mail-from", "from@a.example", "--mail-rcpt", "to@b.example", "-T", "-"});
    return support::runCurl(arguments, message);
}

TEST(CPostfixServerTest, storesMessagesAndTellsWhichCameInClear)
{
    const CPostfixServer server;
    EXPECT_THAT(server.waitForMessages(0), IsEmpty());
    EXPECT_EQ(sendMail(server, {}, "Subject: 1\r\n\r\none\r\n").exitStatus(), 0);
    EXPECT_EQ(sendMail(server, {"--ssl-reqd"}, "Subject: 2\r\n\r\n..two\r\n").exitStatus(), 0);
    EXPECT_THAT(server.waitForMessages(2),
        UnorderedElementsAre(AllOf(HasSubstr(" with ESMTP id "), EndsWith("\n\none\n")),
            AllOf(HasSubstr(" with ESMTPS id "), EndsWith("\n\n..two\n"))));
}

TEST(CPostfixServerTest, logsEachMessageBeforeTheEndOfItsConnection)
{
    const CPostfixServer server;
    EXPECT_EQ(sendMail(server, {}, "Subject: 1\r\n\r\none\r\n").exitStatus(), 0);
    server.waitUntilLogged(": disconnect from ");
    const std::string log = server.log();
    EXPECT_LT(log.find(": client="), log.find(": disconnect from ")) << log;
}

// What makes it a judge of what is sent to it.
TEST(CPostfixServerTest, takesADotBetweenBareLineFeedsForTheEndOfAMessage)
{
    const CPostfixServer server;
    sendMail(server, {}, "Subject: 1\r\n\r\nshort\n.\nQUIT\n");
    EXPECT_THAT(server.waitForMessages(1), ElementsAre(EndsWith("\n\nshort\n")));
}

TEST(CPostfixServerTest, runsBesideAnother)
{
    const CPostfixServer server;
    const CPostfixServer other;
    EXPECT_EQ(sendMail(other, {}, "Subject: 1\r\n\r\none\r\n").exitStatus(), 0);
    EXPECT_EQ(other.waitForMessages(1).size(), 1u);
    EXPECT_THAT(server.waitForMessages(0), IsEmpty());
}

TEST(CPostfixServerTest, stopsWhenTheObjectGoes)
{
    std::optional<CPostfixServer> server(std::in_place);
    const unsigned short port = server->getPort();
    server.reset();
    EXPECT_FALSE(support::connectToLoopback(port));
}

} // namespace
