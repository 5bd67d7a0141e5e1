#include "norla/mail/CSMTPClient.h"

#include "kx/base/CInvalidArgError.h"
#include "kx/streams/CBufferStream.h"
#include "norla/async/CAsyncNetRequestThread.h"
#include "norla/core/CNetRequest.h"
#include "tests/norla/mail/CSMTPClientFixture.h"
#include "tests/norla/mail/mimeBytes.h"
#include "tests/support/CLogRecorder.h"
#include "tests/support/CRefusedPort.h"
#include "tests/support/CTestCertificates.h"
#include "tests/support/errorOf.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <string>
#include <vector>

namespace {

using mail_test::clearing;
using mail_test::conversation;
using norla::CSMTPClient;
using norla::CSMTPParams;
using support::errorOf;
using mail_test::operator+;
using mail_test::paramsOf;
using mail_test::Recipients;
using mail_test::shortMessage;
using mail_test::Texts;

/// Tells when it is gone.
class CWatchedStream : public kx::CBufferStream {
public:
    explicit CWatchedStream(bool& isAlive)
        : m_isAlive(isAlive)
    {
        m_isAlive = true;
    }
    ~CWatchedStream() override { m_isAlive = false; }

private:
    bool& m_isAlive;
};

// The options that the operations set.

class CSMTPClientOptionsTest : public testing::Test {
protected:
    /// What doInitialRequestInit() sets, without the options that every reset() sets first.
    Texts serverPartOf(const CSMTPParams& params)
    {
        m_calls.takeOptions();
        CSMTPClient::doInitialRequestInit(*m_request, params);
        return behindReset(m_calls.takeOptions());
    }

    /// How CURLOPT_SSL_VERIFYPEER stands in the end.
    std::string verifyPeerOf(const CSMTPParams& params)
    {
        m_calls.takeOptions();
        CSMTPClient::doInitialRequestInit(*m_request, params);
        const Texts options = m_calls.takeOptions();
        const auto found = std::find_if(options.rbegin(), options.rend(),
            [](const std::string& option) { return option.starts_with("SSL_VERIFYPEER="); });
        return found == options.rend() ? "(not set)" : *found;
    }

    Texts behindReset(const Texts& options)
    {
        m_request->reset();
        const Texts defaults = m_calls.takeOptions();
        EXPECT_TRUE(options.size() >= defaults.size() && std::equal(defaults.begin(), defaults.end(), options.begin()));
        return {
            options.begin() + static_cast<std::ptrdiff_t>(std::min(defaults.size(), options.size())), options.end()};
    }

    Texts mailPartOf(const kx::String& from, const Recipients& recipients)
    {
        m_calls.takeOptions();
        CSMTPClient::initRequestForSendMail(
            *m_request, from, recipients, kx::newObj<kx::CBufferStream>(bufferOf(shortMessage)).get());
        return m_calls.takeOptions();
    }

    /// What libcurl would get to send, at most 100 bytes.
    std::string readData()
    {
        std::array<char, 100> block{};
        const auto callback = reinterpret_cast<curl_read_callback>(m_calls.pointerOf(CURLOPT_READFUNCTION));
        return {block.data(), callback(block.data(), 1, block.size(), m_calls.pointerOf(CURLOPT_READDATA))};
    }

    int rewindData()
    {
        const auto callback = reinterpret_cast<curl_seek_callback>(m_calls.pointerOf(CURLOPT_SEEKFUNCTION));
        return callback(m_calls.pointerOf(CURLOPT_SEEKDATA), 0, SEEK_SET);
    }

