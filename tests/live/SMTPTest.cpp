// The SMTP client against aiosmtpd and Exim.
#include "norla/mail/CMultiPartMimeMessage.h"
#include "norla/mail/CSMTPClient.h"
#include "tests/live/liveRequest.h"
#include "tests/live/mail.h"
#include "tests/support/CEximServer.h"
#include "tests/support/CLogRecorder.h"
#include "tests/support/CRefusedPort.h"
#include "tests/support/CSMTPServer.h"
#include "tests/support/errorOf.h"
#include "tests/support/libcurlWords.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace {

using norla::CSMTPClient;
using norla::CSMTPParams;
using support::CEximServer;
using support::CSMTPServer;
using support::errorOf;
using Recipients = kx::TArray<kx::String>;

CSMTPParams paramsFor(unsigned short port, CSMTPParams::ConnectType type = CSMTPParams::ConnectUnencrypted,
    const kx::String& userName = "", const kx::String& password = "secret")
{
    CSMTPParams params;
    params.host = "127.0.0.1";
    params.port = port;
    params.connectType = type;
    params.userName = userName;
    params.password = password;
    return params;
}

kx::P<CSMTPClient> clientOf(unsigned short port, CSMTPParams::ConnectType type = CSMTPParams::ConnectUnencrypted,
    const kx::String& userName = "", const kx::String& password = "secret")
{
    return kx::newObj<CSMTPClient>(paramsFor(port, type, userName, password));
}

