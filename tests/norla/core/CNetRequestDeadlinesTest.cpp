// Each limit of time, what it counts, and what is said of it.
#include "norla/async/CAsyncNetRequestManager.h"
#include "norla/core/CDeadlines.h"
#include "tests/curlcalls/CCurlCalls.h"
#include "tests/norla/core/CRequestFixture.h"
#include "tests/support/CBusyPort.h"
#include "tests/support/errorOf.h"

namespace {

using norla::CDeadlines;
using norla::TransferLimit;
using norla::TransferPhase;

constexpr kx::CTimeSpan ms(long long milliseconds)
{
    return kx::CTimeSpan::fromMilliseconds(milliseconds);
}

constexpr kx::CTimeSpan seconds(long long count)
{
    return kx::CTimeSpan::fromSeconds(count);
}

class CNetRequestDeadlinesTest : public CRequestFixture {
protected:
    std::string hostText() { return "127.0.0.1:" + std::to_string(server().getPort()); }

    void setURL(const std::string& path, const std::string& scheme)
    {
        request().setURL(kx::String::fromUTF8(server().url(path, scheme)));
    }

    /// What an error says of the limit, which is in its message.
    std::string messageOf(const kx::P<kx::CError>& error)
    {
        if (!error)
            return "(no error)";
        const auto& failure = dynamic_cast<const norla::CCURLError&>(*error);
        const std::string text = failure.getDetails().limitText.toUTF8();
        const std::string message = failure.getMessage().toUTF8();
        m_limit = failure.getDetails().limit;
        EXPECT_EQ(failure.getCode(), CURLE_OPERATION_TIMEDOUT);
        EXPECT_TRUE(message.starts_with("Timeout was reached: " + text)) << message;
        return text;
    }

    std::string messageOfFTP()
    {
        setURL("/a", "ftp");
        return messageOf(failure());
    }

    support::CScript& logIn()
    {
        return server()
            .onConnection()
            .send("220 here\r\n")
            .readUntil("\r\n")
            .send("331 and?\r\n")
            .readUntil("\r\n")
            .send("230 fine\r\n");
    }

    kx::P<kx::CError> failureInBackground()
    {
        norla::CAsyncNetRequestManager manager;
        manager.addRequest(&request());
        while (!request().isAsyncDone()) {
            manager.waitForEvents(100);
            manager.handleEvents(nullptr);
        }
        return support::errorOf([this] { request().checkAsyncResult(); });
    }

