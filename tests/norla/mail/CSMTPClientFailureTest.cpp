// What a mail server's failures say to a person, and how long they take.
#include "norla/async/CAsyncNetRequestThread.h"
#include "norla/core/CCURLError.h"
#include "tests/norla/mail/CSMTPClientFixture.h"

#include <chrono>

namespace {

using mail_test::CSMTPParams;
using mail_test::errorOf;

/// A mail that fails, sent by perform() and in the background.
class CSMTPClientFailureTest : public mail_test::CSMTPClientFixture, public testing::WithParamInterface<bool> {
protected:
    kx::P<kx::CError> failureOf(const CSMTPParams& params)
    {
        const auto request = kx::newObj<norla::CNetRequest>();
        prepare(*request, params);
        if (!GetParam())
            return errorOf([&request] { request->perform(); });
        const auto thread = kx::newObj<norla::CAsyncNetRequestThread>();
        thread->addRequest(request.get());
        thread->start();
        EXPECT_TRUE(request->waitAsyncDone(20'000));
        return errorOf([&request] { request->checkAsyncResult(); });
    }

    static kx::String replyOf(const kx::CError& error)
    {
        return dynamic_cast<const norla::CCURLError&>(error).getServerReply();
    }

    CSMTPParams secureParams() const
    {
        CSMTPParams secure = params();
        secure.connectType = CSMTPParams::ConnectStartTLS;
        return secure;
    }

    /// The failure with that limit for each reply, which has to come in time.
    kx::P<kx::CError> failureInTime(CSMTPParams limited)
    {
        const auto start = std::chrono::steady_clock::now();
        auto error = failureOf(limited);
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(9));
        return error;
    }

    CSMTPParams limitedParams() const
    {
        CSMTPParams limited = params();
        limited.responseTimeout = kx::CTimeSpan::fromSeconds(1);
        return limited;
    }
};

TEST_P(CSMTPClientFailureTest, theServerReplyIsTheRefusalAndNotTheGoodbye)
{
    greet()
        .readUntil("\r\n")
        .send("250 sender\r\n")
        .readUntil("\r\n")
        .send("550-5.1.1 no\r\n550 5.1.1 such\r\n")
        .readUntil("QUIT\r\n")
        .send("221 Bye\r\n");
    const auto error = failureOf(params());
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(replyOf(*error), "550-5.1.1 no\n550 5.1.1 such");
    EXPECT_EQ(error->getProps().get("responseCode"), "550");
}

TEST_P(CSMTPClientFailureTest, theServerReplyIsReadInWhateverEncodingItIs)
{
    for (const std::string letter : {"\xe4", "\xc3\xa4"}) {
        greet().readUntil("\r\n").send("550 Empf" + letter + "nger unbekannt\r\n").readUntil("QUIT\r\n");
        const auto error = failureOf(params());
        ASSERT_NE(error, nullptr);
        EXPECT_EQ(replyOf(*error), L"550 Empf\u00e4nger unbekannt");
    }
}

TEST_P(CSMTPClientFailureTest, theServerReplyShowsNoControlCharacters)
{
    greet().readUntil("\r\n").send("550 \x1b[2Jno\tsuch\x7fone\x1f\r\n").readUntil("QUIT\r\n");
    const auto error = failureOf(params());
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(replyOf(*error), "550 ?[2Jno?such?one?");
}

// What a server says too late would be its answer to the next mail.
class LateReplyTest : public testing::Test {
protected:
    LateReplyTest()
    {
        untilTheEndOfTheMail().readToEnd();
        untilTheEndOfTheMail().send("250 taken\r\n").readToEnd();
    }

    support::CScript& untilTheEndOfTheMail()
    {
        return m_server.onConnection()
            .send("220 ready\r\n")
            .readUntil("\r\n")
            .send("250 hello\r\n")
            .readUntil("\r\n")
            .send("250 sender\r\n")
            .readUntil("\r\n")
            .send("250 recipient\r\n")
            .readUntil("DATA\r\n")
            .send("354 go on\r\n")
            .readUntil("\r\n.\r\n");
    }

    CSMTPParams params() const
    {
        CSMTPParams limited = mail_test::paramsOf(m_server.getPort());
        limited.host = "127.0.0.1";
        limited.fullTimeout = kx::CTimeSpan::fromMilliseconds(500);
        return limited;
    }

