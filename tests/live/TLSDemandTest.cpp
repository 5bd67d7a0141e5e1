// TLS that is demanded of servers to which plain connections are still open.
#include "norla/async/CAsyncNetRequestThread.h"
#include "tests/live/liveRequest.h"
#include "tests/live/mail.h"
#include "tests/support/CEximServer.h"
#include "tests/support/CFTPServer.h"
#include "tests/support/CSMTPServer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using norla::CSMTPParams;
using testing::ElementsAre;

TEST(TLSDemandTest, oneRequestSendsWhatMustBeEncryptedOverAnEncryptedConnection)
{
    const support::CSMTPServer server({.security = support::CSMTPServer::Security::StartTLS});
    const auto request = kx::newObj<norla::CNetRequest>();
    for (const auto type :
        {CSMTPParams::ConnectUnencrypted, CSMTPParams::ConnectStartTLS, CSMTPParams::ConnectUnencrypted}) {
        live::prepareMail(*request, server.getPort(), type, live::shortMessage);
        request->perform();
    }
    const auto messages = server.messages();
    ASSERT_EQ(messages.size(), 3u);
    EXPECT_FALSE(messages[0].isSecure);
    EXPECT_TRUE(messages[1].isSecure);
    for (const auto& message : messages)
        EXPECT_EQ(message.body, live::shortMessage);
}

TEST(TLSDemandTest, oneThreadSendsWhatMustBeEncryptedOverAnEncryptedConnection)
{
    const support::CEximServer server;
    const auto thread = kx::newObj<norla::CAsyncNetRequestThread>();
    thread->start();
    for (const auto type : {CSMTPParams::ConnectUnencrypted, CSMTPParams::ConnectStartTLS}) {
        const auto request = kx::newObj<norla::CNetRequest>();
        live::prepareMail(*request, server.getPort(), type, live::shortMessage);
        thread->addRequest(request.get());
        ASSERT_TRUE(request->waitAsyncDone(60'000));
        request->checkAsyncResult();
    }
    EXPECT_THAT(server.waitForMessages(2), ElementsAre(live::shortMessage, live::shortMessage));
    const std::string log = server.log();
    EXPECT_NE(log.find(" P=esmtp "), std::string::npos) << log;
    EXPECT_NE(log.find(" P=esmtps X=TLS"), std::string::npos) << log;
}

TEST(TLSDemandTest, anFTPSessionIsEncryptedAsDemanded)
{
    const support::CFTPServer server(support::IFTPServer::Security::Explicit);
    const auto request = live::requestFor(server.url("", "ftp"));
    request->setUserName(kx::String::fromUTF8(server.userName()));
    request->setUserPassword(kx::String::fromUTF8(server.password()));
    request->setSSLVerifyPeer(false);
    for (const int demand : {CURLUSESSL_NONE, CURLUSESSL_CONTROL, CURLUSESSL_ALL}) {
        request->setFTPUseSSL(demand);
        EXPECT_EQ(live::messageOf(*request), "success");
    }
    const std::string log = server.log();
    const size_t control = log.find("AUTH ");
    EXPECT_NE(log.find("USER "), std::string::npos) << log;
    EXPECT_LT(log.find("USER "), control) << log;
    EXPECT_NE(log.find("PROT C", control), std::string::npos) << log;
    EXPECT_NE(log.find("PROT P", control), std::string::npos) << log;
}

} // namespace