    support::CCurlCalls m_calls;
    const kx::P<norla::CNetRequest> m_request = kx::newObj<norla::CNetRequest>();
};

TEST_F(CSMTPClientOptionsTest, serverPartOfAnUnencryptedConnection)
{
    EXPECT_EQ(serverPartOf(paramsOf(25, 0)), (Texts{"URL=smtp://h:25", "SSL_VERIFYPEER=0"}));
}

TEST_F(CSMTPClientOptionsTest, serverPartOfImplicitTLS)
{
    EXPECT_EQ(serverPartOf(paramsOf(465, 1)), (Texts{"URL=smtps://h:465", "SSL_VERIFYPEER=0"}));
}

TEST_F(CSMTPClientOptionsTest, serverPartOfStartTLS)
{
    EXPECT_EQ(serverPartOf(paramsOf(587, 2)), (Texts{"URL=smtp://h:587", "USE_SSL=3", "SSL_VERIFYPEER=0"}));
}

TEST_F(CSMTPClientOptionsTest, anyOtherConnectTypeCountsAsUnencrypted)
{
    EXPECT_EQ(serverPartOf(paramsOf(25, 3)), (Texts{"URL=smtp://h:25", "SSL_VERIFYPEER=0"}));
    EXPECT_EQ(serverPartOf(paramsOf(25, -1)), (Texts{"URL=smtp://h:25", "SSL_VERIFYPEER=0"}));
}

TEST_F(CSMTPClientOptionsTest, thePortIsWrittenAsItIs)
{
    EXPECT_EQ(serverPartOf(paramsOf(-1)).front(), "URL=smtp://h:-1");
    EXPECT_EQ(serverPartOf(paramsOf(2147483647)).front(), "URL=smtp://h:2147483647");
}

TEST_F(CSMTPClientOptionsTest, loginIsSetBehindTheURL)
{
    EXPECT_EQ(serverPartOf(paramsOf(587, 2, "us\xE9r", "secret")),
        (Texts{"URL=smtp://h:587", "USERNAME=us\xC3\xA9r", "PASSWORD=secret", "USE_SSL=3", "SSL_VERIFYPEER=0"}));
}

TEST_F(CSMTPClientOptionsTest, anEmptyPasswordIsSetForAUser)
{
    EXPECT_EQ(serverPartOf(paramsOf(25, 0, "user", "")),
        (Texts{"URL=smtp://h:25", "USERNAME=user", "PASSWORD=", "SSL_VERIFYPEER=0"}));
}

TEST_F(CSMTPClientOptionsTest, noPasswordIsSetWithoutAUser)
{
    EXPECT_EQ(serverPartOf(paramsOf(25, 0, "", "secret")), (Texts{"URL=smtp://h:25", "SSL_VERIFYPEER=0"}));
}

TEST_F(CSMTPClientOptionsTest, safeDefaultsDemandAProofOfTheServer)
{
    CSMTPParams params = paramsOf(587, 2);
    params.safeDefaults.emplace();
    EXPECT_EQ(verifyPeerOf(params), "SSL_VERIFYPEER=1");
}

TEST_F(CSMTPClientOptionsTest, tlsOptionsDemandAProofOfTheServer)
{
    CSMTPParams params = paramsOf(587, 2);
    params.tlsOptions.emplace();
    EXPECT_EQ(verifyPeerOf(params), "SSL_VERIFYPEER=1");
}

TEST_F(CSMTPClientOptionsTest, tlsOptionsCountInPlaceOfSafeDefaults)
{
    CSMTPParams params = paramsOf(587, 2);
    params.safeDefaults.emplace();
    params.tlsOptions = norla::CTLSOptions{.verifyCertificate = false};
    EXPECT_EQ(verifyPeerOf(params), "SSL_VERIFYPEER=0");
}

TEST_F(CSMTPClientOptionsTest, serverPartForgetsWhatTheRequestWasBefore)
{
    m_request->setHTTPMethod("DELETE");
    m_request->setReceiveDataSink(nullptr);
    CSMTPClient::doInitialRequestInit(*m_request, paramsOf(25));
    EXPECT_EQ(m_request->getHTTPMethod(), "GET");
    EXPECT_TRUE(m_request->usesDefaultReceiveBuffer());
    EXPECT_EQ(m_request->getURL(), "smtp://h:25");
}

TEST_F(CSMTPClientOptionsTest, mailPart)
{
    EXPECT_EQ(mailPartOf("<a@x>", {"b@x", "<c@x>", L"\u00FC@x"}),
        clearing + Texts({"CONNECT_ONLY=0", "MAIL_FROM=<a@x>", "UPLOAD=1", "MAIL_RCPT=[b@x, <c@x>, \xC3\xBC@x]"}));
}

TEST_F(CSMTPClientOptionsTest, mailPartWithoutRecipients)
{
    EXPECT_EQ(
        mailPartOf("a@x", {}), clearing + Texts({"CONNECT_ONLY=0", "MAIL_FROM=a@x", "UPLOAD=1", "MAIL_RCPT=null"}));
}

TEST_F(CSMTPClientOptionsTest, theRequestKeepsTheRecipients)
{
    mailPartOf("a@x", {"b@x"});
    const auto* const list = static_cast<const curl_slist*>(m_calls.pointerOf(CURLOPT_MAIL_RCPT));
    ASSERT_NE(list, nullptr);
    EXPECT_STREQ(list->data, "b@x"); // the sanitizer tells if it was freed
    EXPECT_EQ(list->next, nullptr);
}

TEST_F(CSMTPClientOptionsTest, theRequestKeepsTheData)
{
    bool isAlive = false;
    CSMTPClient::initRequestForSendMail(*m_request, "a@x", {"b@x"}, kx::newObj<CWatchedStream>(isAlive).get());
    EXPECT_TRUE(isAlive);
    CSMTPClient::resetOptions(*m_request);
    EXPECT_FALSE(isAlive);
}

TEST_F(CSMTPClientOptionsTest, clearingLeavesNothingToRead)
{
    mailPartOf("a@x", {"b@x"});
    CSMTPClient::resetOptions(*m_request);
    EXPECT_EQ(readData(), "");
}

TEST_F(CSMTPClientOptionsTest, clearingLeavesNothingToReadAlsoBehindASeek)
{
    mailPartOf("a@x", {"b@x"});
    EXPECT_EQ(readData(), shortMessage);
    CSMTPClient::resetOptions(*m_request);
    EXPECT_EQ(rewindData(), CURL_SEEKFUNC_OK);
    EXPECT_EQ(readData(), "");
}

TEST_F(CSMTPClientOptionsTest, clearingSetsThese)
{
    m_calls.takeOptions();
    CSMTPClient::resetOptions(*m_request);
    EXPECT_EQ(m_calls.takeOptions(), clearing);
}

TEST_F(CSMTPClientOptionsTest, clearingEmptiesTheSenderWithoutANullPointer)
{
    CSMTPClient::resetOptions(*m_request);
    EXPECT_NE(m_calls.pointerOf(CURLOPT_MAIL_FROM), nullptr);
}

TEST_F(CSMTPClientOptionsTest, wholeRequestIsServerPartAndMailPart)
{
    m_calls.takeOptions();
    CSMTPClient::makeSendMailRequest(*m_request, paramsOf(465, 1, "user", "secret"), "a@x", {"b@x"},
        kx::newObj<kx::CBufferStream>(bufferOf(shortMessage)).get());
    EXPECT_EQ(behindReset(m_calls.takeOptions()),
        Texts({"URL=smtps://h:465", "USERNAME=user", "PASSWORD=secret", "SSL_VERIFYPEER=0"}) + clearing
            + Texts({"CONNECT_ONLY=0", "MAIL_FROM=a@x", "UPLOAD=1", "MAIL_RCPT=[b@x]"}));
}

TEST_F(CSMTPClientOptionsTest, refusesNullData)
{
    EXPECT_THROW(CSMTPClient::initRequestForSendMail(*m_request, "a@x", {"b@x"}, nullptr), kx::CInvalidArgError);
}

TEST_F(CSMTPClientOptionsTest, refusesAZeroCharacterInAnAddress)
{
    const kx::String cut(std::wstring(L"a\0b", 3));
    const auto stream = kx::newObj<kx::CBufferStream>();
    EXPECT_THROW(CSMTPClient::initRequestForSendMail(*m_request, cut, {"b@x"}, stream.get()), kx::CInvalidArgError);
    EXPECT_THROW(CSMTPClient::initRequestForSendMail(*m_request, "a@x", {cut}, stream.get()), kx::CInvalidArgError);
}

TEST_F(CSMTPClientOptionsTest, refusesAnEmptyRecipientBeforeAnythingIsTouched)
{
    m_calls.takeOptions();
    const auto stream = kx::newObj<kx::CBufferStream>();
    const auto error = errorOf([this, &stream] {
        CSMTPClient::initRequestForSendMail(*m_request, "a@x", {"b@x", ""}, stream.get());
    });
    ASSERT_NE(error, nullptr);
    EXPECT_NE(dynamic_cast<const kx::CInvalidArgError*>(error.get()), nullptr);
    EXPECT_EQ(
        error->getMessage(), "Invalid argument passed to 'CSMTPClient::initRequestForSendMail': a recipient is empty.");
    EXPECT_EQ(m_calls.takeOptions(), Texts());
}

TEST_F(CSMTPClientOptionsTest, timeLimitsAreSetLastWhenTheyAreGiven)
{
    CSMTPParams limited = paramsOf(25);
    limited.responseTimeout = kx::CTimeSpan::fromSeconds(7);
    EXPECT_EQ(serverPartOf(limited), (Texts{"URL=smtp://h:25", "SSL_VERIFYPEER=0", "SERVER_RESPONSE_TIMEOUT=7"}));
    limited.connectTimeout = kx::CTimeSpan::fromMilliseconds(1500);
    limited.fullTimeout = kx::CTimeSpan::fromSeconds(60);
    EXPECT_EQ(serverPartOf(limited),
        (Texts{"URL=smtp://h:25", "SSL_VERIFYPEER=0", "CONNECTTIMEOUT_MS=1500", "SERVER_RESPONSE_TIMEOUT=7",
            "TIMEOUT_MS=60000"}));
}

TEST_F(CSMTPClientOptionsTest, aShortTimeLimitDoesNotBecomeNone)
{
    CSMTPParams limited = paramsOf(25);
    limited.connectTimeout = limited.responseTimeout = limited.fullTimeout = kx::CTimeSpan::fromMicroseconds(1);
    EXPECT_EQ(serverPartOf(limited),
        (Texts{"URL=smtp://h:25", "SSL_VERIFYPEER=0", "CONNECTTIMEOUT_MS=1", "SERVER_RESPONSE_TIMEOUT=1",
            "TIMEOUT_MS=1"}));
}

TEST_F(CSMTPClientOptionsTest, responsesAreLimitedInWholeSecondsRoundedUp)
{
    const auto secondsFor = [this](const kx::CTimeSpan& limit) {
        CSMTPParams limited = paramsOf(25);
        limited.responseTimeout = limit;
        return serverPartOf(limited).back();
    };
    EXPECT_EQ(secondsFor(kx::CTimeSpan::fromMicroseconds(1'000'000)), "SERVER_RESPONSE_TIMEOUT=1");
    EXPECT_EQ(secondsFor(kx::CTimeSpan::fromMicroseconds(1'000'001)), "SERVER_RESPONSE_TIMEOUT=2");
    EXPECT_EQ(secondsFor(kx::CTimeSpan::fromSeconds(1LL << 40)), "SERVER_RESPONSE_TIMEOUT=2147483");
}

TEST_F(CSMTPClientOptionsTest, refusesATimeLimitThatIsNotPositive)
{
    for (kx::CTimeSpan CSMTPParams::*const limit :
        {&CSMTPParams::connectTimeout, &CSMTPParams::responseTimeout, &CSMTPParams::fullTimeout}) {
        for (const long long microseconds : {0, -1}) {
            CSMTPParams limited = paramsOf(25);
            limited.*limit = kx::CTimeSpan::fromMicroseconds(microseconds);
            m_calls.takeOptions();
            EXPECT_THROW(CSMTPClient::doInitialRequestInit(*m_request, limited), kx::CInvalidArgError);
            EXPECT_EQ(m_calls.takeOptions(), Texts());
        }
    }
}

TEST_F(CSMTPClientOptionsTest, everyRefusalOfLibcurlIsThrown)
{
    for (const CURLoption option : {CURLOPT_CONNECT_ONLY, CURLOPT_UPLOAD, CURLOPT_MAIL_FROM, CURLOPT_MAIL_RCPT}) {
        m_calls.failOption(option);
        const auto error = errorOf([this] { CSMTPClient::resetOptions(*m_request); });
        ASSERT_NE(error, nullptr) << option;
        EXPECT_EQ(error->getMessage(), "Out of memory");
        m_calls.succeed();
    }
    for (const CURLoption option :
        {CURLOPT_URL, CURLOPT_USERNAME, CURLOPT_PASSWORD, CURLOPT_USE_SSL, CURLOPT_SSL_VERIFYPEER}) {
        m_calls.failOption(option);
        const auto error
            = errorOf([this] { CSMTPClient::doInitialRequestInit(*m_request, paramsOf(25, 2, "user", "secret")); });
        ASSERT_NE(error, nullptr) << option;
        EXPECT_EQ(error->getMessage(), "Out of memory");
        m_calls.succeed();
    }
}

// A client and the conversations that it holds.

class CSMTPClientTest : public mail_test::CSMTPClientFixture {};

TEST_F(CSMTPClientTest, sendsEnvelopeAndMessage)
{
    takeMail();
    send(*newClient());
    EXPECT_EQ(received(), conversation);
}

TEST_F(CSMTPClientTest, sendsOneCommandForEachRecipientInTheirOrder)
{
    greet()
        .readUntil("\r\n")
        .send("250 sender\r\n")
        .readUntil("<z@x>\r\n")
        .send("250 z\r\n")
        .readUntil("<b@x>\r\n")
        .send("250 b\r\n")
        .readUntil("<z@x>\r\n")
        .send("250 z\r\n")
        .readUntil("DATA\r\n")
        .send("354 go on\r\n")
        .readUntil("\r\n.\r\n")
        .send("250 taken\r\n")
        .readUntil("QUIT\r\n");
    send(*newClient(), shortMessage, {"z@x", "<b@x>", "z@x"});
    EXPECT_TRUE(
        received().starts_with("MAIL FROM:<a@x>\r\nRCPT TO:<z@x>\r\nRCPT TO:<b@x>\r\nRCPT TO:<z@x>\r\nDATA\r\n"));
}

TEST_F(CSMTPClientTest, sendsAnEmptySender)
{
    takeMail();
    newClient()->sendMail("", {"b@x"}, *bufferOf(shortMessage));
    EXPECT_TRUE(received().starts_with("MAIL FROM:<>\r\n"));
}

TEST_F(CSMTPClientTest, doublesDotsAtTheBeginningOfLines)
{
    takeMail();
    send(*newClient(), ".a\r\n..\r\nb.\r\n.\r\nend\r\n");
    EXPECT_NE(received().find("DATA\r\n..a\r\n...\r\nb.\r\n..\r\nend\r\n.\r\n"), std::string::npos);
}

TEST_F(CSMTPClientTest, endsTheLastLineOfAMessage)
{
    takeMail();
    send(*newClient(), "no line end");
    EXPECT_NE(received().find("DATA\r\nno line end\r\n.\r\n"), std::string::npos);
}

TEST_F(CSMTPClientTest, sendsAnEmptyMessage)
{
    greetAndTakeEnvelope().readUntil(".\r\n").send("250 taken\r\n").readUntil("QUIT\r\n");
    send(*newClient(), "");
    EXPECT_NE(received().find("DATA\r\n.\r\nQUIT"), std::string::npos);
}

TEST_F(CSMTPClientTest, leavesEveryByteOfAMessageAsItIsButForLineEnds)
{
    std::string message;
    for (int byte = 0; byte < 256; ++byte) {
        if (byte != '\r' && byte != '\n')
            message += static_cast<char>(byte);
    }
    takeMail();
    send(*newClient(), message + "\r\n" + message + "\n" + message + "\r" + message);
    EXPECT_NE(
        received().find("DATA\r\n" + message + "\r\n" + message + "\r\n" + message + "\r\n" + message + "\r\n.\r\n"),
        std::string::npos);
}

/// What a client says behind EHLO, as a server reads it that ends lines wherever anybody does: at CRLF, at a line feed
/// and at a carriage return. The lines of a message begin with "| ".
Texts readLeniently(const std::string& received)
{
    Texts said;
    bool isMessage = false;
    for (size_t start = 0; start < received.size();) {
        const size_t end = std::min(received.find_first_of("\r\n", start), received.size());
        const std::string line = received.substr(start, end - start);
        start = end + (received.compare(end, 2, "\r\n") == 0 ? 2 : 1);
        const bool isEnd = isMessage && line == ".";
        if (!isEnd)
            said.push_back((isMessage ? "| " : "") + (isMessage && line.starts_with('.') ? line.substr(1) : line));
        isMessage = !isEnd && (isMessage || line == "DATA");
    }
    return said;
}

TEST_F(CSMTPClientTest, nothingInAMessageIsACommandEvenForAServerThatEndsLinesAnywhere)
{
    const std::string command = "MAIL FROM:<smuggler@x>\r\n";
    const Texts ends = {"\n.\r\n", "\n.\n", "\r.\r\n", "\r.\r", "\r\n.\n", "\r\n.\r", "\n\r.\n"};
    for (const std::string& end : ends) {
        takeMail();
        send(*newClient(), "three\n.four" + end + command);
    }
    for (size_t i = 0; i < ends.size(); ++i) {
        Texts said = readLeniently(received(i));
        said.erase(std::remove(said.begin(), said.end(), "| "), said.end()); // behind "\n\r"
        EXPECT_EQ(said,
            (Texts{"MAIL FROM:<a@x>", "RCPT TO:<b@x>", "DATA", "| three", "| .four", "| .", "| MAIL FROM:<smuggler@x>",
                "QUIT"}));
    }
}

TEST_F(CSMTPClientTest, doublesADotBehindABareLineFeed)
{
    takeMail();
    send(*newClient(), "three\n.four\n");
    EXPECT_NE(received().find("DATA\r\nthree\r\n..four\r\n.\r\n"), std::string::npos);
}

TEST_F(CSMTPClientTest, logsIn)
{
    greet("250 AUTH PLAIN\r\n").readUntil("\r\n").send("334 \r\n").readUntil("\r\n").send("235 in\r\n").readToEnd();
    newClient("user", "secret")->testConnection();
    EXPECT_EQ(received(), "AUTH PLAIN\r\nAHVzZXIAc2VjcmV0\r\n");
}

TEST_F(CSMTPClientTest, isSetUpOnceAndNeverReset)
{
    takeMail();
    auto client = newClient();
    const Texts made = m_calls.takeOptions();
    EXPECT_EQ(made.back(), "SSL_VERIFYPEER=0");
    EXPECT_EQ(made[made.size() - 2], "URL=smtp://127.0.0.1:" + std::to_string(m_server.getPort()));
    send(*client);
    EXPECT_EQ(m_calls.takeOptions(),
        clearing + Texts({"CONNECT_ONLY=0", "MAIL_FROM=a@x", "UPLOAD=1", "MAIL_RCPT=[b@x]"}) + clearing);
}

TEST_F(CSMTPClientTest, copiesItsParameters)
{
    takeMail();
    CSMTPParams changed = params();
    const auto client = kx::newObj<CSMTPClient>(changed);
    changed.host = "elsewhere.invalid";
    send(*client);
}

TEST_F(CSMTPClientTest, sendsSeveralMessagesThroughOneConnection)
{
    greetAndTakeEnvelope()
        .readUntil("\r\n.\r\n")
        .send("250 taken\r\n")
        .readUntil("\r\n")
        .send("250 sender\r\n")
        .readUntil("\r\n")
        .send("250 recipient\r\n")
        .readUntil("DATA\r\n")
        .send("354 go on\r\n")
        .readUntil("\r\n.\r\n")
        .send("250 taken\r\n")
        .readUntil("QUIT\r\n");
    auto client = newClient();
    send(*client, "one\r\n");
    send(*client, "two\r\n", {"c@x"});
    client = nullptr;
    EXPECT_EQ(received(),
        "MAIL FROM:<a@x>\r\nRCPT TO:<b@x>\r\nDATA\r\none\r\n.\r\n"
        "MAIL FROM:<a@x>\r\nRCPT TO:<c@x>\r\nDATA\r\ntwo\r\n.\r\nQUIT\r\n");
}

TEST_F(CSMTPClientTest, connectionTestSendsNoMail)
{
    greet().readToEnd();
    newClient()->testConnection();
    EXPECT_EQ(received(), "");
}

TEST_F(CSMTPClientTest, connectionTestSetsTheseOptionsAndClearsThem)
{
    greet().readToEnd();
    const auto client = newClient();
    m_calls.takeOptions();
    client->testConnection();
    EXPECT_EQ(m_calls.takeOptions(), clearing + Texts({"CONNECT_ONLY=1", "UPLOAD=0"}) + clearing);
}

TEST_F(CSMTPClientTest, failedConnectionTestIsClearedToo)
{
    m_server.onConnection().send("554 closed\r\n");
    const auto client = newClient();
    m_calls.takeOptions();
    EXPECT_NE(errorOf([&client] { client->testConnection(); }), nullptr);
    EXPECT_EQ(m_calls.takeOptions(), clearing + Texts({"CONNECT_ONLY=1", "UPLOAD=0"}) + clearing);
}

TEST_F(CSMTPClientTest, sendsAfterAConnectionTest)
{
    greet().readToEnd();
    takeMail();
    auto client = newClient();
    client->testConnection();
    send(*client);
    client = nullptr;
    EXPECT_TRUE(received(1).starts_with("MAIL FROM:<a@x>\r\n"));
}

// Failures.

TEST_F(CSMTPClientTest, resetConnection)
{
    m_server.onConnection().reset();
    const auto error = expectFailureAndNextSend();
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getProps().getMap(), (kx::TMap<kx::String, kx::String>{{"responseCodeDomain", "smtp"}}));
}