kx::P<CSMTPClient::Buffer> bufferOf(const std::string& bytes)
{
    auto buffer = kx::newObj<CSMTPClient::Buffer>();
    buffer->append(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
    return buffer;
}

void send(CSMTPClient& client, const std::string& message = live::shortMessage,
    const Recipients& recipients = {"to@b.example"}, const kx::String& from = "from@a.example")
{
    client.sendMail(from, recipients, *bufferOf(message));
}

std::string everythingIn(const kx::CError& error)
{
    std::string all = error.what();
    for (const auto& [key, value] : error.getProps().getMap())
        all += "\n" + key.toUTF8() + ": " + value.toUTF8();
    return all;
}

size_t countOf(const std::string& part, const std::string& whole)
{
    size_t count = 0;
    for (size_t hit = whole.find(part); hit != std::string::npos; hit = whole.find(part, hit + 1))
        ++count;
    return count;
}

/// Lines as mail has them, of exactly that many bytes in all.
std::string linesOf(size_t size)
{
    constexpr size_t lineSize = 100;
    std::string lines;
    for (size_t number = 0; lines.size() + lineSize <= size; ++number) {
        const std::string start = "." + std::to_string(number) + " ";
        lines += start + std::string(lineSize - 2 - start.size(), 'x') + "\r\n";
    }
    return lines;
}

// What arrives.

TEST(SMTPTest, arrivesWithItsEnvelopeOverEachKindOfConnection)
{
    for (const auto& [security, type] : {std::pair(CSMTPServer::Security::None, CSMTPParams::ConnectUnencrypted),
             std::pair(CSMTPServer::Security::StartTLS, CSMTPParams::ConnectStartTLS),
             std::pair(CSMTPServer::Security::Implicit, CSMTPParams::ConnectSSL)}) {
        SCOPED_TRACE(type);
        const CSMTPServer server({.security = security, .authentication = CSMTPServer::Authentication::Demanded});
        send(*clientOf(server.getPort(), type, "user"), live::shortMessage, {"to@b.example", "<other@c.example>"});
        const auto messages = server.messages();
        ASSERT_EQ(messages.size(), 1u);
        EXPECT_EQ(messages[0].from, "from@a.example");
        EXPECT_EQ(messages[0].recipients, (std::vector<std::string>{"to@b.example", "other@c.example"}));
        EXPECT_EQ(messages[0].body, live::shortMessage);
        EXPECT_EQ(messages[0].user, "user");
        EXPECT_EQ(messages[0].isSecure, type != CSMTPParams::ConnectUnencrypted);
    }
}

TEST(SMTPTest, isStoredByATransferAgentOverEachKindOfConnection)
{
    const CEximServer server(CEximServer::Authentication::Demanded);
    send(*clientOf(server.getPort(), CSMTPParams::ConnectUnencrypted, "user"), "Subject: 1\r\n\r\none\r\n");
    send(*clientOf(server.getPort(), CSMTPParams::ConnectStartTLS, "user"), "Subject: 2\r\n\r\ntwo\r\n");
    send(*clientOf(server.tlsPort(), CSMTPParams::ConnectSSL, "user"), "Subject: 3\r\n\r\nthree\r\n");
    EXPECT_EQ(server.waitForMessages(3),
        (std::vector<std::string>{
            "Subject: 1\r\n\r\none\r\n", "Subject: 2\r\n\r\ntwo\r\n", "Subject: 3\r\n\r\nthree\r\n"}));
    const std::string log = server.log();
    EXPECT_EQ(countOf(" A=cram_md5:user ", log), 3u) << log; // the password itself does not travel
    EXPECT_EQ(countOf(" X=TLS1.3:", log), 2u) << log;
    EXPECT_EQ(countOf(" from <from@a.example> for to@b.example\n", log), 3u) << log;
}

TEST(SMTPTest, logsInWithEachMechanism)
{
    const CSMTPServer server({.authentication = CSMTPServer::Authentication::Demanded});
    for (const char* const mechanism : {"AUTH=PLAIN", "AUTH=LOGIN"}) {
        const auto request = kx::newObj<norla::CNetRequest>();
        CSMTPClient::makeSendMailRequest(*request, paramsFor(server.getPort(), CSMTPParams::ConnectUnencrypted, "user"),
            "from@a.example", {"to@b.example"}, kx::newObj<kx::CBufferStream>(bufferOf(live::shortMessage)).get());
        request->setOptionString(CURLOPT_LOGIN_OPTIONS, kx::String::fromLatin1(mechanism));
        request->perform();
    }
    const auto messages = server.messages();
    ASSERT_EQ(messages.size(), 2u);
    EXPECT_EQ(messages[0].user, "user");
    EXPECT_EQ(messages[1].user, "user");
}

TEST(SMTPTest, sendsWithoutLoginWhereThereIsNoUserName)
{
    const CSMTPServer server({.authentication = CSMTPServer::Authentication::Offered});
    send(*clientOf(server.getPort()));
    EXPECT_EQ(server.messages().at(0).user, "");
}

TEST(SMTPTest, everyByteArrivesAndBareLineEndsAsCRLF)
{
    std::string bytes = "Subject: bytes\r\n\r\n.\r\n..\r\n.a\r\na.\r\n\r\n.\r\n";
    for (int byte = 0; byte < 256; ++byte)
        bytes += byte == '\r' || byte == '\n' ? "\r\n" : std::string(1, static_cast<char>(byte));
    const std::string longLines = "\r\n" + std::string(998, 'x') + "\r\n." + std::string(996, 'y') + "\r\n\r\n\r\n";
    const CSMTPServer server;
    send(*clientOf(server.getPort()), bytes + "\r\n\n.\n\n.\r.four\r\n" + longLines);
    EXPECT_TRUE(server.messages().at(0).body == bytes + "\r\n\r\n.\r\n\r\n.\r\n.four\r\n" + longLines);
}

TEST(SMTPTest, aTransferAgentSeesNoCommandsInAMessage)
{
    const CEximServer server;
    const auto client = clientOf(server.getPort());
    for (const std::string& end : live::falseMessageEnds)
        send(*client, "Subject: 1\r\n\r\nthree\n.four" + end + live::smuggledMessage);
    const auto messages = server.waitForMessages(live::falseMessageEnds.size());
    EXPECT_EQ(messages.size(), live::falseMessageEnds.size());
    for (const std::string& message : messages) {
        EXPECT_TRUE(message.starts_with("Subject: 1\r\n\r\nthree\r\n.four\r\n.\r\nMAIL FROM:<smuggler@")) << message;
        EXPECT_TRUE(message.ends_with("\r\nsmuggled\r\n.\r\n")) << message;
    }
    EXPECT_EQ(server.log().find("from <smuggler@"), std::string::npos) << server.log();
}

TEST(SMTPTest, aTransferAgentStoresDotsAndLongLinesAsTheyAre)
{
    const std::string message = "Subject: dots\r\n\r\n.\r\n..\r\n.a\r\na.\r\n\r\n.\r\n" + std::string(998, 'x')
        + "\r\n." + std::string(997, 'y') + "\r\n\xC3\xBC\xFF\r\n\r\n\r\n";
    const CEximServer server;
    send(*clientOf(server.getPort()), message);
    EXPECT_TRUE(server.waitForMessages(1).at(0) == message);
}

TEST(SMTPTest, aMessageOf25MegabytesArrives)
{
    const std::string message = "Subject: big\r\n\r\n" + linesOf(25'000'000);
    const CSMTPServer server;
    send(*clientOf(server.getPort()), message);
    EXPECT_TRUE(server.messages().at(0).body == message);
}

TEST(SMTPTest, aTransferAgentStoresAMessageOf25Megabytes)
{
    const std::string message = "Subject: big\r\n\r\n" + linesOf(25'000'000);
    const CEximServer server;
    send(*clientOf(server.getPort(), CSMTPParams::ConnectStartTLS), message);
    EXPECT_TRUE(server.waitForMessages(1).at(0) == message);
}

TEST(SMTPTest, aMessageWithoutALineEndGetsOne)
{
    const CSMTPServer server;
    send(*clientOf(server.getPort()), "Subject: 1\r\n\r\nend");
    EXPECT_EQ(server.messages().at(0).body, "Subject: 1\r\n\r\nend\r\n");
}

TEST(SMTPTest, anEmptyMessageArrives)
{
    const CSMTPServer server;
    send(*clientOf(server.getPort()), "");
    EXPECT_EQ(server.messages().at(0).body, "");
}

TEST(SMTPTest, anEmptySenderIsOne)
{
    const CEximServer server;
    send(*clientOf(server.getPort()), live::shortMessage, {"to@b.example"}, "");
    EXPECT_NE(server.log().find(" from <> for to@b.example\n"), std::string::npos) << server.log();
}

TEST(SMTPTest, aHundredRecipientsGetTheMessage)
{
    Recipients recipients;
    std::vector<std::string> expected;
    for (int i = 0; i < 100; ++i) {
        expected.push_back("to" + std::to_string(i) + "@b.example");
        recipients.push_back(kx::String::fromUTF8(expected.back()));
    }
    const CSMTPServer server;
    send(*clientOf(server.getPort()), live::shortMessage, recipients);
    EXPECT_EQ(server.messages().at(0).recipients, expected);
}

TEST(SMTPTest, aMultipartMessageArrivesAsItIsStored)
{
    const auto message = kx::newObj<norla::CMultiPartMimeMessage>("mixed");
    message->getHeaders()["Subject"] = L"Gr\u00FC\u00DFe";
    message->getHeaders()["Date"] = CSMTPClient::getDateHeaderString(kx::CTimeFields(kx::CTime::now()));
    const auto part = kx::newObj<norla::CMimeMessage>("text/plain; charset=utf-8");
    part->setBody(bufferOf(".dots\r\n").get(), "8bit");
    message->addPart(part.get());
    const auto bytes = kx::newObj<CSMTPClient::Buffer>();
    message->store(*kx::newObj<kx::CBufferStream>(bytes));
    const CEximServer server;
    clientOf(server.getPort())->sendMail("from@a.example", {"to@b.example"}, *bytes);
    EXPECT_EQ(server.waitForMessages(1).at(0),
        std::string(reinterpret_cast<const char*>(bytes->getData()), bytes->getSize()));
}

// One client.

TEST(SMTPTest, severalMessagesShareAConnection)
{
    const CEximServer server;
    const auto client = clientOf(server.getPort(), CSMTPParams::ConnectStartTLS, "user");
    for (int i = 0; i < 5; ++i)
        send(*client, "Subject: " + std::to_string(i) + "\r\n\r\n" + std::string(static_cast<size_t>(i), '.') + "\r\n",
            {kx::String::fromUTF8("to" + std::to_string(i) + "@b.example")});
    EXPECT_EQ(server.waitForMessages(5).at(4), "Subject: 4\r\n\r\n....\r\n");
    const std::string log = server.log();
    EXPECT_EQ(countOf("SMTP connection from", log), 1u) << log;
    EXPECT_EQ(countOf(" for to4@b.example\n", log), 1u) << log;
}

TEST(SMTPTest, connectionTestWithTheRightPasswordSucceedsAndSendsNothing)
{
    const CSMTPServer server({.authentication = CSMTPServer::Authentication::Demanded});
    clientOf(server.getPort(), CSMTPParams::ConnectUnencrypted, "user")->testConnection();
    EXPECT_TRUE(server.messages().empty());
}

TEST(SMTPTest, connectionTestWithTheWrongPasswordFails)
{
    const CSMTPServer server(
        {.security = CSMTPServer::Security::StartTLS, .authentication = CSMTPServer::Authentication::Demanded});
    const auto client = clientOf(server.getPort(), CSMTPParams::ConnectStartTLS, "user", "wrong");
    const auto error = errorOf([&client] { client->testConnection(); });
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getCode(), CURLE_LOGIN_DENIED);
    EXPECT_EQ(error->getProps().get("responseCode"), "535");
}

