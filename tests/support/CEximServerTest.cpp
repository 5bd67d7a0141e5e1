#include "tests/support/CEximServer.h"

#include "tests/support/CTestCertificates.h"
#include "tests/support/loopback.h"
#include "tests/support/runCurl.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>

using support::CEximServer;
using support::CProcessRun;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

const char* const foldedMessage = "Subject: 1\r\nX-Folded:  two \r\n\tlines\r\n\r\n.dot\r\n\xff\r\n";

CProcessRun sendMail(const std::string& url, std::vector<std::string> options,
    const std::string& message = foldedMessage, const std::string& recipient = "to@test.example")
{
    const std::string authority = support::CTestCertificates::get().caFile();
    options.insert(options.end(),
        {url, "--cacert", authority, "--mail-from", "from@test.example", "--mail-rcpt", recipient, "-T", "-"});
    return support::runCurl(options, message);
}

TEST(CEximServerTest, storesMessagesByteForByteInOrder)
{
    const CEximServer server;
    EXPECT_THAT(server.waitForMessages(0), IsEmpty());
    EXPECT_EQ(sendMail(server.url(), {}).exitStatus(), 0);
    EXPECT_EQ(sendMail(server.url(), {}, "Subject: 2\r\n\r\n..\r\n").exitStatus(), 0);
    EXPECT_EQ(sendMail(server.url(), {}, "Subject: 3\r\n\r\n\r\n").exitStatus(), 0);
    EXPECT_THAT(
        server.waitForMessages(3), ElementsAre(foldedMessage, "Subject: 2\r\n\r\n..\r\n", "Subject: 3\r\n\r\n\r\n"));
}

TEST(CEximServerTest, storesACopyForEachRecipientAndLogsTheEnvelope)
{
    const CEximServer server;
    EXPECT_EQ(sendMail(server.url(), {"--mail-rcpt", "other@elsewhere.example"}).exitStatus(), 0);
    EXPECT_THAT(server.waitForMessages(2), ElementsAre(foldedMessage, foldedMessage));
    EXPECT_THAT(server.log(), HasSubstr(" from <from@test.example> for other@elsewhere.example to@test.example\n"));
}

TEST(CEximServerTest, refusesSomeRecipients)
{
    const CEximServer server;
    const CProcessRun rejected = sendMail(server.url(), {}, foldedMessage, "reject@test.example");
    EXPECT_THAT(rejected.errors(), HasSubstr("RCPT failed: 550"));
    const CProcessRun deferred = sendMail(server.url(), {}, foldedMessage, "tempfail@test.example");
    EXPECT_THAT(deferred.errors(), HasSubstr("RCPT failed: 451"));
    server.waitUntilLogged("rejected RCPT <reject@test.example>: 550 5.1.1 No such recipient");
    server.waitUntilLogged("temporarily rejected RCPT <tempfail@test.example>: 451 4.3.0 Try again later");
}

TEST(CEximServerTest, offersStartTLS)
{
    const CEximServer server;
    const CProcessRun run = sendMail(server.url(), {"--ssl-reqd"});
    EXPECT_EQ(run.exitStatus(), 0) << run.errors();
    EXPECT_THAT(server.waitForMessages(1), ElementsAre(foldedMessage));
    EXPECT_THAT(server.log(), HasSubstr(" P=esmtps X=TLS1.3:"));
}

TEST(CEximServerTest, hasAPortForImplicitTLS)
{
    const CEximServer server;
    const CProcessRun run = sendMail(server.tlsURL(), {});
    EXPECT_EQ(run.exitStatus(), 0) << run.errors();
    EXPECT_THAT(server.waitForMessages(1), ElementsAre(foldedMessage));
    EXPECT_THAT(server.log(), HasSubstr(" P=esmtps X=TLS1.3:"));
}

TEST(CEximServerTest, demandsALoginIfToldTo)
{
    const CEximServer server(CEximServer::Authentication::Demanded);
    EXPECT_THAT(sendMail(server.url(), {}).errors(), HasSubstr("MAIL failed: 530"));
    EXPECT_EQ(sendMail(server.url(), {"-u", "user:secret"}).exitStatus(), 0);
    EXPECT_THAT(server.waitForMessages(1), ElementsAre(foldedMessage));
}

struct CMechanism {
    const char* option;
    const char* logName;
};

class CEximServerLoginTest : public testing::TestWithParam<CMechanism> {
protected:
    CProcessRun logInAs(const std::string& login)
    {
        return sendMail(m_server.url(), {"--login-options", std::string("AUTH=") + GetParam().option, "-u", login});
    }

    const CEximServer m_server{CEximServer::Authentication::Demanded};
};

TEST_P(CEximServerLoginTest, letsTheUserIn)
{
    const CProcessRun run = logInAs("user:secret");
    EXPECT_EQ(run.exitStatus(), 0) << run.errors();
    EXPECT_THAT(m_server.log(), HasSubstr(std::string(" P=esmtpa A=") + GetParam().logName + ":user "));
}

TEST_P(CEximServerLoginTest, refusesAWrongPassword)
{
    EXPECT_EQ(logInAs("user:wrong").exitStatus(), 67);
    m_server.waitUntilLogged(std::string(GetParam().logName) + " authenticator failed for ");
}

TEST_P(CEximServerLoginTest, refusesAnotherUser)
{
    EXPECT_EQ(logInAs("other:secret").exitStatus(), 67);
}

std::string nameOfMechanism(const testing::TestParamInfo<CMechanism>& information)
{
    return information.param.logName;
}

INSTANTIATE_TEST_SUITE_P(, CEximServerLoginTest,
    testing::Values(CMechanism{"PLAIN", "plain"}, CMechanism{"LOGIN", "login"}, CMechanism{"CRAM-MD5", "cram_md5"}),
    nameOfMechanism);

TEST(CEximServerTest, acceptsABigMessage)
{
    const CEximServer server;
    std::string big = "Subject: big\r\n\r\n";
    const std::string line = std::string(98, 'b') + "\r\n";
    while (big.size() < 40'000'000)
        big += line;
    const CProcessRun run = sendMail(server.url(), {}, big);
    EXPECT_EQ(run.exitStatus(), 0) << run.errors();
    EXPECT_TRUE(server.waitForMessages(1).at(0) == big);
}

TEST(CEximServerTest, runsBesideAnother)
{
    const CEximServer server;
    const CEximServer other;
    EXPECT_EQ(sendMail(other.url(), {}).exitStatus(), 0);
    EXPECT_THAT(other.waitForMessages(1), ElementsAre(foldedMessage));
    EXPECT_THAT(server.waitForMessages(0), IsEmpty());
}

TEST(CEximServerTest, stopsWhenTheObjectGoes)
{
    std::optional<CEximServer> server(std::in_place);
    const unsigned short port = server->getPort();
    server.reset();
    EXPECT_FALSE(support::connectToLoopback(port));
}

} // namespace