TEST_F(CSMTPClientTest, sendsWithARequestWhoseConnectionWasRefusedBefore)
{
    const support::CRefusedPort refused;
    CSMTPParams unreachable = params();
    unreachable.port = refused.getPort();
    auto request = kx::newObj<norla::CNetRequest>();
    prepare(*request, unreachable);
    const auto error = errorOf([&request] { request->perform(); });
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getCode(), CURLE_COULDNT_CONNECT);
    takeMail();
    prepare(*request, params());
    request->perform();
    request = nullptr;
    EXPECT_EQ(received(), conversation);
}

TEST_F(CSMTPClientTest, failedHandshakeOfTLS)
{
    const auto& certificates = support::CTestCertificates::get();
    m_server.onConnection().readBytes(1).send("220 this is not TLS\r\n").closeHard();
    m_server.onConnection()
        .startTLS(certificates.serverCertificate(), certificates.serverKey())
        .send("220 ready\r\n")
        .readUntil("\r\n")
        .send("250 localhost\r\n")
        .readUntil("\r\n")
        .send("250 sender\r\n")
        .readUntil("\r\n")
        .send("250 recipient\r\n")
        .readUntil("DATA\r\n")
        .send("354 go on\r\n")
        .readUntil("\r\n.\r\n")
        .send("250 taken\r\n");
    CSMTPParams secure = params();
    secure.connectType = CSMTPParams::ConnectSSL;
    const auto client = kx::newObj<CSMTPClient>(secure);
    const auto error = errorOf([&client] { send(*client); });
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getCode(), CURLE_SSL_CONNECT_ERROR);
    send(*client);
    EXPECT_TRUE(received(1).ends_with("\r\n.\r\n"));
}

