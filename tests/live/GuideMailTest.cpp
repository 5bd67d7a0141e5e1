// The mail sample of docs/guide.md against real servers.
#include "docs/guide/samples.h"
#include "norla/core/errorKind.h"
#include "norla/mail/CSMTPParams.h"
#include "tests/support/CSMTPServer.h"
#include "tests/support/CScriptedServer.h"
#include "tests/support/CTestCertificates.h"
#include "tests/support/errorOf.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::EndsWith;
using testing::HasSubstr;

norla::CSMTPParams paramsOf(int port)
{
    norla::CSMTPParams params;
    params.host = "127.0.0.1";
    params.port = port;
    params.connectType = norla::CSMTPParams::ConnectStartTLS;
    params.userName = "user";
    params.password = "secret";
    return params;
}

TEST(GuideMailTest, sendsAText)
{
    const support::CSMTPServer server({.security = support::CSMTPServer::Security::StartTLS,
        .authentication = support::CSMTPServer::Authentication::Demanded});
    norla::CSMTPParams params = paramsOf(server.getPort());
    const auto authority = norla::CTLSOptions::Path::fromBytes(support::CTestCertificates::get().caFile().string());
    params.tlsOptions = norla::CTLSOptions{.rootsFile = authority};
    sendText(params, "to@example.invalid", "Hello.\r\n");
    const auto messages = server.messages();
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0].recipients, std::vector<std::string>{"to@example.invalid"});
    EXPECT_TRUE(messages[0].isSecure);
    EXPECT_THAT(messages[0].body, HasSubstr("From: =?utf-8?q?Zo=C3=AB?= <zoe@example.org>\r\n"));
    EXPECT_THAT(messages[0].body, HasSubstr("Subject: =?utf-8?q?Gr=C3=BC=C3=9Fe?=\r\n"));
    EXPECT_TRUE(messages[0].body.ends_with("\r\n\r\nHello.\r\n")) << messages[0].body;
}

TEST(GuideMailTest, refusesAnUnknownIssuerBeforeItTellsThePassword)
{
    const auto& certificates = support::CTestCertificates::get();
    support::CScriptedServer server;
    server.onConnection()
        .send("220 ready\r\n")
        .readUntil("\r\n")
        .send("250-localhost\r\n250-AUTH PLAIN\r\n250 STARTTLS\r\n")
        .readUntil("STARTTLS\r\n")
        .send("220 go ahead\r\n")
        .startTLS(certificates.serverCertificate(), certificates.serverKey())
        .readUntil("\r\n")
        .send("250-localhost\r\n250 AUTH PLAIN\r\n")
        .readUntil("AUTH PLAIN")
        .readUntil("\r\n")
        .sendAndClose("535 no\r\n");
    const auto error = support::errorOf([&server] { sendText(paramsOf(server.getPort()), "to@example.invalid", ""); });
    ASSERT_TRUE(error);
    EXPECT_EQ(norla::getErrorKind(*error), norla::ErrorKind::Certificate) << error->what();
    server.join();
    EXPECT_THAT(server.received(0), EndsWith("STARTTLS\r\n"));
}

} // namespace
