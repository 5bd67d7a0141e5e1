// Whole HTTP transfers, byte for byte.
#include "norla/core/CNetHeaders.h"
#include "norla/http/CServerInfo.h"
#include "tests/norla/core/CRequestFixture.h"
#include "tests/support/CLogRecorder.h"
#include "tests/support/libcurlWords.h"

#include <thread>

namespace {

using Map = kx::TMap<kx::String, kx::String>;

class CNetRequestTest : public CRequestFixture {};

TEST_F(CNetRequestTest, sendsAPlainGET)
{
    answer(ok("hello"));
    performPath("/path?query");
    EXPECT_EQ(received(),
        "GET /path?query HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(server().getPort())
            + "\r\nAccept: */*\r\n\r\n");
}

TEST_F(CNetRequestTest, receivesTheBodyIntoTheDefaultBuffer)
{
    answer(ok("hello"));
    performPath();
    EXPECT_EQ(body(), "hello");
    EXPECT_TRUE(request().usesDefaultReceiveBuffer());
}

TEST_F(CNetRequestTest, answersTheResponseCode)
{
    answer("HTTP/1.1 204 No Content\r\n\r\n");
    performPath();
    EXPECT_EQ(request().getResponseCode(), 204);
}

TEST_F(CNetRequestTest, mayHaveConnectionsOfItsOwnOnceItWasPerformed)
{
    EXPECT_FALSE(request().hasOwnConnections());
    answer(ok("hello"));
    performPath();
    EXPECT_TRUE(request().hasOwnConnections());
    request().reset();
    EXPECT_TRUE(request().hasOwnConnections());
}

TEST_F(CNetRequestTest, answersStatistics)
{
    answer(ok("hello"));
    performPath();
    EXPECT_EQ(request().getDownloadedBytes(), 5);
    EXPECT_EQ(request().getDownloadSize(), 5);
    EXPECT_GT(request().getAvgDownloadSpeed(), 0);
    EXPECT_EQ(request().getUploadedBytes(), 0);
    EXPECT_EQ(request().getAvgUploadSpeed(), 0);
}

TEST_F(CNetRequestTest, answersUploadStatistics)
{
    server().onConnection().readHead().readBytes(4).send(ok(""));
    request().setSendDataAsUTF8("body");
    request().setHTTPMethod("PUT");
    performPath();
    EXPECT_EQ(request().getUploadedBytes(), 4);
    EXPECT_EQ(request().getUploadSize(), 4);
    EXPECT_GT(request().getAvgUploadSpeed(), 0);
}

TEST_F(CNetRequestTest, throwsForAStatusOf404)
{
    answer("HTTP/1.1 404 Not Found\r\nContent-Length: 8\r\n\r\nNot here");
    const auto error = failureOf();
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getDomain(), "curl");
    EXPECT_EQ(error->getCode(), CURLE_HTTP_RETURNED_ERROR);
    EXPECT_EQ(error->getMessage(), "HTTP response code said error (response code: http 404)");
    EXPECT_EQ(error->getProps().getMap(),
        (Map{{"responseCode", "404"}, {"responseCodeDomain", "http"}, {"serverMessage", "Not here"}}));
}

TEST_F(CNetRequestTest, keepsTheBodyOfAnErrorResponse)
{
    answer("HTTP/1.1 404 Not Found\r\nContent-Length: 8\r\n\r\nNot here");
    failureOf();
    EXPECT_EQ(body(), "Not here");
}

struct CStatusRow {
    int status;
    bool isSuccess;
};

class CStatusTest : public CRequestFixture, public testing::WithParamInterface<CStatusRow> {};

TEST_P(CStatusTest, decidesOverSuccess)
{
    answer("HTTP/1.1 " + std::to_string(GetParam().status) + " Text\r\nContent-Length: 0\r\n\r\n");
    EXPECT_EQ(failureOf() == nullptr, GetParam().isSuccess);
    expectGoodTransfer();
}