    TransferLimit m_limit = TransferLimit::None;
};

using Texts = std::vector<std::string>;

TEST_F(CNetRequestDeadlinesTest, areOptionsOfLibcurl)
{
    support::CCurlCalls calls;
    request().setDeadlines({.connect = ms(1), .inactivity = seconds(2), .total = seconds(3)});
    EXPECT_EQ(calls.takeOptions(),
        Texts({"CONNECTTIMEOUT_MS=1", "LOW_SPEED_LIMIT=1", "LOW_SPEED_TIME=2", "SERVER_RESPONSE_TIMEOUT=2",
            "TIMEOUT_MS=3000"}));
}

TEST_F(CNetRequestDeadlinesTest, areRoundedUp)
{
    support::CCurlCalls calls;
    request().setDeadlines({.connect = kx::CTimeSpan::fromMicroseconds(1),
        .inactivity = ms(1001),
        .total = kx::CTimeSpan::fromMicroseconds(1)});
    EXPECT_EQ(calls.takeOptions(),
        Texts({"CONNECTTIMEOUT_MS=1", "LOW_SPEED_LIMIT=1", "LOW_SPEED_TIME=2", "SERVER_RESPONSE_TIMEOUT=2",
            "TIMEOUT_MS=1"}));
}

TEST_F(CNetRequestDeadlinesTest, zeroAndInfiniteMeanNone)
{
    const Texts none{"CONNECTTIMEOUT_MS=2147483647", "LOW_SPEED_LIMIT=0", "LOW_SPEED_TIME=0",
        "SERVER_RESPONSE_TIMEOUT=0", "TIMEOUT_MS=0"};
    support::CCurlCalls calls;
    request().setDeadlines({.connect = {}, .inactivity = {}, .total = {}});
    EXPECT_EQ(calls.takeOptions(), none);
    constexpr auto infinite = kx::CTimeSpan::infinite();
    request().setDeadlines({.connect = infinite, .inactivity = infinite, .total = infinite});
    EXPECT_EQ(calls.takeOptions(), none);
}

TEST_F(CNetRequestDeadlinesTest, areAtMostWhatLibcurlTakes)
{
    support::CCurlCalls calls;
    constexpr auto century = seconds(100LL * 365 * 24 * 3600);
    request().setDeadlines({.connect = century, .inactivity = century, .total = century});
    EXPECT_EQ(calls.takeOptions(),
        Texts({"CONNECTTIMEOUT_MS=2147483647", "LOW_SPEED_LIMIT=1", "LOW_SPEED_TIME=2147483",
            "SERVER_RESPONSE_TIMEOUT=2147483", "TIMEOUT_MS=2147483647"}));
}

TEST_F(CNetRequestDeadlinesTest, areRefusedAsAWholeWhenOneIsNegative)
{
    support::CCurlCalls calls;
    EXPECT_EQ(support::messageOf([this] { request().setDeadlines({.total = ms(-1)}); }),
        "Invalid argument passed to 'CNetRequest::setDeadlines': the deadline 'total' is negative.");
    EXPECT_EQ(calls.takeOptions(), Texts());
}

TEST_F(CNetRequestDeadlinesTest, portThatAcceptsNobodyIsNamed)
{
    const support::CBusyPort busy;
    request().setDeadlines({.connect = ms(200)});
    request().setURL(kx::String::fromUTF8(busy.url()));
    const std::string host = busy.url().substr(7, busy.url().size() - 8);
    EXPECT_EQ(messageOf(failure()), "The server " + host + " did not accept a connection within 0.2 seconds.");
    EXPECT_EQ(m_limit, TransferLimit::Connect);
}

TEST_F(CNetRequestDeadlinesTest, handshakeThatStallsIsNamed)
{
    server().onConnection().stall();
    request().setDeadlines({.connect = ms(200)});
    setURL("/", "https");
    EXPECT_EQ(messageOf(failure()),
        "The server " + hostText() + " accepted a connection, but agreed on no encryption within 0.2 seconds.");
}

TEST_F(CNetRequestDeadlinesTest, proxyThatMakesNoTunnelIsNamed)
{
    server().onConnection().readHead().stall();
    request().setDeadlines({.connect = ms(200)});
    request().setProxy(kx::String::fromUTF8(hostText()));
    request().setURL("https://host.invalid/");
    EXPECT_EQ(messageOf(failure()),
        "No connection to the server host.invalid was made through the proxy " + hostText() + " within 0.2 seconds.");
}

TEST_F(CNetRequestDeadlinesTest, silentSOCKSProxyIsNamed)
{
    server().onConnection().stall();
    request().setDeadlines({.connect = ms(200)});
    request().setProxy(kx::String::fromUTF8("socks5h://user:secret@" + hostText()));
    request().setURL("ftp://host.invalid/");
    EXPECT_EQ(messageOf(failure()),
        "No connection to the server host.invalid was made through the proxy " + hostText() + " within 0.2 seconds.");
}

TEST_F(CNetRequestDeadlinesTest, serverThatIsSilentBehindATunnelIsNamed)
{
    server().onConnection().readHead().send("HTTP/1.1 200 OK\r\n\r\n").stall();
    request().setDeadlines({.connect = ms(200)});
    request().setProxy(kx::String::fromUTF8(hostText()));
    request().setURL("https://host.invalid/");
    EXPECT_EQ(messageOf(failure()),
        "The server host.invalid accepted a connection through the proxy " + hostText()
            + ", but agreed on no encryption within 0.2 seconds.");
}

TEST_F(CNetRequestDeadlinesTest, proxyOfAnAnswerThatDoesNotComeIsNamed)
{
    server().onConnection().readHead().stall();
    request().setDeadlines({.total = ms(200)});
    request().setProxy(kx::String::fromUTF8(hostText()));
    request().setURL("http://host.invalid/");
    EXPECT_EQ(messageOf(failure()),
        "The transfer with host.invalid was not done within 0.2 seconds: the server had not answered through the proxy "
            + hostText() + ".");
}

TEST_F(CNetRequestDeadlinesTest, greetingThatDoesNotComeIsNamed)
{
    const std::string text = "The server " + hostText()
        + " accepted a connection, but was not done with greeting and login within 0.2 seconds.";
    request().setDeadlines({.connect = ms(200)});
    server().onConnection().stall();
    EXPECT_EQ(messageOfFTP(), text);
    server().onConnection().stall();
    setURL("/", "smtp");
    EXPECT_EQ(messageOf(failure()), text);
}

TEST_F(CNetRequestDeadlinesTest, connectLimitCountsAnewAfterARedirect)
{
    const support::CBusyPort busy;
    answer("HTTP/1.1 302 Found\r\nLocation: " + busy.url() + "\r\nContent-Length: 0\r\n\r\n");
    request().setDeadlines({.connect = ms(200)});
    setURL("/", "http");
    EXPECT_EQ(messageOf(failure()),
        "The server " + busy.url().substr(7, busy.url().size() - 8)
            + " did not accept a connection within 0.2 seconds.");
}

TEST_F(CNetRequestDeadlinesTest, answerThatDoesNotComeIsInactivity)
{
    server().onConnection().readHead().stall();
    request().setDeadlines({.inactivity = ms(1)});
    setURL("/", "http");
    EXPECT_EQ(messageOf(failure()), "The server " + hostText() + " has not answered for 1 second.");
    EXPECT_EQ(m_limit, TransferLimit::Inactivity);
}

TEST_F(CNetRequestDeadlinesTest, bodyThatStallsIsInactivity)
{
    server().onConnection().readHead().send("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\n").stall();
    request().setDeadlines({.connect = ms(200), .inactivity = seconds(1)});
    setURL("/", "http");
    const std::string message = messageOf(failure());
    EXPECT_TRUE(message.starts_with("The server " + hostText() + " has sent nothing more for 1 second.")) << message;
}

TEST_F(CNetRequestDeadlinesTest, ftpServerThatIsSilentBehindTheLoginIsInactive)
{
    logIn().readUntil("\r\n").send("257 \"/\"\r\n").stall();
    request().setDeadlines({.connect = ms(700), .inactivity = seconds(1)});
    EXPECT_EQ(messageOfFTP(), "The server " + hostText() + " has not answered for 1 second.");
}

TEST_F(CNetRequestDeadlinesTest, firstQuestionBehindALoginBelongsToIt)
{
    logIn().stall();
    request().setDeadlines({.connect = ms(300), .inactivity = seconds(1)});
    EXPECT_EQ(messageOfFTP(),
        "The server " + hostText()
            + " accepted a connection, but was not done with greeting and login within 0.3 seconds.");
}

TEST_F(CNetRequestDeadlinesTest, mailServerThatIsSilentBehindItsHelloIsInactive)
{
    server().onConnection().send("220 here\r\n").readUntil("\r\n").send("250 fine\r\n").stall();
    request().setDeadlines({.connect = ms(700), .inactivity = seconds(1)});
    request().setUpload(true);
    norla::CNetStringList recipients;
    recipients.addUTF8("<them@example.org>");
    request().setOptionPtr(CURLOPT_MAIL_RCPT, recipients.getCurlList());
    setURL("/", "smtp");
    EXPECT_EQ(messageOf(failure()), "The server " + hostText() + " has not answered for 1 second.");
    EXPECT_EQ(m_limit, TransferLimit::Inactivity);
}

TEST_F(CNetRequestDeadlinesTest, inactivityCountsDuringALoginToo)
{
    server().onConnection().send("220 here\r\n").stall();
    request().setDeadlines({.connect = seconds(20), .inactivity = seconds(1)});
    EXPECT_EQ(messageOfFTP(), "The server " + hostText() + " has not answered for 1 second.");
}

TEST_F(CNetRequestDeadlinesTest, totalEndsABodyThatTrickles)
{
    server()
        .onConnection()
        .readHead()
        .send("HTTP/1.1 200 OK\r\nContent-Length: 999\r\n\r\n")
        .sendPieces(std::vector<std::string>(50, "x"))
        .stall();
    request().setDeadlines({.total = ms(300)});
    setURL("/", "http");
    EXPECT_EQ(messageOf(failure()),
        "The transfer with " + hostText() + " was not done within 0.3 seconds: the answer was still coming.");
    EXPECT_EQ(m_limit, TransferLimit::Total);
}

TEST_F(CNetRequestDeadlinesTest, totalCountsWhileTheCommandsOfFTPAreSilent)
{
    logIn().readUntil("\r\n").send("257 \"/\"\r\n").stall();
    request().setDeadlines({.total = ms(500)});
    setURL("/a", "ftp");
    EXPECT_EQ(messageOf(failure()),
        "The transfer with " + hostText() + " was not done within 0.5 seconds: the server had not answered.");
}

TEST_F(CNetRequestDeadlinesTest, ftpServerOwesNoReplyWhileItsFileComes)
{
    support::CScriptedServer data;
    data.onConnection().send(std::string(100'000, 'x')).stall();
    logIn()
        .readUntil("\r\n")
        .send("257 \"/\"\r\n")
        .readUntil("\r\n")
        .send("229 here (|||" + std::to_string(data.getPort()) + "|)\r\n")
        .readUntil("\r\n")
        .send("200 binary\r\n")
        .readUntil("\r\n")
        .send("213 200000\r\n")
        .readUntil("\r\n")
        .send("150 it comes\r\n")
        .stall();
    request().setDeadlines({.inactivity = seconds(1), .total = ms(1200)});
    setURL("/a", "ftp");
    EXPECT_EQ(messageOf(failure()),
        "The transfer with " + hostText() + " was not done within 1.2 seconds: the answer was still coming.");
}

TEST_F(CNetRequestDeadlinesTest, totalGoesBeforeConnect)
{
    const support::CBusyPort busy;
    request().setDeadlines({.connect = ms(200), .total = ms(200)});
    request().setURL(kx::String::fromUTF8(busy.url()));
    EXPECT_TRUE(messageOf(failure()).ends_with("the server did not accept a connection."));
}

TEST_F(CNetRequestDeadlinesTest, areToldInTheBackgroundToo)
{
    server().onConnection().stall();
    request().setDeadlines({.connect = ms(200)});
    setURL("/", "https");
    EXPECT_EQ(messageOf(failureInBackground()),
        "The server " + hostText() + " accepted a connection, but agreed on no encryption within 0.2 seconds.");
    EXPECT_EQ(m_limit, TransferLimit::Connect);
}

TEST_F(CNetRequestDeadlinesTest, withoutThemTheWordsAreLibcurls)
{
    server().onConnection().stall();
    request().setConnectTimeout(ms(200));
    setURL("/", "https");
    const auto error = failure();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getMessage().find("The server"), kx::String::npos) << error->getMessage();
    EXPECT_EQ(dynamic_cast<const norla::CCURLError&>(*error).getDetails().limit, TransferLimit::Connect);
}

TEST_F(CNetRequestDeadlinesTest, areForgottenByAReset)
{
    server().onConnection().stall();
    request().setDeadlines({.connect = ms(200)});
    request().reset();
    request().setConnectTimeout(ms(200));
    setURL("/", "https");
    const auto error = failure();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getMessage().find("The server"), kx::String::npos) << error->getMessage();
}

TEST_F(CNetRequestDeadlinesTest, ftpServerThatEndsTheServiceIsNoDeadline)
{
    server().onConnection().send("421 Too many users\r\n").readToEnd();
    request().setDeadlines({});
    setURL("/a", "ftp");
    const auto error = failure();
    ASSERT_TRUE(error);
    EXPECT_EQ(dynamic_cast<const norla::CCURLError&>(*error).getDetails().limit, TransferLimit::None);
    EXPECT_EQ(dynamic_cast<const norla::CCURLError&>(*error).getDetails().ftpReply, "421 Too many users");
}

} // namespace
