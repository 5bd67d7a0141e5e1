// Bodies that are sent and received, and what goes wrong with them.
#include "kx/base/CInvalidArgError.h"
#include "kx/streams/CBufferStream.h"
#include "norla/core/CNetHeaders.h"
#include "tests/curlcalls/CCurlCalls.h"
#include "tests/norla/core/CRequestFixture.h"
#include "tests/support/CLogRecorder.h"

#include <algorithm>
#include <stdexcept>

namespace {

using HeaderMap = norla::CNetRequest::HeaderMap;

/// Keeps what it gets; throws at the call of a given number, counted from 1.
class CRecordingSink : public kx::CBase, public virtual norla::CNetRequest::IDataSink {
public:
    int write(const unsigned char* data, int size, int responseCode, const HeaderMap& headers) override
    {
        ++m_calls;
        if (m_calls == m_throwsAt)
            throw std::runtime_error("sink failed");
        m_body.append(reinterpret_cast<const char*>(data), static_cast<size_t>(size));
        m_responseCode = responseCode;
        m_headers = headers;
        return m_answer;
    }

    int m_calls = 0;
    int m_throwsAt = 0;
    int m_answer = 0;
    void begin() override { ++m_begins; }

    int m_begins = 0;
    std::string m_body;
    int m_responseCode = -2;
    HeaderMap m_headers;
};

/// Gives a text in pieces; what it can do is set by the test.
class CTextSource : public kx::CBase, public virtual norla::CNetRequest::IDataSource {
public:
    explicit CTextSource(std::string text)
        : m_text(std::move(text))
    {
    }

    int read(unsigned char* buffer, int size, const HeaderMap& headers) override
    {
        ++m_reads;
        m_headers = headers;
        if (m_reads == m_throwsAt)
            throw kx::CError("source failed");
        const size_t count = m_text.copy(
            reinterpret_cast<char*>(buffer), std::min(static_cast<size_t>(size), m_pieceSize), m_position);
        m_position += count;
        return static_cast<int>(count);
    }

    long long getLength() override { return m_length; }

    void seek(long long position) override
    {
        if (!m_canSeek)
            throw kx::CError("cannot seek");
        m_seeks.push_back(position);
        m_position = static_cast<size_t>(position);
    }

    long long getPosition() override { return static_cast<long long>(m_position); }

    const std::string m_text;
    size_t m_pieceSize = 1u << 20;
    size_t m_position = 0;
    long long m_length = -1;
    bool m_canSeek = true;
    int m_reads = 0;
    int m_throwsAt = 0;
    std::vector<long long> m_seeks;
    HeaderMap m_headers;
};

class CNetRequestDataTest : public CRequestFixture {
protected:
    const kx::P<CRecordingSink> sink = kx::newObj<CRecordingSink>();
    const kx::P<CTextSource> source = kx::newObj<CTextSource>("the body");

    support::CScript& acceptBody(size_t size, const std::string& answer = ok(""))
    {
        return server().onConnection().readHead().readBytes(size).send(answer);
    }