TEST(SMTPTest, connectionTestAtTheWrongPortFails)
{
    const support::CRefusedPort port;
    const auto client = clientOf(port.getPort());
    const auto error = errorOf([&client] { client->testConnection(); });
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getCode(), CURLE_COULDNT_CONNECT);
    EXPECT_FALSE(error->getProps().has("serverMessage"));
}

TEST(SMTPTest, sendsBeforeBetweenAndAfterConnectionTests)
{
    const CEximServer server(CEximServer::Authentication::Demanded);
    const auto client = clientOf(server.getPort(), CSMTPParams::ConnectStartTLS, "user");
    client->testConnection();
    send(*client);
    client->testConnection();
    client->testConnection();
    send(*client);
    EXPECT_EQ(server.waitForMessages(2), (std::vector<std::string>{live::shortMessage, live::shortMessage}));
}

// Failures, and the send after them.

class SMTPFailureTest : public testing::Test {
protected:
    kx::P<kx::CError> failureOf(const Recipients& recipients, const kx::String& from = "from@a.example")
    {
        return errorOf([this, &recipients, from] { send(*m_client, "Subject: lost\r\n\r\n", recipients, from); });
    }

    void expectNextSend()
    {
        send(*m_client);
        const auto messages = m_server.messages();
        ASSERT_EQ(messages.size(), 1u);
        EXPECT_EQ(messages[0].from, "from@a.example");
        EXPECT_EQ(messages[0].recipients, std::vector<std::string>{"to@b.example"});
        EXPECT_EQ(messages[0].body, live::shortMessage);
    }

