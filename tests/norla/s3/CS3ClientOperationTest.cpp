#include "kx/streams/CBufferStream.h"
#include "norla/core/explain.h"
#include "norla/s3/CS3Error.h"
#include "tests/norla/s3/CS3ClientFixture.h"
#include "tests/support/CLogRecorder.h"
#include "tests/support/CTestCertificates.h"
#include "tests/support/errorOf.h"

namespace {

using norla::CS3Client;
using norla::CS3Error;

/// The operations against a server; all connections are closed after their answer.
class CS3ClientOperationTest : public CS3ClientFixture {
protected:
    /// An answer to a HEAD request.
    static std::string head(int status, const std::string& headers = "")
    {
        return "HTTP/1.1 " + std::to_string(status) + " Some Reason\r\nConnection: close\r\n" + headers + "\r\n";
    }

    std::string requestLine(size_t connection = 0)
    {
        const std::string sent = received(connection);
        return sent.substr(0, sent.find("\r\n"));
    }

    void copy() { client().copyObject(request(), "b", "old", "new"); }

    support::CLogRecorder m_log;
};

TEST_F(CS3ClientOperationTest, putsAnObject)
{
    server().onConnection().readHead().readBytes(5).send(ok(""));
    client().putObject(request(), "b", "k", "hello", 5, "text/plain");
    EXPECT_EQ(requestLine(), "PUT /b/k HTTP/1.1");
    EXPECT_NE(received().find("\r\nContent-Type: text/plain\r\n"), std::string::npos);
}

TEST_F(CS3ClientOperationTest, getsAnObject)
{
    answer(ok("content"));
    client().getObject(request(), "b", "k", 0, -1);
    EXPECT_EQ(requestLine(), "GET /b/k HTTP/1.1");
    EXPECT_EQ(body(), "content");
}

TEST_F(CS3ClientOperationTest, getsARange)
{
    answer("HTTP/1.1 206 Partial Content\r\nContent-Length: 2\r\nContent-Range: bytes 3-4/7\r\n\r\nte");
    client().getObject(request(), "b", "k", 3, 2);
    EXPECT_NE(received().find("\r\nRange: bytes=3-4\r\n"), std::string::npos);
    EXPECT_EQ(body(), "te");
}

TEST_F(CS3ClientOperationTest, getsNothingOfAnObjectThatExists)
{
    answer(head(200, "Content-Length: 7\r\n"));
    client().getObject(request(), "b", "k", 3, 0);
    EXPECT_EQ(requestLine(), "HEAD /b/k HTTP/1.1");
    EXPECT_EQ(body(), "");
}

TEST_F(CS3ClientOperationTest, getsHeadersByLowerCaseName)
{
    answer(head(200, "Content-Length: 7\r\nX-Amz-Meta-Color: red\r\n"));
    const auto headers = client().getObjectHeaders(request(), "b", "k");
    EXPECT_EQ(requestLine(), "HEAD /b/k HTTP/1.1");
    EXPECT_EQ(headers.at("x-amz-meta-color"), "red");
    EXPECT_EQ(headers.at("content-length"), "7");
}

TEST_F(CS3ClientOperationTest, findsAnObject)
{
    answer(head(200, "Content-Length: 7\r\n"));
    EXPECT_TRUE(client().objectExists(request(), "b", "k"));
}

TEST_F(CS3ClientOperationTest, doesNotFindAMissingObject)
{
    answer(head(404));
    EXPECT_FALSE(client().objectExists(request(), "b", "k"));
}

TEST_F(CS3ClientOperationTest, doesNotTakeARefusalForAMissingObject)
{
    answer(head(403));
    const auto error = support::errorOf([this] { client().objectExists(request(), "b", "k"); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getProps().get("responseCode"), "403");
}

TEST_F(CS3ClientOperationTest, knowsTheSizeOfAnObject)
{
    answer(head(200, "Content-Length: 5497558138880\r\n"));
    EXPECT_EQ(client().getObjectSize(request(), "b", "k"), 5497558138880);
}

TEST_F(CS3ClientOperationTest, knowsNoSizeOfAMissingObject)
{
    answer(head(404));
    EXPECT_EQ(client().getObjectSize(request(), "b", "k"), -1);
}

TEST_F(CS3ClientOperationTest, takesNothingButANumberForASize)
{
    answer(head(200, "Content-Length: 5\r\n \r\n")); // a line that goes on with nothing
    EXPECT_EQ(support::messageOf([this] { client().getObjectSize(request(), "b", "k"); }), "Invalid number: '5 '.");
}

TEST_F(CS3ClientOperationTest, missesTheSizeInAnAnswer)
{
    answer(head(200));
    const auto error = support::errorOf([this] { client().getObjectSize(request(), "b", "k"); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getMessage(), "Error: Content-Length header was expected but not included in response.");
    EXPECT_EQ(error->getDomain(), "");
    EXPECT_EQ(error->getCode(), -1);
}

TEST_F(CS3ClientOperationTest, takesNoOtherStatusForAMissingObject)
{
    client().setMaxRetries(0);
    for (const int status : {400, 401, 403, 405, 410, 412, 416, 500, 503}) {
        answer(head(status));
        EXPECT_THROW(client().objectExists(request(), "b", "k"), norla::CCURLError) << status;
        answer(head(status));
        EXPECT_THROW(client().getObjectSize(request(), "b", "k"), norla::CCURLError) << status;
    }
}

TEST_F(CS3ClientOperationTest, passesARefusalOfTheSizeOn)
{
    answer(head(403));
    EXPECT_THROW(client().getObjectSize(request(), "b", "k"), norla::CCURLError);
}

TEST_F(CS3ClientOperationTest, deletesAnObject)
{
    answer("HTTP/1.1 204 No Content\r\n\r\n");
    client().deleteObject(request(), "b", "k");
    EXPECT_EQ(requestLine(), "DELETE /b/k HTTP/1.1");
}

TEST_F(CS3ClientOperationTest, copiesAnObject)
{
    answer(ok("<CopyObjectResult><ETag>e</ETag></CopyObjectResult>"));
    copy();
    EXPECT_EQ(requestLine(), "PUT /b/new HTTP/1.1");
    EXPECT_NE(received().find("\r\nx-amz-copy-source: /b/old\r\n"), std::string::npos);
}

TEST_F(CS3ClientOperationTest, throwsAnErrorThatComesWithTheStatusOfASuccess)
{
    answer(ok(errorDocument("InternalError")));
    const auto error = support::errorOf([this] { copy(); });
    ASSERT_TRUE(dynamic_cast<const CS3Error*>(error.get()));
    EXPECT_EQ(error->getMessage(), "Amazon S3 error: Because(InternalError)");
    EXPECT_EQ(error->getCode(), 0);
    EXPECT_EQ(error->getProps().get("responseCode"), "0");
}

TEST_F(CS3ClientOperationTest, copiesOnceWhateverTheFailure)
{
    answer(answerWith(503, errorDocument("SlowDown")));
    const auto error = support::errorOf([this] { copy(); });
    ASSERT_TRUE(dynamic_cast<const norla::CCURLError*>(error.get()));
    EXPECT_EQ(error->getProps().get("responseCode"), "503");
    EXPECT_EQ(server().connectionCount(), 1u);
    EXPECT_EQ(m_log.lines(), std::vector<std::string>());
}

TEST_F(CS3ClientOperationTest, doesNotBelieveAnEmptyAnswerToACopy)
{
    answer(ok(""));
    EXPECT_EQ(support::messageOf([this] { copy(); }), "Error parsing Amazon S3 'copy object' result: invalid XML.");
}

TEST_F(CS3ClientOperationTest, listsABucket)
{
    answer(ok("<ListBucketResult><Contents><Key>k</Key></Contents></ListBucketResult>"));
    const auto page = client().listObjects(request(), "b", "p", "/", "m", 5);
    EXPECT_EQ(requestLine(), "GET /b?prefix=p&marker=m&max-keys=5&delimiter=%2F HTTP/1.1");
    ASSERT_EQ(page->getContents().size(), 1u);
    EXPECT_EQ(page->getContents()[0]->getKey(), "k");
}

TEST_F(CS3ClientOperationTest, takesNoListingBeyondTheLimitOfItsSafeDefaults)
{
    const std::string page = "<ListBucketResult><Contents><Key>k</Key></Contents></ListBucketResult>";
    answer(ok(page, "Connection: close\r\n"));
    answer(ok(page));
    EXPECT_EQ(client().listObjects(request(), "b", "", "", "", -1)->getContents().size(), 1u);
    client().setSafeDefaults({.maxReceiveBuffer = static_cast<long long>(page.size()) - 1});
    const auto error = support::errorOf([this] { client().listObjects(request(), "b", "", "", "", -1); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getCode(), CURLE_FILESIZE_EXCEEDED);
}

TEST_F(CS3ClientOperationTest, doesNotBelieveAListingThatIsNone)
{
    answer(ok("Hello"));
    EXPECT_EQ(support::messageOf([this] { client().listObjects(request(), "b", "", "", "", -1); }),
        "Error parsing Amazon S3 'list objects' result: invalid XML.");
    expectGoodTransfer();
}

TEST_F(CS3ClientOperationTest, asksForNamesOfDotsByTheirNames)
{
    for (int i = 0; i < 4; ++i)
        answer("HTTP/1.1 204 No Content\r\nConnection: close\r\n\r\n");
    client().deleteObject(request(), "b", ".");
    client().deleteObject(request(), "b", "..");
    client().deleteObject(request(), "..", "k");
    client().prepareListObjectsRequest(request(), "..", "p", "", "", -1);
    client().performRequest(request());
    EXPECT_EQ(requestLine(0), "DELETE /b/. HTTP/1.1");
    EXPECT_EQ(requestLine(1), "DELETE /b/.. HTTP/1.1");
    EXPECT_EQ(requestLine(2), "DELETE /../k HTTP/1.1");
    EXPECT_EQ(requestLine(3), "GET /..?prefix=p HTTP/1.1");
}

TEST_F(CS3ClientOperationTest, putsAnObjectFromASource)
{
    server().onConnection().readHead().readBytes(3).reset();
    server().onConnection().readHead().readBytes(5).send(ok(""));
    const auto buffer = kx::newObj<CS3Client::Buffer>();
    buffer->append(reinterpret_cast<const unsigned char*>("hello"), 5);
    const auto source = kx::newObj<norla::CNetRequest::CStreamDataSource>(kx::newObj<kx::CBufferStream>(buffer).get());
    client().putObject(request(), "b", "k", source.get(), 5, "XUFAKrxLKna5cZ2REBfFkg==", "text/plain");
    EXPECT_EQ(requestLine(1), "PUT /b/k HTTP/1.1");
    EXPECT_NE(received(1).find("\r\nContent-Length: 5\r\n"), std::string::npos) << received(1);
    EXPECT_NE(received(1).find("\r\nContent-MD5: XUFAKrxLKna5cZ2REBfFkg==\r\n"), std::string::npos) << received(1);
    EXPECT_TRUE(received(1).ends_with("\r\n\r\nhello")) << received(1);
}

TEST_F(CS3ClientOperationTest, asksForNoGoAheadBeforeASmallObject)
{
    constexpr int count = 5;
    const std::string content((1 << 20) - 1, 'c');
    for (int i = 0; i < count; ++i)
        server().onConnection().readHead().readBytes(content.size()).send(answerWith(200, ""));
    for (int i = 0; i < count; ++i)
        client().putObject(request(), "b", "k", content.data(), static_cast<int>(content.size()), "");
    for (size_t i = 0; i < count; ++i) {
        const std::string head = received(i).substr(0, received(i).find("\r\n\r\n"));
        EXPECT_EQ(head.find("Expect"), std::string::npos) << head;
    }
}

TEST_F(CS3ClientOperationTest, asksForAGoAheadBeforeALargeObject)
{
    const std::string content(2 << 20, 'c');
    server()
        .onConnection()
        .readHead()
        .send("HTTP/1.1 100 Continue\r\n\r\n")
        .readBytes(content.size())
        .send(answerWith(200, ""));
    client().putObject(request(), "b", "k", content.data(), static_cast<int>(content.size()), "");
    EXPECT_NE(received().find("\r\nExpect: 100-continue\r\n"), std::string::npos);
}

TEST_F(CS3ClientOperationTest, sendsEmptyValuesThatAreSigned)
{
    answer(answerWith(200, ""));
    const auto headers = client().beginPrepareRequest(request(), client().getObjectURL(request(), "b", "k"));
    headers->add("X-Amz-Meta-Note", "");
    headers->addEmpty("x-amz-meta-other");
    headers->add("X-Other", "");
    client().finishPrepareRequest(request());
    EXPECT_EQ(request().getCustomHTTPHeaders(), headers);
    EXPECT_EQ(sentHeader("Authorization"), "AWS AKID:" + client().getSignature(&request()));
    EXPECT_EQ(CS3Client::getStringToSign(&request()),
        "GET\n\n\n" + sentHeader("Date") + "\nx-amz-meta-note:\nx-amz-meta-other:\n/b/k");
    client().performRequest(request());
    EXPECT_NE(received().find("\r\nX-Amz-Meta-Note:\r\n"), std::string::npos) << received();
    EXPECT_NE(received().find("\r\nx-amz-meta-other:\r\n"), std::string::npos) << received();
    EXPECT_EQ(received().find("X-Other"), std::string::npos) << received();
}

TEST_F(CS3ClientOperationTest, decodesTheNamesOfAListingThatIsAskedForSo)
{
    const std::string page = ok("<ListBucketResult><EncodingType>url</EncodingType><Contents><Key>a%01</Key></Contents>"
                                "</ListBucketResult>",
        "Connection: close\r\n");
    answer(page);
    answer(page);
    const auto firstKey
        = [this] { return client().listObjects(request(), "b", "", "", "", -1)->getContents().at(0)->getKey(); };
    EXPECT_EQ(firstKey(), "a%01");
    client().setURLEncodedListings(true);
    EXPECT_EQ(firstKey(), "a\x01");
    EXPECT_EQ(requestLine(1), "GET /b?encoding-type=url HTTP/1.1");
}

TEST_F(CS3ClientOperationTest, doesNotFollowARedirectOutOfTLS)
{
    support::CScriptedServer plain;
    const auto& certificates = support::CTestCertificates::get();
    server()
        .onConnection()
        .startTLS(certificates.serverCertificate(), certificates.serverKey())
        .readHead()
        .send("HTTP/1.1 307 Elsewhere\r\nContent-Length: 0\r\nLocation: " + plain.url("/b/k") + "\r\n\r\n");
    const auto secure = kx::newObj<CS3Client>("AKID", secret, true, host());
    secure->setRootCertBundlePath(kx::String::fromUTF8(certificates.caFile().string()));
    const auto error = support::errorOf([&] { secure->putObject(request(), "b", "k", "hello", 5, ""); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getDomain(), "curl");
    EXPECT_EQ(error->getCode(), CURLE_UNSUPPORTED_PROTOCOL);
    EXPECT_EQ(error->getMessage(),
        "Unsupported protocol: the store redirects to a URL that is not https, which is not followed (response code: "
        "http "
        "307)");
    EXPECT_EQ(error->getProps().get("responseCode"), "307");
    EXPECT_NE(norla::explain(*error).find(host()), kx::String::npos) << norla::explain(*error);
    EXPECT_EQ(plain.connectionCount(), 0u);
    EXPECT_EQ(m_log.lines(), std::vector<std::string>());
}

TEST_F(CS3ClientOperationTest, followsARedirectWithTheBody)
{
    server().onConnection().readHead().readBytes(5).send(
        "HTTP/1.1 307 Elsewhere\r\nConnection: close\r\nContent-Length: 0\r\nLocation: /elsewhere\r\n\r\n");
    server().onConnection().readHead().readBytes(5).send(ok(""));
    client().putObject(request(), "b", "k", "hello", 5, "");
    EXPECT_EQ(requestLine(1), "PUT /elsewhere HTTP/1.1");
    EXPECT_TRUE(received(1).ends_with("hello"));
}

} // namespace