    void putFromSource()
    {
        request().setSendDataSource(source.get());
        request().setSendDataSize(static_cast<long long>(source->m_text.size()));
        request().setHTTPMethod("PUT");
    }
};

TEST_F(CNetRequestDataTest, givesTheSinkTheBodyWithCodeAndHeaders)
{
    answer(ok("hello", "X-A: 1\r\n"));
    request().setReceiveDataSink(sink.get());
    performPath();
    EXPECT_EQ(sink->m_body, "hello");
    EXPECT_EQ(sink->m_responseCode, 200);
    EXPECT_EQ(sink->m_headers.at("x-a"), "1");
    EXPECT_FALSE(request().usesDefaultReceiveBuffer());
    EXPECT_EQ(body(), "");
}

TEST_F(CNetRequestDataTest, givesTheSinkTheBodyOfAnErrorResponse)
{
    answer("HTTP/1.1 500 No\r\nContent-Length: 3\r\n\r\nbad");
    request().setReceiveDataSink(sink.get());
    const auto error = failureOf();
    EXPECT_EQ(sink->m_body, "bad");
    EXPECT_EQ(sink->m_responseCode, 500);
    EXPECT_FALSE(error->getProps().has("serverMessage")); // only the default buffer is looked into
}

TEST_F(CNetRequestDataTest, tellsTheSinkOnceThatATransferBegins)
{
    answer(ok("hello"));
    request().setReceiveDataSink(sink.get());
    EXPECT_EQ(sink->m_begins, 0);
    performPath();
    EXPECT_EQ(sink->m_begins, 1);
}

TEST_F(CNetRequestDataTest, doesNotMindHowManyBytesTheSinkSaysItTook)
{
    sink->m_answer = -1;
    answer(ok("hello"));
    request().setReceiveDataSink(sink.get());
    performPath();
    EXPECT_EQ(sink->m_body, "hello");
}

TEST_F(CNetRequestDataTest, dropsTheBodyWithoutASink)
{
    answer(ok("hello"));
    request().setReceiveDataSink(nullptr);
    performPath();
    EXPECT_EQ(body(), "");
    EXPECT_EQ(request().getDownloadedBytes(), 5);
}

TEST_F(CNetRequestDataTest, writesTheBodyToAStream)
{
    const auto buffer = kx::newObj<norla::CNetRequest::Buffer>();
    answer(ok("hello"));
    request().setReceiveDataStream(kx::newObj<kx::CBufferStream>(buffer).get());
    performPath();
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(buffer->getData()), buffer->getSize()), "hello");
}

TEST_F(CNetRequestDataTest, goesBackToTheDefaultBuffer)
{
    answer(ok("hello"));
    request().setReceiveDataSink(sink.get());
    request().setDefaultReceiveDataStream();
    performPath();
    EXPECT_EQ(body(), "hello");
    EXPECT_EQ(sink->m_calls, 0);
}

class CFailingSinkTest : public CNetRequestDataTest, public testing::WithParamInterface<int> {};