    const CSMTPServer m_server{
        CSMTPServer::CSettings{.replies = {{"MAIL FROM:<refused@", "550 5.1.0 Sender refused"},
                                   {"RCPT TO:<closed@", ""}, {"RCPT TO:<unready@", "421 4.3.2 Going down"}},
            .disconnectAfter = 1 << 20}};
    const kx::P<CSMTPClient> m_client = clientOf(m_server.getPort());
};

TEST_F(SMTPFailureTest, refusedSender)
{
    const auto error = failureOf({"to@b.example"}, "refused@a.example");
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getMessage(), "Failed sending data to the peer: MAIL failed: 550 (response code: smtp 550)");
    expectNextSend();
}

TEST_F(SMTPFailureTest, refusedRecipient)
{
    const auto error = failureOf({"reject@b.example"});
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getMessage(), "Failed sending data to the peer: RCPT failed: 550 (response code: smtp 550)");
    expectNextSend();
}

TEST_F(SMTPFailureTest, oneRefusedRecipientOfThree)
{
    const auto error = failureOf({"one@b.example", "tempfail@b.example", "two@b.example"});
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getMessage(), "Failed sending data to the peer: RCPT failed: 451 (response code: smtp 451)");
    expectNextSend();
}

TEST_F(SMTPFailureTest, allRecipientsRefused)
{
    EXPECT_NE(failureOf({"reject@b.example", "reject@c.example"}), nullptr);
    expectNextSend();
}

TEST_F(SMTPFailureTest, serverThatGoesDown)
{
    EXPECT_NE(failureOf({"unready@b.example"}), nullptr);
    expectNextSend();
}

TEST_F(SMTPFailureTest, disconnectionAtARecipient)
{
    EXPECT_NE(failureOf({"closed@b.example"}), nullptr);
    expectNextSend();
}

TEST_F(SMTPFailureTest, disconnectionWhileTheMessageIsSent)
{
    EXPECT_NE(errorOf([this] { send(*m_client, linesOf(8 << 20)); }), nullptr);
    expectNextSend();
}

TEST_F(SMTPFailureTest, noRecipients)
{
    // The server answers HELP, for which libcurl asks then.
    const auto error = failureOf({});
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getMessage(), "Failed sending data to the peer: the message has no recipients and was not sent");
    expectNextSend();
}

TEST_F(SMTPFailureTest, severalInARow)
{
    EXPECT_NE(failureOf({"reject@b.example"}), nullptr);
    EXPECT_NE(failureOf({}), nullptr);
    EXPECT_NE(failureOf({"closed@b.example"}), nullptr);
    EXPECT_NE(failureOf({"to@b.example"}, "refused@a.example"), nullptr);
    expectNextSend();
}

