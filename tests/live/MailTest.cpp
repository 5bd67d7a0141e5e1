// SMTP transfers of CNetRequest against aiosmtpd.
#include "norla/core/CNetStringList.h"
#include "tests/live/liveRequest.h"
#include "tests/support/CSMTPServer.h"

#include <gtest/gtest.h>

namespace {

class MailTest : public testing::Test {
protected:
    kx::P<norla::CNetRequest> requestFor(const kx::String& recipient, const kx::String& text)
    {
        auto request = live::requestFor(m_server.url());
        const auto recipients = kx::newObj<norla::CNetStringList>();
        recipients->add(recipient);
        request->keepObject(recipients.get());
        request->setOptionString(CURLOPT_MAIL_FROM, "from@example.invalid");
        request->setOptionPtr(CURLOPT_MAIL_RCPT, recipients->getCurlList());
        request->setUpload(true);
        request->setSendDataAsUTF8(text);
        return request;
    }

    support::CSMTPServer m_server;
};

TEST_F(MailTest, arrivesWithEnvelopeAndText)
{
    requestFor("to@example.invalid", "Subject: hello\r\n\r\n.dot\r\n")->perform();
    const auto messages = m_server.messages();
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0].from, "from@example.invalid");
    EXPECT_EQ(messages[0].recipients, std::vector<std::string>{"to@example.invalid"});
    EXPECT_EQ(messages[0].body, "Subject: hello\r\n\r\n.dot\r\n");
}

TEST_F(MailTest, refusedRecipientIsAnErrorWithTheServersReply)
{
    const auto error = live::failureOf(*requestFor("reject@example.invalid", "text\r\n"));
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getMessage(), "Failed sending data to the peer: RCPT failed: 550 (response code: smtp 550)");
    EXPECT_EQ(error->getProps().get("responseCodeDomain"), "smtp");
    EXPECT_FALSE(error->getProps().get("serverMessage").isEmpty());
}

} // namespace