TEST_P(CFailingSinkTest, throwsTheSinksErrorAndCanBeUsedAgain)
{
    // Three blocks, each sent when the one before has been read.
    server().onConnection().readHead().sendPieces(
        {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n", "1\r\na\r\n", "1\r\nb\r\n", "1\r\nc\r\n0\r\n\r\n"});
    sink->m_throwsAt = GetParam();
    request().setReceiveDataSink(sink.get());
    const auto error = failureOf();
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getMessage(), "sink failed");
    EXPECT_EQ(error->getDomain(), "");
    EXPECT_EQ(sink->m_calls, GetParam());
    expectGoodTransfer();
}

INSTANTIATE_TEST_SUITE_P(
    FirstMiddleLast, CFailingSinkTest, testing::Values(1, 2, 3), testing::PrintToStringParamName());

TEST_F(CNetRequestDataTest, sendsABufferThatItsCallerKeeps)
{
    norla::CNetRequest::Buffer buffer;
    buffer.append(reinterpret_cast<const unsigned char*>("text"), 4);
    acceptBody(4);
    request().setSendDataBuffer(&buffer);
    request().setHTTPMethod("PUT");
    performPath();
    EXPECT_TRUE(received().ends_with("\r\nContent-Length: 4\r\nExpect: 100-continue\r\n\r\ntext")
        || received().ends_with("\r\nContent-Length: 4\r\n\r\ntext"))
        << received();
}

TEST_F(CNetRequestDataTest, refusesANullBuffer)
{
    EXPECT_THROW(request().setSendDataBuffer(nullptr), kx::CInvalidArgError);
}

TEST_F(CNetRequestDataTest, refusesANullStream)
{
    EXPECT_THROW(request().setSendDataStream(nullptr), kx::CInvalidArgError);
    EXPECT_THROW(request().setReceiveDataStream(nullptr), kx::CInvalidArgError);
}

TEST_F(CNetRequestDataTest, sendsTextInUTF8WithoutATerminatingZero)
{
    acceptBody(5);
    request().setSendDataAsUTF8(L"gr\u00FCn");
    request().setHTTPMethod("POST");
    performPath();
    EXPECT_TRUE(received().ends_with("\r\n\r\ngr\xC3\xBCn")) << received();
}

TEST_F(CNetRequestDataTest, sendsAPOSTWithItsSize)
{
    acceptBody(8);
    request().setSendDataSource(source.get());
    request().setSendDataSize(8);
    request().setHTTPMethod("POST");
    performPath();
    EXPECT_NE(received().find("\r\nContent-Length: 8\r\n"), std::string::npos);
}

TEST_F(CNetRequestDataTest, sendsNoBodyWithoutASource)
{
    server().onConnection().readHead().send(ok(""));
    request().setHTTPMethod("PUT");
    request().setSendDataSize(0);
    performPath();
    EXPECT_TRUE(received().ends_with("\r\nContent-Length: 0\r\n\r\n")) << received();
}

TEST_F(CNetRequestDataTest, sendsABodyOfUnknownSizeInChunks)
{
    server().onConnection().readUntil("0\r\n\r\n").send(ok(""));
    source->m_pieceSize = 5;
    request().setSendDataSource(source.get());
    request().setHTTPMethod("PUT");
    performPath();
    EXPECT_TRUE(received().ends_with("\r\n\r\n5\r\nthe b\r\n3\r\nody\r\n0\r\n\r\n")) << received();
}

TEST_F(CNetRequestDataTest, sendsTheSameBodyTwice)
{
    server().onConnection().readHead().readBytes(8).send(ok("")).readHead().readBytes(8).send(ok(""));
    putFromSource();
    performPath();
    performPath();
    EXPECT_EQ(source->m_seeks, std::vector<long long>{0});
    EXPECT_TRUE(received().ends_with("the body"));
}

TEST_F(CNetRequestDataTest, doesNotSeekASourceThatStandsAtItsStart)
{
    acceptBody(8);
    source->m_canSeek = false;
    putFromSource();
    performPath();
    EXPECT_TRUE(received().ends_with("the body"));
}

TEST_F(CNetRequestDataTest, throwsWhenTheSourceCannotBeRewoundForASecondTransfer)
{
    acceptBody(8);
    source->m_canSeek = false;
    putFromSource();
    performPath();
    EXPECT_EQ(failure()->getMessage(), "cannot seek");
    expectGoodTransfer();
}

TEST_F(CNetRequestDataTest, sendsTheBodyAgainWhenItIsRedirected)
{
    server()
        .onConnection()
        .readHead()
        .readBytes(8)
        .send("HTTP/1.1 307 Temporary Redirect\r\nLocation: /target\r\nContent-Length: 0\r\n\r\n")
        .readHead()
        .readBytes(8)
        .send(ok(""));
    putFromSource();
    performPath();
    EXPECT_EQ(source->m_seeks, std::vector<long long>{0});
    const std::string all = received();
    EXPECT_EQ(all.substr(all.find("PUT /target"), 11), "PUT /target");
    EXPECT_TRUE(all.ends_with("the body"));
}

TEST_F(CNetRequestDataTest, throwsTheSourcesErrorWhenItCannotSeekForARedirect)
{
    server().onConnection().readHead().readBytes(8).send(
        "HTTP/1.1 307 Temporary Redirect\r\nLocation: /target\r\nContent-Length: 0\r\n\r\n");
    source->m_canSeek = false;
    putFromSource();
    EXPECT_EQ(failureOf()->getMessage(), "cannot seek");
    expectGoodTransfer();
}

TEST_F(CNetRequestDataTest, sendsTheBodyAgainAfterAnAuthenticationChallenge)
{
    server()
        .onConnection()
        .readHead()
        .readBytes(8)
        .send("HTTP/1.1 401 Unauthorized\r\nWWW-Authenticate: Basic realm=\"r\"\r\nContent-Length: 0\r\n\r\n")
        .readHead()
        .readBytes(8)
        .send(ok(""));
    request().setHTTPAuthMethods(static_cast<unsigned int>(CURLAUTH_ANY));
    request().setUserName("me");
    request().setUserPassword("pw");
    putFromSource();
    performPath();
    EXPECT_NE(received().find("\r\nAuthorization: Basic bWU6cHc=\r\n"), std::string::npos) << received();
    EXPECT_TRUE(received().ends_with("the body"));
}

TEST_F(CNetRequestDataTest, throwsTheSourcesErrorWhenItCannotSeekForAnAuthentication)
{
    server().onConnection().readHead().readBytes(8).send(
        "HTTP/1.1 401 Unauthorized\r\nWWW-Authenticate: Basic realm=\"r\"\r\nContent-Length: 0\r\n\r\n");
    source->m_canSeek = false;
    request().setHTTPAuthMethods(static_cast<unsigned int>(CURLAUTH_ANY));
    request().setUserName("me");
    request().setUserPassword("pw");
    putFromSource();
    EXPECT_EQ(failureOf()->getMessage(), "cannot seek");
    expectGoodTransfer();
}

class CFailingSourceTest : public CNetRequestDataTest, public testing::WithParamInterface<int> {};

TEST_P(CFailingSourceTest, throwsTheSourcesErrorAndCanBeUsedAgain)
{
    server().onConnection().readHead().readToEnd();
    source->m_pieceSize = 3; // 3 + 3 + 2 bytes and the end
    source->m_throwsAt = GetParam();
    request().setSendDataSource(source.get());
    request().setHTTPMethod("PUT");
    const auto error = failureOf();
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getMessage(), "source failed");
    EXPECT_EQ(source->m_reads, GetParam());
    expectGoodTransfer();
}