TEST_F(CSMTPClientTest, refusedLogin)
{
    greet("250 AUTH PLAIN\r\n")
        .readUntil("\r\n")
        .send("334 \r\n")
        .readUntil("\r\n")
        .send("454 not now\r\n")
        .closeHard();
    greet("250 AUTH PLAIN\r\n")
        .readUntil("\r\n")
        .send("334 \r\n")
        .readUntil("\r\n")
        .send("235 in\r\n")
        .readUntil("\r\n")
        .send("250 sender\r\n")
        .readUntil("\r\n")
        .send("250 recipient\r\n")
        .readUntil("DATA\r\n")
        .send("354 go on\r\n")
        .readUntil("\r\n.\r\n")
        .send("250 taken\r\n");
    const auto client = newClient("user", "secret");
    const auto error = errorOf([&client] { send(*client); });
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getCode(), CURLE_LOGIN_DENIED);
    EXPECT_EQ(error->getProps().get("serverMessage"), "454 not now\r\n");
    send(*client);
    EXPECT_TRUE(received(1).ends_with("\r\n.\r\n"));
}

TEST_F(CSMTPClientTest, refusedGreeting)
{
    m_server.onConnection().send("554 closed for today\r\n").closeHard();
    const auto error = expectFailureAndNextSend();
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getCode(), CURLE_WEIRD_SERVER_REPLY);
    EXPECT_EQ(
        error->getMessage(), "Weird server reply: Got unexpected smtp-server response: 554 (response code: smtp 554)");
    EXPECT_EQ(error->getProps().get("serverMessage"), "554 closed for today\r\n");
}

