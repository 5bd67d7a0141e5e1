// What a transfer leaves behind on a request does not show in the next one.
#include "norla/core/CNetHeaders.h"
#include "tests/norla/core/CRequestFixture.h"
#include "tests/support/CLogRecorder.h"

namespace {

using HeaderMap = norla::CNetRequest::HeaderMap;

/// Keeps the response code that it was told last.
class CCodeSink : public kx::CBase, public virtual norla::CNetRequest::IDataSink {
public:
    int write(const unsigned char*, int size, int responseCode, const HeaderMap&) override
    {
        m_responseCode = responseCode;
        return size;
    }

    int m_responseCode = -2;
};

/// Counts how often it is told.
class CCountingListener : public kx::CBase, public virtual norla::CNetRequest::IDoneListener {
public:
    void onNetRequestDone(norla::CNetRequest*, const kx::CError*) override { ++m_calls; }

    int m_calls = 0;
};

/// Stands in the middle and cannot go back.
class CUsedSource : public kx::CBase, public virtual norla::CNetRequest::IDataSource {
public:
    int read(unsigned char*, int, const HeaderMap&) override { return 0; }
    long long getLength() override { return -1; }
    void seek(long long) override { throw kx::CError("cannot go back"); }
    long long getPosition() override { return 1; }
};

class RepeatedTransferTest : public CRequestFixture {
protected:
    /// Two answers, each on a connection of its own.
    void answerBoth(const std::string& first, const std::string& second)
    {
        answer(first);
        answer(second);
    }

    static std::string okAndClose(const std::string& body) { return ok(body, "Connection: close\r\n"); }

    const kx::P<CCodeSink> sink = kx::newObj<CCodeSink>();
};

TEST_F(RepeatedTransferTest, tellsTheSinkTheCodeOfItsOwnAnswer)
{
    answerBoth(okAndClose("x"), "HTTP/1.1 404 Not Found\r\nContent-Length: 1\r\n\r\nx");
    request().setReceiveDataSink(sink.get());
    performPath();
    EXPECT_EQ(sink->m_responseCode, 200);
    failureOf();
    EXPECT_EQ(sink->m_responseCode, 404);
}

// An answer of HTTP/0.9 is a body alone.
TEST_F(RepeatedTransferTest, hasNoStatusLineFromTheTransferBefore)
{
    const support::CLogRecorder log;
    answerBoth(okAndClose("x"), "only a body");
    request().setReceiveDataSink(sink.get());
    request().setOptionInt(CURLOPT_HTTP09_ALLOWED, 1);
    performPath("/p");
    failureOf("/p");
    EXPECT_EQ(sink->m_responseCode, 0);
    EXPECT_EQ(log.lines(),
        std::vector<std::string>{
            "error: Error parsing HTTP status line - ignoring (statusLine: '', method: 'GET', URL: '"
            + server().url("/p") + "): Invalid HTTP status line: ''"});
}

TEST_F(RepeatedTransferTest, emptiesTheDefaultBufferAlsoForASinkOfTheCallers)
{
    answerBoth(okAndClose("of the first transfer"), "HTTP/1.1 500 No\r\nContent-Length: 3\r\n\r\nbad");
    performPath();
    request().setReceiveDataSink(sink.get());
    const auto error = failureOf();
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(body(), "");
    EXPECT_FALSE(error->getProps().has("serverMessage"));
}

TEST_F(RepeatedTransferTest, emptiesTheDefaultBufferAlsoWithoutASink)
{
    answerBoth(okAndClose("of the first transfer"), ok("x"));
    performPath();
    request().setReceiveDataSink(nullptr);
    performPath();
    EXPECT_EQ(body(), "");
}

// The listener is told how a transfer has ended, and none has begun.
TEST_F(RepeatedTransferTest, tellsNobodyThatTheSourceCouldNotBeRewound)
{
    const auto listener = kx::newObj<CCountingListener>();
    request().setURL("http://127.0.0.1/");
    request().setDoneListener(listener.get());
    request().setSendDataSource(kx::newObj<CUsedSource>().get());
    EXPECT_EQ(failure()->getMessage(), "cannot go back");
    EXPECT_EQ(listener->m_calls, 0);
}

class CFinalStatusTest : public CRequestFixture {};

TEST_F(CFinalStatusTest, of101IsAFailure)
{
    answer("HTTP/1.1 101 Switching Protocols\r\n\r\nx");
    const auto error = failureOf();
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getCode(), CURLE_HTTP_RETURNED_ERROR);
    EXPECT_EQ(error->getProps().get("responseCode"), "101");
}

class CLetterCaseTest : public CRequestFixture {};

TEST_F(CLetterCaseTest, makesAStatusLineOfUpperCaseAlone)
{
    answer(ok("x", "X-A: 1\r\nhttp/x: 2\r\nHttp/y: 3\r\n"));
    performPath();
    EXPECT_EQ(request().getResponseHeaderMap(),
        (HeaderMap{{"content-length", "1"}, {"x-a", "1"}, {"http/x", "2"}, {"http/y", "3"}}));
}

TEST_F(CLetterCaseTest, makesNoDifferenceInTheSchemeOfAURL)
{
    answer("HTTP/1.1 404 Not Found\r\nX-A: 1\r\nContent-Length: 8\r\n\r\nNot here");
    request().setURL(kx::String::fromUTF8(server().url("/", "hTTp")));
    const auto error = failure();
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(header("x-a"), "1");
    EXPECT_EQ(error->getCode(), CURLE_HTTP_RETURNED_ERROR);
    EXPECT_EQ(error->getProps().get("responseCodeDomain"), "http");
    EXPECT_EQ(error->getProps().get("serverMessage"), "Not here");
}

} // namespace