INSTANTIATE_TEST_SUITE_P(
    FirstMiddleLast, CFailingSourceTest, testing::Values(1, 2, 4), testing::PrintToStringParamName());

TEST_F(CNetRequestDataTest, tellsTheSourceTheHeadersAnsweredSoFar)
{
    server().onConnection().readHead().send("HTTP/1.1 100 Continue\r\nX-Interim: 1\r\n\r\n").readBytes(8).send(ok(""));
    request().setOptionInt(CURLOPT_EXPECT_100_TIMEOUT_MS, 10'000);
    const auto headers = kx::newObj<norla::CNetHeaders>();
    headers->add("Expect", "100-continue");
    request().setCustomHTTPHeaders(headers.get());
    putFromSource();
    performPath();
    EXPECT_EQ(source->m_headers, (HeaderMap{{"x-interim", "1"}}));
}

TEST_F(CNetRequestDataTest, reportsTheFirstOfTwoErrors)
{
    server().onConnection().readHead().send(ok("answer before the body is complete")).readToEnd();
    sink->m_throwsAt = 1;
    source->m_pieceSize = 1;
    request().setReceiveDataSink(sink.get());
    request().setSendDataSource(source.get());
    request().setHTTPMethod("PUT");
    // Whichever libcurl asks first fails first; afterwards it asks nobody again.
    const auto error = failureOf();
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getMessage(), "sink failed");
}

TEST_F(CNetRequestDataTest, readsTheStatusLineOnceForAllBlocksAndAnswersZeroWhenItCannot)
{
    const support::CLogRecorder log;
    server().onConnection().readHead().sendPieces({"HTTP/1.1 200OK\r\nContent-Length: 2\r\n\r\n", "a", "b"});
    request().setReceiveDataSink(sink.get());
    performPath();
    EXPECT_EQ(sink->m_calls, 2);
    EXPECT_EQ(sink->m_responseCode, 0);
    EXPECT_EQ(log.lines().size(), 1u);
}