INSTANTIATE_TEST_SUITE_P(All, CStatusTest,
    testing::Values(CStatusRow{200, true}, CStatusRow{204, true}, CStatusRow{299, true}, CStatusRow{300, false},
        CStatusRow{304, false}, CStatusRow{400, false}, CStatusRow{500, false}, CStatusRow{599, false},
        CStatusRow{999, false}),
    [](const testing::TestParamInfo<CStatusRow>& row) { return std::to_string(row.param.status); });

TEST_F(CNetRequestTest, throwsForARedirectThatIsNotFollowed)
{
    answer("HTTP/1.1 302 Found\r\nLocation: /other\r\nContent-Length: 0\r\n\r\n");
    request().setFollowRedirects(false);
    const auto error = failureOf();
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getProps().get("responseCode"), "302");
}

TEST_F(CNetRequestTest, keepsOnlyTheHeadersAfterTheLastStatusLine)
{
    answer("HTTP/1.1 100 Continue\r\nX-Interim: 1\r\n\r\n" + ok("x", "X-Final: 2\r\n"));
    performPath();
    EXPECT_EQ(request().getResponseHeaderMap(), (Map{{"content-length", "1"}, {"x-final", "2"}}));
    EXPECT_EQ(request().getResponseCode(), 200);
}

TEST_F(CNetRequestTest, keepsOnlyTheHeadersOfTheRedirectsTarget)
{
    server()
        .onConnection()
        .readHead()
        .send("HTTP/1.1 302 Found\r\nLocation: /target\r\nX-First: 1\r\nContent-Length: 0\r\n\r\n")
        .readHead()
        .send(ok("target", "X-Second: 2\r\n"));
    performPath();
    EXPECT_EQ(request().getResponseHeaderMap(), (Map{{"content-length", "6"}, {"x-second", "2"}}));
    EXPECT_EQ(body(), "target");
}

TEST_F(CNetRequestTest, endsAnEndlessRedirectWithAnError)
{
    auto& script = server().onConnection();
    for (int i = 0; i < 3; ++i)
        script.readHead().send("HTTP/1.1 302 Found\r\nLocation: /again\r\nContent-Length: 0\r\n\r\n");
    request().setOptionInt(CURLOPT_MAXREDIRS, 2);
    const auto error = failureOf();
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getCode(), CURLE_TOO_MANY_REDIRECTS);
    EXPECT_EQ(error->getMessage(),
        "Number of redirects hit maximum amount: Maximum (2) redirects followed (response code: http 302)");
    expectGoodTransfer();
}

TEST_F(CNetRequestTest, keepsOnlyTheHeadersAfterAProxysAnswerToCONNECT)
{
    answer("HTTP/1.1 200 Connection established\r\nX-Proxy: 1\r\n\r\n").readHead().send(ok("x", "X-Origin: 2\r\n"));
    request().setProxy(kx::String::fromUTF8(server().url()));
    request().setOptionInt(CURLOPT_HTTPPROXYTUNNEL, 1);
    request().setURL("http://origin.invalid/");
    request().perform();
    EXPECT_EQ(request().getResponseHeaderMap(), (Map{{"content-length", "1"}, {"x-origin", "2"}}));
}

TEST_F(CNetRequestTest, keepsEveryLineInTheResponseInfo)
{
    answer("HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 200 OK\r\nContent-Length: 1\r\nX-Fold: a\r\n b\r\n\r\nx");
    performPath();
    EXPECT_EQ(responseLines(),
        (std::vector<kx::String>{"HTTP/1.1 100 Continue\r\n", "\r\n", "HTTP/1.1 200 OK\r\n", "Content-Length: 1\r\n",
            "X-Fold: a\r\n", " b\r\n", "\r\n"}));
}

TEST_F(CNetRequestTest, joinsFoldedHeaders)
{
    answer(ok("x", "X-Long: part1\r\n part2\r\n\tpart3\r\n"));
    performPath();
    EXPECT_EQ(header("x-long"), "part1 part2 part3");
}