TEST_F(CSMTPClientTest, refusedSender)
{
    greet().readUntil("\r\n").send("550 no such sender\r\n").closeHard();
    const auto error = expectFailureAndNextSend();
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getDomain(), "curl");
    EXPECT_EQ(error->getCode(), CURLE_SEND_ERROR);
    EXPECT_EQ(error->getMessage(), "Failed sending data to the peer: MAIL failed: 550 (response code: smtp 550)");
    EXPECT_EQ(error->getProps().get("serverMessage"), "550 no such sender\r\n");
    EXPECT_EQ(error->getProps().get("responseCode"), "550");
    EXPECT_EQ(error->getProps().get("responseCodeDomain"), "smtp");
}

TEST_F(CSMTPClientTest, refusedRecipient)
{
    greet().readUntil("\r\n").send("250 sender\r\n").readUntil("\r\n").send("550-no\r\n550 such\r\n").closeHard();
    const auto error = expectFailureAndNextSend();
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getMessage(), "Failed sending data to the peer: RCPT failed: 550 (response code: smtp 550)");
    EXPECT_EQ(error->getProps().get("serverMessage"), "550 such\r\n"); // its last line
}

TEST_F(CSMTPClientTest, oneRefusedRecipientOfTwo)
{
    greet()
        .readUntil("\r\n")
        .send("250 sender\r\n")
        .readUntil("\r\n")
        .send("250 taken\r\n")
        .readUntil("\r\n")
        .send("451 not now\r\n")
        .closeHard();
    const auto error = expectFailureAndNextSend({"b@x", "c@x"});
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getMessage(), "Failed sending data to the peer: RCPT failed: 451 (response code: smtp 451)");
    EXPECT_EQ(error->getProps().get("serverMessage"), "451 not now\r\n");
    EXPECT_EQ(received(0).find("DATA"), std::string::npos);
}

