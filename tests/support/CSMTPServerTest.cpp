#include "tests/support/CSMTPServer.h"

#include "tests/support/CRawClient.h"
#include "tests/support/CTestCertificates.h"
#include "tests/support/files.h"
#include "tests/support/runCurl.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using support::CProcessRun;
using support::CRawClient;
using support::CSMTPServer;
using testing::AllOf;
using testing::AnyOf;
using testing::Each;
using testing::ElementsAre;
using testing::Field;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

namespace {

const char* const shortMessage = "Subject: 1\r\n\r\ntext\r\n";

CProcessRun sendMail(const CSMTPServer& server, const std::vector<std::string>& recipients, const std::string& message,
    const std::vector<std::string>& options = {})
{
    const std::string authority = support::CTestCertificates::get().caFile();
    std::vector<std::string> arguments{
        server.url(), "--cacert", authority, "--mail-from", "from@test.example", "-T", "-"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    for (const std::string& recipient : recipients)
        arguments.insert(arguments.end(), {"--mail-rcpt", recipient});
    return support::runCurl(arguments, message);
}

/// @param size in bytes, whole hundreds
std::string bodyOf(size_t size)
{
    const std::string line = std::string(98, 'b') + "\r\n";
    std::string body;
    while (body.size() < size)
        body += line;
    return body;
}

/// @return one reply with all of its lines, what there is of it if the connection ends
std::string readReply(CRawClient& client)
{
    std::string reply;
    for (size_t line = 0;;) {
        const std::string more = client.readUntil("\r\n");
        reply += more;
        for (size_t end = reply.find('\n', line); end != std::string::npos; end = reply.find('\n', line)) {
            if (reply[line + 3] != '-')
                return reply;
            line = end + 1;
        }
        if (more.empty())
            return reply;
    }
}

/// @return the reply to each of the commands, empty if the connection ends
std::vector<std::string> answersTo(const CSMTPServer& server, const std::vector<std::string>& commands)
{
    CRawClient client(server.getPort());
    readReply(client);
    std::vector<std::string> answers;
    for (const std::string& command : commands) {
        client.send(command + "\r\n");
        answers.push_back(readReply(client));
    }
    return answers;
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

TEST(CSMTPServerTest, keepsMessagesInItsFolder)
{
    const CSMTPServer server;
    EXPECT_EQ(sendMail(server, {"to@test.example"}, shortMessage).exitStatus(), 0);
    EXPECT_EQ(sendMail(server, {"to@test.example"}, "2\r\n").exitStatus(), 0);
    EXPECT_EQ(support::readFile(server.messageFolder() / "000000.body"), shortMessage);
    EXPECT_EQ(support::readFile(server.messageFolder() / "000001.body"), "2\r\n");
}

TEST(CSMTPServerTest, refusesSomeRecipients)
{
    const CSMTPServer server;
    EXPECT_THAT(answersTo(server,
                    {"HELO test", "MAIL FROM:<a@test.example>", "RCPT TO:<reject@test.example>",
                        "RCPT TO:<tempfail@test.example>"}),
        ElementsAre(
            "250 localhost\r\n", "250 OK\r\n", "550 5.1.1 No such recipient\r\n", "451 4.3.0 Try again later\r\n"));
    EXPECT_EQ(sendMail(server, {"reject@test.example"}, "x").exitStatus(), 55);
    EXPECT_THAT(server.messages(), IsEmpty());
}

TEST(CSMTPServerTest, keepsBigMessages)
{
    const CSMTPServer server;
    const std::string big = bodyOf(40'000'000);
    const CProcessRun run = sendMail(server, {"to@test.example"}, big);
    EXPECT_EQ(run.exitStatus(), 0) << run.errors();
    EXPECT_TRUE(server.messages().at(0).body == big);
}

TEST(CSMTPServerTest, answersHelp)
{
    const CSMTPServer server;
    EXPECT_THAT(answersTo(server, {"HELP"}),
        ElementsAre("250 Supported commands: AUTH DATA EHLO HELO HELP MAIL NOOP QUIT RCPT RSET VRFY\r\n"));
}

TEST(CSMTPServerTest, offersStartTLS)
{
    const CSMTPServer server({.security = CSMTPServer::Security::StartTLS});
    EXPECT_EQ(sendMail(server, {"a@test.example"}, shortMessage, {"--ssl-reqd"}).exitStatus(), 0);
    EXPECT_EQ(sendMail(server, {"b@test.example"}, shortMessage).exitStatus(), 0);
    const std::vector<CSMTPServer::CMessage> messages = server.messages();
    ASSERT_THAT(messages, SizeIs(2));
    EXPECT_TRUE(messages[0].isSecure);
    EXPECT_FALSE(messages[1].isSecure);
}

TEST(CSMTPServerTest, offersNoTLSUnlessToldTo)
{
    const CSMTPServer server;
    EXPECT_EQ(sendMail(server, {"to@test.example"}, shortMessage, {"--ssl-reqd"}).exitStatus(), 64);
}

TEST(CSMTPServerTest, acceptsImplicitTLS)
{
    const CSMTPServer server({.security = CSMTPServer::Security::Implicit});
    EXPECT_THAT(server.url(), StartsWith("smtps://"));
    const CProcessRun run = sendMail(server, {"to@test.example"}, shortMessage);
    EXPECT_EQ(run.exitStatus(), 0) << run.errors();
    EXPECT_TRUE(server.messages().at(0).isSecure);
}

TEST(CSMTPServerTest, offersNoStartTLSInsideTLS)
{
    const CSMTPServer server({.security = CSMTPServer::Security::Implicit});
    EXPECT_THAT(sendMail(server, {"to@test.example"}, shortMessage, {"-v"}).errors(),
        AllOf(HasSubstr("\n< 250-SIZE "), Not(HasSubstr("STARTTLS"))));
}

TEST(CSMTPServerTest, offersALogin)
{
    const CSMTPServer server({.authentication = CSMTPServer::Authentication::Offered});
    const auto sendAs = [&server](const char* mechanism, const char* login) {
        const std::vector<std::string> options{"--login-options", mechanism, "-u", login};
        return sendMail(server, {"to@test.example"}, shortMessage, options).exitStatus();
    };
    for (const char* mechanism : {"AUTH=PLAIN", "AUTH=LOGIN"}) {
        EXPECT_EQ(sendAs(mechanism, "user:secret"), 0) << mechanism;
        EXPECT_EQ(sendAs(mechanism, "user:wrong"), 67) << mechanism;
        EXPECT_EQ(sendAs(mechanism, "other:secret"), 67) << mechanism;
    }
    EXPECT_THAT(server.messages(), AllOf(SizeIs(2), Each(Field(&CSMTPServer::CMessage::user, "user"))));
}

TEST(CSMTPServerTest, demandsNoLoginIfItOnlyOffersOne)
{
    const CSMTPServer server({.authentication = CSMTPServer::Authentication::Offered});
    EXPECT_EQ(sendMail(server, {"to@test.example"}, shortMessage).exitStatus(), 0);
    EXPECT_EQ(server.messages().at(0).user, "");
}

TEST(CSMTPServerTest, demandsALoginIfToldTo)
{
    const CSMTPServer server({.authentication = CSMTPServer::Authentication::Demanded});
    EXPECT_THAT(sendMail(server, {"to@test.example"}, shortMessage).errors(), HasSubstr("MAIL failed: 530"));
    EXPECT_EQ(sendMail(server, {"to@test.example"}, shortMessage, {"-u", "user:secret"}).exitStatus(), 0);
}

TEST(CSMTPServerTest, offersNoLoginUnlessToldTo)
{
    const CSMTPServer server({.security = CSMTPServer::Security::StartTLS});
    const CProcessRun run
        = sendMail(server, {"to@test.example"}, shortMessage, {"-v", "-u", "user:secret", "--ssl-reqd"});
    EXPECT_EQ(run.exitStatus(), 0) << run.errors();
    EXPECT_THAT(run.errors(), Not(HasSubstr("AUTH")));
    EXPECT_EQ(server.messages().at(0).user, "");
}

struct CReplyCase {
    const char* name;
    const char* start;
    std::vector<std::string> commands;
};

const std::vector<CReplyCase> replyCases{
    {"EHLO", "EHLO", {"EHLO test"}},
    {"AUTH", "AUTH", {"EHLO test", "AUTH PLAIN"}},
    {"MAIL", "mail from:<a@", {"HELO test", "MAIL FROM:<a@test.example>"}},
    {"RCPT", "RCPT TO:<b@", {"HELO test", "MAIL FROM:<a@test.example>", "RCPT TO:<b@test.example>"}},
    {"DATA", "DATA", {"HELO test", "MAIL FROM:<a@test.example>", "RCPT TO:<b@test.example>", "DATA"}},
    {"End", ".", {"HELO test", "MAIL FROM:<a@test.example>", "RCPT TO:<b@test.example>", "DATA", "text\r\n."}},
};

class CSMTPServerReplyTest : public testing::TestWithParam<CReplyCase> {
protected:
    static CSMTPServer serverThatReplies(const char* reply)
    {
        return CSMTPServer(
            {.authentication = CSMTPServer::Authentication::Offered, .replies = {{GetParam().start, reply}}});
    }
};

TEST_P(CSMTPServerReplyTest, replacesTheAnswer)
{
    const CSMTPServer server = serverThatReplies("554 5.5.0 Not today");
    std::vector<std::string> answers = answersTo(server, GetParam().commands);
    EXPECT_EQ(answers.back(), "554 5.5.0 Not today\r\n");
    answers.pop_back();
    EXPECT_THAT(answers, Each(AnyOf(StartsWith("250"), StartsWith("354"))));
    EXPECT_THAT(server.messages(), IsEmpty());
}

TEST_P(CSMTPServerReplyTest, closesTheConnectionInstead)
{
    const CSMTPServer server = serverThatReplies("");
    std::vector<std::string> answers = answersTo(server, GetParam().commands);
    EXPECT_EQ(answers.back(), "");
    answers.pop_back();
    EXPECT_THAT(answers, Each(AnyOf(StartsWith("250"), StartsWith("354"))));
    EXPECT_THAT(server.messages(), IsEmpty());
}

std::string nameOfReplyCase(const testing::TestParamInfo<CReplyCase>& information)
{
    return information.param.name;
}

INSTANTIATE_TEST_SUITE_P(, CSMTPServerReplyTest, testing::ValuesIn(replyCases), nameOfReplyCase);

TEST(CSMTPServerTest, replacesAnswersToOneAddressOnly)
{
    const CSMTPServer server({.replies = {{"RCPT TO:<full@", "452 4.2.2 Mailbox full"}}});
    EXPECT_THAT(
        answersTo(server,
            {"HELO test", "MAIL FROM:<a@test.example>", "RCPT TO:<full@test.example>", "RCPT TO:<b@test.example>"}),
        ElementsAre("250 localhost\r\n", "250 OK\r\n", "452 4.2.2 Mailbox full\r\n", "250 OK\r\n"));
}

TEST(CSMTPServerTest, disconnectsAfterSomeBytesOfAMessage)
{
    const CSMTPServer server({.disconnectAfter = 1'000'000});
    EXPECT_EQ(sendMail(server, {"to@test.example"}, bodyOf(600'000)).exitStatus(), 0);
    EXPECT_THAT(sendMail(server, {"to@test.example"}, bodyOf(2'000'000)).exitStatus(), AnyOf(55, 56));
    EXPECT_THAT(server.messages(), SizeIs(1));
}

TEST(CSMTPServerTest, disconnectsAtTheFirstByteOfAMessage)
{
    const CSMTPServer server({.disconnectAfter = 0});
    EXPECT_EQ(answersTo(server, {"HELO test", "MAIL FROM:<a@test.example>", "RCPT TO:<b@test.example>", "DATA", "text"})
                  .back(),
        "");
}

} // namespace