TEST_F(CNetRequestTest, joinsRepeatedHeaders)
{
    answer(ok("x", "Via: a\r\nvia: b\r\n"));
    performPath();
    EXPECT_EQ(header("via"), "a,b");
}

TEST_F(CNetRequestTest, readsHeadersThatEndInABareLineFeed)
{
    answer("HTTP/1.1 200 OK\nContent-Length: 1\nX-A: 1\n\nx");
    performPath();
    EXPECT_EQ(body(), "x");
    EXPECT_EQ(header("content-length"), "1");
    EXPECT_EQ(header("x-a"), "1 "); // the empty line counts as a continuation of the last header
}

TEST_F(CNetRequestTest, readsAStatusLineWithoutReason)
{
    answer("HTTP/1.1 200\r\nContent-Length: 1\r\n\r\nx");
    performPath();
    EXPECT_EQ(body(), "x");
}

TEST_F(CNetRequestTest, readsAHeaderOf100Kilobytes)
{
    const std::string value(100'000, 'v');
    answer(ok("x", "X-Big: " + value + "\r\n"));
    performPath();
    EXPECT_EQ(header("x-big"), kx::String::fromLatin1(value));
}

std::string manyHeaders(int count)
{
    std::string headers;
    for (int i = 0; i < count; ++i)
        headers += "X-" + std::to_string(i) + ": v\r\n";
    return headers;
}

TEST_F(CNetRequestTest, readsFiveThousandHeaders)
{
    answer(ok("x", manyHeaders(4999)));
    performPath();
    EXPECT_EQ(request().getResponseHeaderMap().size(), 5000u);
}

TEST_F(CNetRequestTest, readsTenThousandHeadersUnlessANewerLibcurlRefusesThem)
{
    answer(ok("x", manyHeaders(10'000)));
    const auto error = failureOf();
    if (support::isLibcurlSince(8, 14)) {
        ASSERT_NE(error, nullptr);
        EXPECT_EQ(error->getMessage(),
            "A value or data field grew larger than allowed: Too many response headers, 5000 is max "
            "(response code: http 200)");
        expectGoodTransfer();
        return;
    }
    EXPECT_EQ(error, nullptr);
    EXPECT_EQ(request().getResponseHeaderMap().size(), 10'001u);
}

TEST_F(CNetRequestTest, ignoresAHeaderThatIsNotUTF8AndLogsIt)
{
    const support::CLogRecorder log;
    answer(ok("x", "X-Bad: \xFF\r\nX-Good: 1\r\n"));
    performPath();
    EXPECT_EQ(header("x-bad"), "(missing)");
    EXPECT_EQ(header("x-good"), "1");
    EXPECT_EQ(log.lines(),
        std::vector<std::string>{
            "warning: Exception during CNetRequest header parsing (ignored).: Text is not valid UTF-8 at byte 7."});
}

TEST_F(CNetRequestTest, givesTheCodeZeroToTheSinkForAStatusLineItCannotParse)
{
    const support::CLogRecorder log;
    answer("HTTP/1.1 200OK\r\nContent-Length: 1\r\n\r\nx");
    performPath("/p");
    EXPECT_EQ(body(), "x");
    EXPECT_EQ(log.lines(),
        std::vector<std::string>{
            "error: Error parsing HTTP status line - ignoring (statusLine: 'HTTP/1.1 200OK', method: "
            "'GET', URL: '"
            + server().url("/p") + "): Invalid HTTP status line: 'HTTP/1.1 200OK'"});
}

TEST_F(CNetRequestTest, failsWhenTheBodyIsCutShort)
{
    answer("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhello");
    const auto error = failureOf();
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getCode(), CURLE_PARTIAL_FILE);
    EXPECT_EQ(error->getProps().get("responseCode"), "200");
    expectGoodTransfer();
}

TEST_F(CNetRequestTest, readsNoMoreThanTheAnnouncedLength)
{
    answer("HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nhello and more");
    performPath();
    EXPECT_EQ(body(), "hello");
}

TEST_F(CNetRequestTest, readsABodyWithoutLengthUpToTheClose)
{
    answer("HTTP/1.1 200 OK\r\n\r\nhello");
    performPath();
    EXPECT_EQ(body(), "hello");
    EXPECT_EQ(request().getDownloadSize(), -1);
}

TEST_F(CNetRequestTest, readsChunksAndTheirTrailers)
{
    answer("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n0\r\nX-Trailer: 1\r\n\r\n");
    performPath();
    EXPECT_EQ(body(), "hello");
    EXPECT_EQ(header("x-trailer"), "(missing)"); // the headers had ended
    EXPECT_EQ(responseLines().at(3), "X-Trailer: 1\r\n");
}

TEST_F(CNetRequestTest, readsAnAnswerThatComesByteByByte)
{
    std::vector<std::string> pieces;
    for (const char byte : ok("hello", "X-A: 1\r\n"))
        pieces.emplace_back(1, byte);
    server().onConnection().readHead().sendPieces(pieces);
    performPath();
    EXPECT_EQ(body(), "hello");
    EXPECT_EQ(header("x-a"), "1");
}

TEST_F(CNetRequestTest, sendsAHEADAndExpectsNoBody)
{
    answer("HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\n");
    request().setHTTPMethod("HEAD");
    performPath();
    EXPECT_EQ(body(), "");
    EXPECT_EQ(header("content-length"), "5");
    EXPECT_EQ(received().substr(0, 15), "HEAD / HTTP/1.1");
}

TEST_F(CNetRequestTest, sendsCustomHeaders)
{
    answer(ok(""));
    const auto headers = kx::newObj<norla::CNetHeaders>();
    headers->add("X-A", L"\u00FC");
    headers->add("Accept", ""); // takes away libcurl's own
    request().setCustomHTTPHeaders(headers.get());
    performPath();
    EXPECT_EQ(received(),
        "GET / HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(server().getPort()) + "\r\nX-A: \xC3\xBC\r\n\r\n");
}

TEST_F(CNetRequestTest, tellsAProxyThatMakesATunnelNoCustomHeaders)
{
    server().onConnection().readHead().send("HTTP/1.1 403 No\r\nContent-Length: 0\r\n\r\n");
    const auto headers = kx::newObj<norla::CNetHeaders>();
    headers->add("X-Token", "secret");
    request().setCustomHTTPHeaders(headers.get());
    request().setProxy(kx::String::fromUTF8(server().url()));
    request().setURL("https://host.invalid/");
    EXPECT_NE(failure(), nullptr);
    EXPECT_TRUE(received().starts_with("CONNECT host.invalid:443 HTTP/1.1\r\n")) << received();
    EXPECT_EQ(received().find("secret"), std::string::npos) << received();
}

TEST_F(CNetRequestTest, sendsHeadersAddedAfterTheFirstTransferInTheSecond)
{
    const auto headers = kx::newObj<norla::CNetHeaders>();
    request().setCustomHTTPHeaders(headers.get());
    server().onConnection().readHead().send(ok("")).readHead().send(ok(""));
    performPath();
    headers->add("X-Second", "1");
    performPath();
    EXPECT_NE(received().find("X-Second: 1\r\n"), std::string::npos);
}

TEST_F(CNetRequestTest, sendsARange)
{
    answer("HTTP/1.1 206 Partial Content\r\nContent-Length: 4\r\n\r\n3456");
    request().setRange(3, 4);
    performPath();
    EXPECT_NE(received().find("\r\nRange: bytes=3-6\r\n"), std::string::npos);
}

TEST_F(CNetRequestTest, sendsNothingOfAnEarlierPUTWithADELETE)
{
    server().onConnection().readHead().readBytes(4).send(ok("")).readHead().send(ok(""));
    request().setSendDataAsUTF8("body");
    request().setHTTPMethod("PUT");
    performPath();
    request().setHTTPMethod("DELETE");
    performPath();
    const std::string all = received();
    EXPECT_EQ(all.substr(all.find("DELETE")),
        "DELETE / HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(server().getPort()) + "\r\nAccept: */*\r\n\r\n");
}

TEST_F(CNetRequestTest, performsAgainOverTheSameConnection)
{
    server().onConnection().readHead().send(ok("one")).readHead().send(ok("two"));
    performPath();
    performPath();
    EXPECT_EQ(body(), "two");
    EXPECT_EQ(server().connectionCount(), 1u);
}

TEST_F(CNetRequestTest, keepsItsConnectionOverAReset)
{
    server().onConnection().readHead().send(ok("one")).readHead().send(ok("two"));
    performPath();
    request().reset();
    performPath();
    EXPECT_EQ(body(), "two");
    EXPECT_EQ(server().connectionCount(), 1u);
}

TEST_F(CNetRequestTest, forgetsTheLastAnswerAtTheStartOfATransfer)
{
    server().onConnection().readHead().send(ok("a long answer", "X-First: 1\r\n")).readHead().send(ok("x"));
    performPath();
    performPath();
    EXPECT_EQ(body(), "x");
    EXPECT_EQ(header("x-first"), "(missing)");
    EXPECT_EQ(responseLines().size(), 3u);
}

TEST_F(CNetRequestTest, keepsTheReceiveBuffersAllocation)
{
    server().onConnection().readHead().send(ok(std::string(100'000, 'x'))).readHead().send(ok("x"));
    performPath();
    const size_t capacity = request().getDefaultReceiveBuffer()->getCapacity();
    performPath();
    EXPECT_EQ(request().getDefaultReceiveBuffer()->getCapacity(), capacity);
}

TEST_F(CNetRequestTest, isAsNewAfterAReset)
{
    server().onConnection().readHead().readBytes(4).send(ok("one", "X-A: 1\r\n"));
    const auto headers = kx::newObj<norla::CNetHeaders>();
    headers->add("X-Mine", "1");
    request().setCustomHTTPHeaders(headers.get());
    request().setSendDataAsUTF8("body");
    request().setHTTPMethod("PUT");
    performPath();
    server().join();
    request().reset();
    EXPECT_EQ(body(), "");
    EXPECT_EQ(request().getResponseHeaderMap(), Map());
    EXPECT_TRUE(responseLines().empty());
    EXPECT_EQ(request().getResponseCodeDomain(), "");
    EXPECT_EQ(request().getErrorMessage(), "");
    expectGoodTransfer();
}

TEST_F(CNetRequestTest, sendsAPlainGETAfterAReset)
{
    request().setSendDataAsUTF8("body");
    request().setHTTPMethod("PUT");
    request().reset();
    answer(ok(""));
    performPath();
    EXPECT_EQ(received(),
        "GET / HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(server().getPort()) + "\r\nAccept: */*\r\n\r\n");
}

TEST_F(CNetRequestTest, tellsTheServerInfoOncePerHeaderBlock)
{
    const auto info = kx::newObj<norla::CServerInfo>();
    answer(ok("x", "Server: DAV/2 Python/3.9\r\n"));
    request().setServerInfoToUpdate(info.get());
    performPath();
    EXPECT_EQ(info->getServerHeader(), "DAV/2 Python/3.9");
    EXPECT_TRUE(info->areGetRangesBroken());
}

TEST_F(CNetRequestTest, leavesTheServerInfoAloneAfterAReset)
{
    const auto info = kx::newObj<norla::CServerInfo>();
    request().setServerInfoToUpdate(info.get());
    request().reset();
    answer(ok("x", "Server: DAV/2 Python/3.9\r\n"));
    performPath();
    EXPECT_EQ(info->getServerHeader(), "");
}

class CCountedObject : public kx::CBase {
public:
    explicit CCountedObject(int& alive)
        : m_alive(alive)
    {
        ++m_alive;
    }
    ~CCountedObject() override { --m_alive; }

private:
    int& m_alive;
};

TEST_F(CNetRequestTest, keepsObjectsUntilReset)
{
    int alive = 0;
    request().keepObject(kx::newObj<CCountedObject>(alive).get());
    request().keepObject(nullptr);
    EXPECT_EQ(alive, 1);
    request().reset();
    EXPECT_EQ(alive, 0);
}

class CRecordingListener : public kx::CBase, public virtual norla::CNetRequest::IDoneListener {
public:
    void onNetRequestDone(norla::CNetRequest* request, const kx::CError* error) override
    {
        m_calls.push_back(request ? (error ? error->getMessage() : "success") : "no request");
        if (m_thrown)
            throw kx::CError(*m_thrown);
        if (m_resets)
            request->reset();
    }

    std::vector<kx::String> m_calls;
    std::optional<kx::CError> m_thrown;
    bool m_resets = false;
};

TEST_F(CNetRequestTest, tellsTheListenerOfSuccess)
{
    const auto listener = kx::newObj<CRecordingListener>();
    answer(ok("x"));
    request().setDoneListener(listener.get());
    performPath();
    EXPECT_EQ(listener->m_calls, std::vector<kx::String>{"success"});
}

TEST_F(CNetRequestTest, tellsTheListenerOfTheErrorItThrows)
{
    const auto listener = kx::newObj<CRecordingListener>();
    answer("HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\n\r\n");
    request().setDoneListener(listener.get());
    const auto error = failureOf();
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(listener->m_calls, std::vector<kx::String>{error->getMessage()});
}

TEST_F(CNetRequestTest, throwsTheTransfersErrorEvenIfTheListenerThrows)
{
    const support::CLogRecorder log;
    const auto listener = kx::newObj<CRecordingListener>();
    listener->m_thrown = kx::CError("listener");
    answer("HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\n\r\n");
    request().setDoneListener(listener.get());
    EXPECT_EQ(failureOf()->getCode(), CURLE_HTTP_RETURNED_ERROR);
    EXPECT_EQ(log.lines(),
        std::vector<std::string>{"error: A done listener has thrown after a failed transfer (ignored).: listener"});
}

TEST_F(CNetRequestTest, passesOnWhatTheListenerThrowsAfterASuccess)
{
    const auto listener = kx::newObj<CRecordingListener>();
    listener->m_thrown = kx::CError("listener");
    answer(ok("x"));
    request().setDoneListener(listener.get());
    EXPECT_EQ(failureOf()->getMessage(), "listener");
}

TEST_F(CNetRequestTest, letsTheListenerResetIt)
{
    auto listener = kx::newObj<CRecordingListener>();
    listener->m_resets = true;
    answer(ok("x"));
    request().setDoneListener(listener.get());
    listener = nullptr;
    performPath();
    expectGoodTransfer();
}

TEST_F(CNetRequestTest, tellsNobodyAfterAReset)
{
    const auto listener = kx::newObj<CRecordingListener>();
    request().setDoneListener(listener.get());
    expectGoodTransfer(); // resets
    EXPECT_TRUE(listener->m_calls.empty());
}

TEST(CNetRequestThreadsTest, sixteenThreadsConstructPerformAndDestroyAtOnce)
{
    support::CScriptedServer server;
    constexpr int threadCount = 16;
    constexpr int roundCount = 10;
    for (int i = 0; i < threadCount * roundCount; ++i)
        server.onConnection().readHead().send("HTTP/1.1 200 OK\r\nContent-Length: 1\r\nConnection: close\r\n\r\nx");
    std::atomic<int> good{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < threadCount; ++i) {
        threads.emplace_back([&server, &good] {
            for (int round = 0; round < roundCount; ++round) {
                const auto request = kx::newObj<norla::CNetRequest>();
                request->setURL(kx::String::fromUTF8(server.url()));
                request->perform();
                good += request->getDefaultReceiveBuffer()->getSize() == 1 ? 1 : 0;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(good, threadCount * roundCount);
}

} // namespace