TEST_F(CSMTPClientTest, refusedData)
{
    greet()
        .readUntil("\r\n")
        .send("250 sender\r\n")
        .readUntil("\r\n")
        .send("250 recipient\r\n")
        .readUntil("DATA\r\n")
        .send("554 no valid recipients\r\n")
        .closeHard();
    const auto error = expectFailureAndNextSend();
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getMessage(), "Failed sending data to the peer: DATA failed: 554 (response code: smtp 554)");
    EXPECT_EQ(error->getProps().get("serverMessage"), "554 no valid recipients\r\n");
}

TEST_F(CSMTPClientTest, refusedMessage)
{
    greetAndTakeEnvelope().readUntil("\r\n.\r\n").send("552 too much\r\n").closeHard();
    const auto error = expectFailureAndNextSend();
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getProps().get("responseCode"), "552");
    EXPECT_EQ(error->getProps().get("serverMessage"), "552 too much\r\n");
}

TEST_F(CSMTPClientTest, aConnectionOutlivesARefusedMessage)
{
    takeMail(greetAndTakeEnvelope().readUntil("\r\n.\r\n").send("552 too much\r\n"));
    auto client = newClient();
    const auto error = errorOf([&client] { send(*client, "lost\r\n"); });
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getProps().get("responseCode"), "552");
    send(*client);
    client = nullptr;
    EXPECT_EQ(received(), "MAIL FROM:<a@x>\r\nRCPT TO:<b@x>\r\nDATA\r\nlost\r\n.\r\n" + conversation);
}

