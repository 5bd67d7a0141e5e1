// The mail sample of docs/guide.md against real servers.
#include "docs/guide/samples.h"
#include "norla/mail/CSMTPParams.h"
#include "tests/support/CSMTPServer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::HasSubstr;

TEST(GuideMailTest, sendsAText)
{
    const support::CSMTPServer server({.security = support::CSMTPServer::Security::StartTLS,
        .authentication = support::CSMTPServer::Authentication::Demanded});
    norla::CSMTPParams params;
    params.host = "127.0.0.1";
    params.port = server.getPort();
    params.connectType = norla::CSMTPParams::ConnectStartTLS;
    params.userName = "user";
    params.password = "secret";
    sendText(params, "to@example.invalid", "Hello.\r\n");
    const auto messages = server.messages();
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0].recipients, std::vector<std::string>{"to@example.invalid"});
    EXPECT_TRUE(messages[0].isSecure);
    EXPECT_THAT(messages[0].body, HasSubstr("From: =?utf-8?q?Zo=C3=AB?= <zoe@example.org>\r\n"));
    EXPECT_THAT(messages[0].body, HasSubstr("Subject: =?utf-8?q?Gr=C3=BC=C3=9Fe?=\r\n"));
    EXPECT_TRUE(messages[0].body.ends_with("\r\n\r\nHello.\r\n")) << messages[0].body;
}

} // namespace
