// What a mail transfer agent makes of mail that takes bare line feeds for line ends.
#include "norla/async/CAsyncNetRequestThread.h"
#include "tests/live/mail.h"
#include "tests/support/CPostfixServer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace {

using norla::CSMTPParams;
using testing::AllOf;
using testing::Each;
using testing::EndsWith;
using testing::HasSubstr;
using testing::UnorderedElementsAre;

class PostfixTest : public testing::Test {
protected:
    void prepare(norla::CNetRequest& request, CSMTPParams::ConnectType type, const std::string& message) const
    {
        live::prepareMail(request, m_server.getPort(), type, message);
    }

    void expectOneInClearAndOneEncrypted() const
    {
        EXPECT_THAT(m_server.waitForMessages(2),
            UnorderedElementsAre(AllOf(HasSubstr(" with ESMTP id "), EndsWith("\n\nin clear\n")),
                AllOf(HasSubstr(" with ESMTPS id "), EndsWith("\n\nencrypted\n"))));
    }

    static constexpr const char* m_clearMessage = "Subject: 1\r\n\r\nin clear\r\n";
    static constexpr const char* m_encryptedMessage = "Subject: 2\r\n\r\nencrypted\r\n";
    const support::CPostfixServer m_server;
};

TEST_F(PostfixTest, oneRequestEncryptsWhatMustBeEncryptedAfterAMessageInClear)
{
    const auto request = kx::newObj<norla::CNetRequest>();
    prepare(*request, CSMTPParams::ConnectUnencrypted, m_clearMessage);
    request->perform();
    prepare(*request, CSMTPParams::ConnectStartTLS, m_encryptedMessage);
    request->perform();
    expectOneInClearAndOneEncrypted();
}

TEST_F(PostfixTest, oneThreadEncryptsWhatMustBeEncryptedAfterAMessageInClear)
{
    const auto thread = kx::newObj<norla::CAsyncNetRequestThread>();
    thread->start();
    for (const auto& [type, message] : {std::pair(CSMTPParams::ConnectUnencrypted, m_clearMessage),
             std::pair(CSMTPParams::ConnectStartTLS, m_encryptedMessage)}) {
        const auto request = kx::newObj<norla::CNetRequest>();
        prepare(*request, type, message);
        thread->addRequest(request.get());
        ASSERT_TRUE(request->waitAsyncDone(60'000));
        request->checkAsyncResult();
    }
    expectOneInClearAndOneEncrypted();
}

TEST_F(PostfixTest, aMessageWithBareLineEndsArrivesAsOneAndWhole)
{
    auto request = kx::newObj<norla::CNetRequest>();
    for (const std::string& end : live::falseMessageEnds) {
        prepare(*request, CSMTPParams::ConnectUnencrypted,
            "Subject: 1\r\n\r\nthree\n.four\r.five" + end + live::smuggledMessage);
        request->perform();
    }
    request = nullptr; // says goodbye, behind which the server has nothing more to read
    m_server.waitUntilLogged(": disconnect from ");
    const auto messages = m_server.waitForMessages(live::falseMessageEnds.size());
    EXPECT_EQ(messages.size(), live::falseMessageEnds.size());
    EXPECT_THAT(messages,
        Each(EndsWith("\n\nthree\n.four\n.five\n.\nMAIL FROM:<smuggler@a.example>\nRCPT TO:<victim@b.example>\nDATA\n"
                      "smuggled\n.\n")));
    EXPECT_THAT(m_server.log(), HasSubstr(" mail=6 rcpt=6 data=6 quit=1 commands="));
}

} // namespace