TEST_F(CSMTPClientTest, disconnectionWhileTheMessageIsSent)
{
    greetAndTakeEnvelope().readBytes(1).reset();
    EXPECT_NE(expectFailureAndNextSend(), nullptr);
}

TEST_F(CSMTPClientTest, disconnectionInPlaceOfTheLastReply)
{
    greetAndTakeEnvelope().readUntil("\r\n.\r\n").closeHard();
    EXPECT_NE(expectFailureAndNextSend(), nullptr);
}

TEST_F(CSMTPClientTest, failsWithoutRecipientsAlthoughTheServerIsContent)
{
    takeMail(greet().readUntil("HELP\r\n").send("214 I know many commands\r\n"));
    auto client = newClient();
    const auto error = errorOf([&client] { send(*client, "lost\r\n", {}); });
    send(*client);
    client = nullptr;
    EXPECT_EQ(received(), "HELP\r\n" + conversation);
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getDomain(), "curl");
    EXPECT_EQ(error->getCode(), CURLE_SEND_ERROR);
    EXPECT_EQ(error->getMessage(), "Failed sending data to the peer: the message has no recipients and was not sent");
    EXPECT_FALSE(error->getProps().has("responseCode"));
    EXPECT_FALSE(error->getProps().has("serverMessage"));
}

TEST_F(CSMTPClientTest, failsWithoutRecipientsWhenTheServerRefusesHelp)
{
    greet().readUntil("HELP\r\n").send("502 no\r\n").closeHard();
    const auto error = expectFailureAndNextSend({});
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getMessage(), "Weird server reply: Command failed: 502 (response code: smtp 502)");
}

TEST_F(CSMTPClientTest, startTLSIsDemanded)
{
    greet().closeHard();
    CSMTPParams demanding = params();
    demanding.connectType = CSMTPParams::ConnectStartTLS;
    const auto client = kx::newObj<CSMTPClient>(demanding);
    const auto error = errorOf([&client] { send(*client); });
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getCode(), CURLE_USE_SSL_FAILED);
    EXPECT_EQ(received().find("MAIL"), std::string::npos);
}

class CSMTPClientTLSTest : public CSMTPClientTest {
protected:
    kx::P<kx::CError> failureWith(const std::filesystem::path& certificate, const std::filesystem::path& key)
    {
        m_server.onConnection()
            .startTLS(certificate, key)
            .send("220 ready\r\n")
            .readUntil("\r\n")
            .send("250 localhost\r\n")
            .readToEnd();
        CSMTPParams secure = params();
        secure.connectType = CSMTPParams::ConnectSSL;
        return errorOf([&secure] { kx::newObj<CSMTPClient>(secure)->testConnection(); });
    }

    const support::CTestCertificates& m_certificates = support::CTestCertificates::get();
};

TEST_F(CSMTPClientTLSTest, acceptsACertificateOfAnUnknownAuthority)
{
    EXPECT_EQ(failureWith(m_certificates.serverCertificate(), m_certificates.serverKey()), nullptr);
}

TEST_F(CSMTPClientTLSTest, acceptsAnExpiredCertificate)
{
    EXPECT_EQ(failureWith(m_certificates.expiredCertificate(), m_certificates.expiredKey()), nullptr);
}

TEST_F(CSMTPClientTLSTest, refusesACertificateOfAnotherHost)
{
    const auto error = failureWith(m_certificates.wrongHostCertificate(), m_certificates.wrongHostKey());
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getCode(), CURLE_PEER_FAILED_VERIFICATION);
}

TEST_F(CSMTPClientTest, throwsTheTransfersErrorAlthoughClearingFails)
{
    const support::CRefusedPort port;
    CSMTPParams unreachable = params();
    unreachable.port = port.getPort();
    const auto client = kx::newObj<CSMTPClient>(unreachable);
    const support::CLogRecorder log;
    m_calls.failOption(CURLOPT_MAIL_FROM);
    const auto error = errorOf([&client] { client->doPerform(); });
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getCode(), CURLE_COULDNT_CONNECT);
    EXPECT_EQ(log.lines(),
        Texts{"error: A mail request cannot be cleared after a failed transfer (ignored).: Out of memory"});
}