    support::CScriptedServer m_server;
    const kx::P<norla::CSMTPClient::Buffer> m_message = bufferOf("text\r\n");
};

TEST_F(LateReplyTest, aConnectionWhoseServerWasTooSlowIsNotUsedAgain)
{
    const auto client = kx::newObj<norla::CSMTPClient>(params());
    EXPECT_THROW(client->sendMail("a@x", {"b@x"}, *m_message), norla::CCURLError);
    EXPECT_NO_THROW(client->sendMail("a@x", {"b@x"}, *m_message));
    EXPECT_EQ(m_server.connectionCount(), 2U);
}

TEST_F(LateReplyTest, aConnectionWhoseServerWasTooSlowIsNotUsedAgainInTheBackground)
{
    const auto thread = kx::newObj<norla::CAsyncNetRequestThread>();
    thread->start();
    const auto send = [&] {
        const auto request = kx::newObj<norla::CNetRequest>();
        norla::CSMTPClient::makeSendMailRequest(
            *request, params(), "a@x", {"b@x"}, kx::newObj<kx::CBufferStream>(m_message).get());
        thread->addRequest(request.get());
        EXPECT_TRUE(request->waitAsyncDone(20'000));
        request->checkAsyncResult();
    };
    EXPECT_THROW(send(), norla::CCURLError);
    EXPECT_NO_THROW(send());
    EXPECT_EQ(m_server.connectionCount(), 2U);
}

TEST_P(CSMTPClientFailureTest, theServerReplyOfARefusedMessage)
{
    greetAndTakeEnvelope().readUntil("\r\n.\r\n").send("554 5.7.1 spam\r\n").readUntil("QUIT\r\n");
    const auto error = failureOf(params());
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(replyOf(*error), "554 5.7.1 spam");
}

TEST_P(CSMTPClientFailureTest, aFailureOfTLSIsNoReplyOfTheServer)
{
    greet("250 STARTTLS\r\n")
        .readUntil("STARTTLS\r\n")
        .send("220 Ready to start TLS\r\n")
        .readBytes(1)
        .send("no TLS\r\n");
    const auto error = failureOf(secureParams());
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getCode(), CURLE_SSL_CONNECT_ERROR);
    EXPECT_EQ(error->getProps().get("serverMessage"), "220 Ready to start TLS\r\n");
    EXPECT_EQ(replyOf(*error), "");
}

TEST_P(CSMTPClientFailureTest, aLostConnectionIsNoReplyOfTheServer)
{
    greet().readUntil("\r\n").send("250 sender\r\n").readUntil("\r\n").closeHard();
    const auto error = failureOf(params());
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(replyOf(*error), "");
    EXPECT_EQ(error->getProps().get("serverMessage"), "250 sender\r\n");
}

TEST_P(CSMTPClientFailureTest, aMissingGreetingEndsInTime)
{
    m_server.onConnection().readToEnd();
    const auto error = failureInTime(limitedParams());
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getCode(), CURLE_OPERATION_TIMEDOUT);
}

TEST_P(CSMTPClientFailureTest, aReplyThatMakesNoSenseEndsInTime)
{
    greet().readUntil("\r\n").send("sender?\r\n").readUntil("QUIT\r\n");
    const auto error = failureInTime(limitedParams());
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getCode(), CURLE_OPERATION_TIMEDOUT);
}

TEST_P(CSMTPClientFailureTest, aMissingReplyToAMessageEndsInTime)
{
    greetAndTakeEnvelope().readUntil("\r\n.\r\n").readToEnd();
    const auto error = failureInTime(limitedParams());
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getCode(), CURLE_OPERATION_TIMEDOUT);
}

TEST_P(CSMTPClientFailureTest, aMissingGreetingEndsWithTheConnectTimeout)
{
    m_server.onConnection().readToEnd();
    CSMTPParams limited = params();
    limited.connectTimeout = kx::CTimeSpan::fromMilliseconds(500);
    const auto error = failureInTime(limited);
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getCode(), CURLE_OPERATION_TIMEDOUT);
}

TEST_P(CSMTPClientFailureTest, theWholeOfAMailCanBeLimited)
{
    greet().readUntil("\r\n").send("sender?\r\n").readToEnd();
    CSMTPParams limited = params();
    limited.fullTimeout = kx::CTimeSpan::fromMilliseconds(700);
    const auto error = failureInTime(limited);
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getCode(), CURLE_OPERATION_TIMEDOUT);
}

INSTANTIATE_TEST_SUITE_P(, CSMTPClientFailureTest, testing::Bool(),
    [](const auto& isInBackground) { return isInBackground.param ? "inTheBackground" : "performed"; });

} // namespace