TEST(SMTPTest, failsWithoutRecipientsAtATransferAgent)
{
    const CEximServer server;
    const auto client = clientOf(server.getPort());
    const auto error = errorOf([&client] { send(*client, "Subject: lost\r\n\r\n", {}); });
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getMessage(), "Failed sending data to the peer: the message has no recipients and was not sent");
    send(*client);
    EXPECT_EQ(server.waitForMessages(1), std::vector<std::string>{live::shortMessage});
}

TEST(SMTPTest, libcurlAloneIsContentWithoutRecipients)
{
    const CEximServer server;
    const auto request = kx::newObj<norla::CNetRequest>();
    CSMTPClient::makeSendMailRequest(*request, paramsFor(server.getPort()), "from@a.example", {},
        kx::newObj<kx::CBufferStream>(bufferOf(live::shortMessage)).get());
    EXPECT_EQ(curl_easy_perform(request->getEasyHandle()), CURLE_OK);
    EXPECT_TRUE(live::bodyOf(*request).starts_with("214")) << live::bodyOf(*request);
    request->setAsyncInfo(true, CURLE_OK); // as a manager does at the end
    EXPECT_NE(errorOf([&request] { request->checkAsyncResult(); }), nullptr);
}

TEST(SMTPTest, aMessageThatIsRefusedAtItsEndFails)
{
    const CSMTPServer server({.replies = {{".", "554 5.6.0 Not this one"}}});
    const auto client = clientOf(server.getPort());
    const auto error = errorOf([&client] { send(*client); });
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getProps().get("responseCode"), "554");
    EXPECT_TRUE(server.messages().empty());
}

TEST(SMTPTest, startTLSThatIsNotOfferedFailsBeforeAnythingIsSent)
{
    const CSMTPServer server({.authentication = CSMTPServer::Authentication::Offered});
    const auto client = clientOf(server.getPort(), CSMTPParams::ConnectStartTLS, "user");
    const auto error = errorOf([&client] { send(*client); });
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getCode(), CURLE_USE_SSL_FAILED);
    EXPECT_TRUE(server.messages().empty());
}

TEST(SMTPTest, implicitTLSAtAPlainPortFails)
{
    const CSMTPServer server;
    const auto client = clientOf(server.getPort(), CSMTPParams::ConnectSSL);
    const auto error = errorOf([&client] { send(*client); });
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getCode(), CURLE_SSL_CONNECT_ERROR);
}

TEST(SMTPTest, theErrorHasTheServersLastReply)
{
    const CEximServer server;
    const auto client = clientOf(server.getPort());
    const auto error = errorOf([&client] { send(*client, live::shortMessage, {"reject@b.example"}); });
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getProps().get("responseCode"), "550");
    EXPECT_EQ(error->getProps().get("responseCodeDomain"), "smtp");
    // libcurl says QUIT, to which Exim answers. Newer ones do not show that.
    EXPECT_EQ(error->getProps().get("serverMessage").toUTF8(),
        support::isLibcurlSince(8, 14) ? "550 5.1.1 No such recipient\r\n" : "221 localhost closing connection\r\n");
    EXPECT_EQ(dynamic_cast<const norla::CCURLError&>(*error).getServerReply(), "550 5.1.1 No such recipient");
}

TEST(SMTPTest, neitherErrorsNorLogHaveThePassword)
{
    const support::CLogRecorder log;
    const CSMTPServer plain({.authentication = CSMTPServer::Authentication::Demanded});
    const CEximServer agent(CEximServer::Authentication::Demanded);
    for (const unsigned short port : {plain.getPort(), agent.getPort()}) {
        const auto client = clientOf(port, CSMTPParams::ConnectUnencrypted, "user", "open sesame");
        for (const bool isTest : {true, false}) {
            const auto error = errorOf([&client, isTest] { isTest ? client->testConnection() : send(*client); });
            ASSERT_NE(error, nullptr);
            EXPECT_EQ(error->getCode(), CURLE_LOGIN_DENIED);
            EXPECT_EQ(everythingIn(*error).find("sesame"), std::string::npos) << everythingIn(*error);
        }
    }
    for (const std::string& line : log.lines())
        EXPECT_EQ(line.find("sesame"), std::string::npos) << line;
}

} // namespace
