#include "tests/support/CSMTPServer.h"

#include "tests/support/CRawClient.h"
#include "tests/support/runCurl.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using support::CProcessRun;
using support::CSMTPServer;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

CProcessRun sendMail(const CSMTPServer& server, const std::vector<std::string>& recipients, const std::string& text)
{
    std::vector<std::string> arguments{server.url(), "--mail-from", "from@test.example", "-T", "-"};
    for (const std::string& recipient : recipients)
        arguments.insert(arguments.end(), {"--mail-rcpt", recipient});
    return support::runCurl(arguments, text);
}

TEST(CSMTPServerTest, keepsMessagesInOrder)
{
    const CSMTPServer server;
    EXPECT_THAT(server.messages(), IsEmpty());
    EXPECT_EQ(sendMail(server, {"a@test.example", "b@test.example"}, "Subject: 1\r\n\r\n.dot\r\n").exitStatus(), 0);
    EXPECT_EQ(sendMail(server, {"c@test.example"}, "Subject: 2\r\n\r\n\xff\r\n").exitStatus(), 0);
    const std::vector<CSMTPServer::CMessage> messages = server.messages();
    ASSERT_THAT(messages, SizeIs(2));
    EXPECT_EQ(messages[0].from, "from@test.example");
    EXPECT_THAT(messages[0].recipients, ElementsAre("a@test.example", "b@test.example"));
    EXPECT_EQ(messages[0].body, "Subject: 1\r\n\r\n.dot\r\n");
    EXPECT_THAT(messages[1].recipients, ElementsAre("c@test.example"));
    EXPECT_EQ(messages[1].body, "Subject: 2\r\n\r\n\xff\r\n");
}

TEST(CSMTPServerTest, refusesSomeRecipients)
{
    const CSMTPServer server;
    support::CRawClient client(server.getPort());
    client.readUntil("\r\n");
    const auto answerTo = [&client](const std::string& command) {
        client.send(command + "\r\n");
        return client.readUntil("\r\n");
    };
    EXPECT_EQ(answerTo("HELO test"), "250 localhost\r\n");
    EXPECT_EQ(answerTo("MAIL FROM:<a@test.example>"), "250 OK\r\n");
    EXPECT_EQ(answerTo("RCPT TO:<reject@test.example>"), "550 5.1.1 No such recipient\r\n");
    EXPECT_EQ(answerTo("RCPT TO:<tempfail@test.example>"), "451 4.3.0 Try again later\r\n");
    EXPECT_EQ(sendMail(server, {"reject@test.example"}, "x").exitStatus(), 55);
    EXPECT_THAT(server.messages(), IsEmpty());
}

} // namespace