TEST_F(CSMTPClientTest, throwsWhatClearingThrowsAfterASuccess)
{
    greet().readUntil("HELP\r\n").send("214 help\r\n").readUntil("QUIT\r\n");
    auto client = newClient();
    m_calls.failOption(CURLOPT_MAIL_FROM);
    const auto error = errorOf([&client] { client->doPerform(); });
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getMessage(), "Out of memory");
    client = nullptr;
    EXPECT_EQ(received(), "HELP\r\nQUIT\r\n");
}

TEST_F(CSMTPClientTest, tellsNobodyThePassword)
{
    const support::CLogRecorder log;
    greet("250 AUTH PLAIN\r\n").readUntil("\r\n").send("334 \r\n").readUntil("\r\n").send("535 wrong\r\n").closeHard();
    const auto client = newClient("user", "open sesame");
    const auto error = errorOf([&client] { send(*client); });
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getCode(), CURLE_LOGIN_DENIED);
    std::string told = error->what();
    for (const auto& [key, value] : error->getProps().getMap())
        told += key.toUTF8() + "=" + value.toUTF8();
    for (const std::string& line : log.lines())
        told += line;
    for (const char* const secret : {"open sesame", "b3BlbiBzZXNhbW", "AHVzZXIAb3BlbiBzZXNhbWU"}) // also in Base64
        EXPECT_EQ(told.find(secret), std::string::npos) << told;
    EXPECT_EQ(received(), "AUTH PLAIN\r\nAHVzZXIAb3BlbiBzZXNhbWU=\r\n");
}

// Requests that a thread runs.

class CSMTPClientBackgroundTest : public CSMTPClientTest {
protected:
    /// What the transfer ends with, null for a success.
    kx::P<kx::CError> failureOf(const Recipients& recipients)
    {
        const auto request = kx::newObj<norla::CNetRequest>();
        prepare(*request, params(), recipients);
        const auto thread = kx::newObj<norla::CAsyncNetRequestThread>();
        thread->addRequest(request.get());
        thread->start();
        EXPECT_TRUE(request->waitAsyncDone(20'000));
        return errorOf([&request] { request->checkAsyncResult(); });
    }
};

TEST_F(CSMTPClientBackgroundTest, sendsAMail)
{
    takeMail();
    EXPECT_EQ(failureOf({"b@x"}), nullptr);
    EXPECT_EQ(received(), conversation);
}

TEST_F(CSMTPClientBackgroundTest, tellsWhatTheServerSaidToARefusedRecipient)
{
    greet().readUntil("\r\n").send("250 sender\r\n").readUntil("\r\n").send("550 no such\r\n").closeHard();
    const auto error = failureOf({"b@x"});
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getMessage(), "Failed sending data to the peer: RCPT failed: 550 (response code: smtp 550)");
    EXPECT_EQ(error->getProps().get("serverMessage"), "550 no such\r\n");
}

TEST_F(CSMTPClientBackgroundTest, tellsThatThereAreNoRecipients)
{
    greet().readUntil("HELP\r\n").send("214 I know many commands\r\n").readUntil("QUIT\r\n");
    const auto error = failureOf({});
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getMessage(), "Failed sending data to the peer: the message has no recipients and was not sent");
    EXPECT_EQ(received(), "HELP\r\nQUIT\r\n");
}

// The text of a date.

struct CDateCase {
    const char* name;
    long long year, month, day;
    int zone;
    kx::String text;
};

void PrintTo(const CDateCase& date, std::ostream* out)
{
    *out << date.name;
}

class CSMTPClientDateTest : public testing::TestWithParam<CDateCase> {};

TEST_P(CSMTPClientDateTest, isWrittenAs)
{
    kx::CTimeFields fields;
    fields.setDate(GetParam().year, GetParam().month, GetParam().day);
    fields.setTime(9, 5, 3);
    fields.setZone(GetParam().zone);
    EXPECT_EQ(CSMTPClient::getDateHeaderString(fields), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(Dates, CSMTPClientDateTest,
    testing::Values(CDateCase{"utc", 2026, 11, 15, 0, "Sun, 15 Nov 2026 09:05:03 +0000"},
        CDateCase{"dayOfOneDigit", 2026, 11, 1, 0, "Sun, 1 Nov 2026 09:05:03 +0000"},
        CDateCase{"east", 2026, 2, 28, 90, "Sat, 28 Feb 2026 09:05:03 +0130"},
        CDateCase{"west", 2026, 12, 31, -480, "Thu, 31 Dec 2026 09:05:03 -0800"},
        CDateCase{"yearOfThreeDigits", 987, 6, 5, 0, "Tue, 5 Jun 0987 09:05:03 +0000"}),
    [](const auto& date) { return date.param.name; });

TEST(CSMTPClientDateStringTest, takesTheWeekDayOfTheFields)
{
    kx::CTimeFields fields;
    fields.setDate(2026, 11, 15, 3); // it is a Sunday
    fields.setTime(23, 59, 60);
    EXPECT_EQ(CSMTPClient::getDateHeaderString(fields), "Wed, 15 Nov 2026 23:59:60 +0000");
}

} // namespace