TEST_F(CNetRequestDataTest, answersMinusOneToTheSinkOfAnotherProtocol)
{
    request().setReceiveDataSink(sink.get());
    request().setURL("file:///proc/self/comm");
    request().perform();
    EXPECT_EQ(sink->m_responseCode, -1);
    EXPECT_FALSE(sink->m_body.empty());
}

// libcurl asks for few of the things that its contract allows. The rest is shown through the callbacks that it was
// given.
class CCallbackTest : public CNetRequestDataTest {
protected:
    CCallbackTest()
    {
        request().setDefaultOptions();
        request().setSendDataSource(source.get());
    }

    int seek(curl_off_t offset, int origin)
    {
        const auto callback = reinterpret_cast<curl_seek_callback>(m_calls.pointerOf(CURLOPT_SEEKFUNCTION));
        return callback(m_calls.pointerOf(CURLOPT_SEEKDATA), offset, origin);
    }

    size_t write(size_t size)
    {
        char data[1] = {};
        const auto callback = reinterpret_cast<curl_write_callback>(m_calls.pointerOf(CURLOPT_WRITEFUNCTION));
        return callback(data, 1, size, m_calls.pointerOf(CURLOPT_WRITEDATA));
    }

private:
    support::CCurlCalls m_calls;
};

TEST_F(CCallbackTest, seeksFromTheStart)
{
    EXPECT_EQ(seek(3, SEEK_SET), CURL_SEEKFUNC_OK);
    EXPECT_EQ(source->m_seeks, std::vector<long long>{3});
}

TEST_F(CCallbackTest, seeksFromThePosition)
{
    source->m_position = 5;
    EXPECT_EQ(seek(-2, SEEK_CUR), CURL_SEEKFUNC_OK);
    EXPECT_EQ(source->m_seeks, std::vector<long long>{3});
}

TEST_F(CCallbackTest, seeksFromTheEnd)
{
    source->m_length = 8;
    EXPECT_EQ(seek(-2, SEEK_END), CURL_SEEKFUNC_OK);
    EXPECT_EQ(source->m_seeks, std::vector<long long>{6});
}

TEST_F(CCallbackTest, cannotSeekFromAnUnknownEnd)
{
    EXPECT_EQ(seek(-2, SEEK_END), CURL_SEEKFUNC_FAIL);
    EXPECT_TRUE(source->m_seeks.empty());
}

TEST_F(CCallbackTest, cannotSeekFromAnUnknownOrigin)
{
    EXPECT_EQ(seek(0, 4711), CURL_SEEKFUNC_FAIL);
}

TEST_F(CCallbackTest, cannotSeekWithoutASource)
{
    request().setSendDataSource(nullptr);
    EXPECT_EQ(seek(0, SEEK_SET), CURL_SEEKFUNC_FAIL);
}

TEST_F(CCallbackTest, reportsASourceThatCannotSeek)
{
    source->m_canSeek = false;
    EXPECT_EQ(seek(0, SEEK_SET), CURL_SEEKFUNC_FAIL);
}

TEST_F(CCallbackTest, takesABlockOfNothing)
{
    request().setReceiveDataSink(sink.get());
    EXPECT_EQ(write(0), 0u);
}

TEST_F(CCallbackTest, reportsAFailingSinkByACountThatIsNotTheBlocks)
{
    sink->m_throwsAt = 1;
    request().setReceiveDataSink(sink.get());
    EXPECT_EQ(write(1), 0u);
}

TEST_F(CCallbackTest, reportsASinkThatFailsOverABlockOfNothing)
{
    sink->m_throwsAt = 1;
    request().setReceiveDataSink(sink.get());
    EXPECT_EQ(write(0), 1u);
}

} // namespace
