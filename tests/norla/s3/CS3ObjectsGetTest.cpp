// What comes of an object, and what does not pass for one.
#include "kx/base/CInvalidArgError.h"
#include "tests/norla/s3/CS3ObjectsFixture.h"

namespace {

using norla::CS3GetOptions;
using testing::HasSubstr;

class CS3ObjectsGetTest : public CS3ObjectsFixture {
protected:
    void expectDifference(const std::string& headers, const std::string& message)
    {
        answer(reply("200 OK", headers, "abc"));
        EXPECT_THAT(messageOfGet(), HasSubstr(message)) << headers;
    }
    void expectNone(const std::string& headers, const CS3GetOptions& options = {})
    {
        answer(reply("200 OK", headers, "abc"));
        EXPECT_EQ(messageOfGet(options), "(no error)") << headers;
    }
};

TEST_F(CS3ObjectsGetTest, getsAnObjectWithWhatIsKnownOfIt)
{
    answer(reply("200 OK",
        "ETag: \"900150983cd24fb0d6963f7d28e17f72\"\r\nContent-Type: text/plain\r\nx-amz-meta-a: b\r\n"
        "x-amz-checksum-sha256: ungWv48Bz+pBQUDeXa4iI7ADYaOWF3qctBD/YfIAFa0=\r\nx-amz-checksum-crc32c: Nks/tw==\r\n",
        "abc"));
    EXPECT_EQ(get(), "abc");
    EXPECT_EQ(m_info.size, 3);
    EXPECT_EQ(m_info.contentType, "text/plain");
    EXPECT_EQ(m_info.metadata.at("a"), "b");
    EXPECT_EQ(requestLine(), "GET /b/k HTTP/1.1");
    EXPECT_TRUE(hasSent("x-amz-checksum-mode: ENABLED"));
}

TEST_F(CS3ObjectsGetTest, takesAnAnswerThatBreaksOffInItsHeaderForNoObject)
{
    answer("HTTP/1.1 200 OK\r\nDate: Sun, 22 Nov");
    EXPECT_THAT(messageOfGet(), HasSubstr("closed within the header of the answer"));
}

TEST_F(CS3ObjectsGetTest, takesItForNoneWithAKeyEither)
{
    answer("HTTP/1.1 200 OK\r\nDate: Sun, 22 Nov");
    client().setMaxRetries(0);
    norla::CS3Objects objects(&client(), &request());
    const auto bytes = kx::newObj<norla::CNetRequest::Buffer>();
    EXPECT_THAT(support::messageOf([&] { objects.get("b", "k", bytes.get()); }).toUTF8(),
        HasSubstr("closed within the header of the answer"));
}

TEST_F(CS3ObjectsGetTest, asksForAVersionOnConditions)
{
    answer(reply("200 OK", "", ""));
    get({.versionId = "a/b",
        .conditions = {.ifMatch = "\"a\"",
            .ifNoneMatch = "\"b\"",
            .ifModifiedSince = kx::CTime(1255369830LL * 1'000'000),
            .ifUnmodifiedSince = kx::CTime(1255369831LL * 1'000'000)},
        .verify = false,
        .headers = {{"x-amz-request-payer", "requester"}}});
    EXPECT_EQ(requestLine(), "GET /b/k?versionId=a%2Fb HTTP/1.1");
    for (const char* const line :
        {"if-match: \"a\"", "if-none-match: \"b\"", "if-modified-since: Mon, 12 Oct 2009 17:50:30 GMT",
            "if-unmodified-since: Mon, 12 Oct 2009 17:50:31 GMT", "x-amz-request-payer: requester"})
        EXPECT_TRUE(hasSent(line)) << line;
    EXPECT_FALSE(hasSent("x-amz-checksum-mode: ENABLED"));
}

TEST_F(CS3ObjectsGetTest, namesBothDigestsOfBytesThatAreOthers)
{
    expectDifference("ETag: \"000150983cd24fb0d6963f7d28e17f72\"\r\n",
        "The bytes of the object 'k' in the bucket 'b' are not those that the store speaks of: their MD5 is "
        "'900150983cd24fb0d6963f7d28e17f72' and not '000150983cd24fb0d6963f7d28e17f72'.");
    expectDifference("ETag: 000150983CD24FB0D6963F7D28E17F72\r\n", "not '000150983cd24fb0d6963f7d28e17f72'");
    expectDifference("x-amz-checksum-sha256: AAAAv48Bz+pBQUDeXa4iI7ADYaOWF3qctBD/YfIAFa0=\r\n",
        "SHA-256 is 'ungWv48Bz+pBQUDeXa4iI7ADYaOWF3qctBD/YfIAFa0=' and not "
        "'AAAAv48Bz+pBQUDeXa4iI7ADYaOWF3qctBD/YfIAFa0='");
    expectDifference("x-amz-checksum-crc32c: none\r\n", "CRC-32C is 'Nks/tw==' and not 'none'");
}

TEST_F(CS3ObjectsGetTest, comparesAnEmptyObjectToo)
{
    answer(reply("200 OK", "ETag: \"900150983cd24fb0d6963f7d28e17f72\"\r\n"));
    EXPECT_THAT(messageOfGet(), HasSubstr("their MD5 is 'd41d8cd98f00b204e9800998ecf8427e' and not"));
}

TEST_F(CS3ObjectsGetTest, takesForADigestWhatIsOne)
{
    const std::string eTag = "ETag: \"000150983cd24fb0d6963f7d28e17f72\"\r\n";
    expectNone("ETag: \"000150983cd24fb0d6963f7d28e17f72-2\"\r\n");
    expectNone("ETag: \"g00150983cd24fb0d6963f7d28e17f72\"\r\n");
    expectNone(eTag + "x-amz-server-side-encryption: aws:kms\r\n");
    expectNone(eTag + "x-amz-server-side-encryption-customer-algorithm: AES256\r\n");
    expectNone(eTag, {.verify = false});
    expectNone("x-amz-checksum-crc32c: AAAAAA==-2\r\n");
    expectNone("x-amz-checksum-crc32c: AAAAAA==\r\nx-amz-checksum-type: COMPOSITE\r\n");
}

TEST_F(CS3ObjectsGetTest, getsAPartOfAnObjectOfAnySize)
{
    answer(reply("206 Partial Content",
        "ETag: \"000150983cd24fb0d6963f7d28e17f72\"\r\nContent-Range: bytes 5497558138880-5497558138882/5497558138890"
        "\r\n",
        "abc"));
    EXPECT_EQ(get({.start = 5497558138880, .length = 3}), "abc");
    EXPECT_EQ(m_info.size, 5497558138890);
    EXPECT_TRUE(hasSent("Range: bytes=5497558138880-5497558138882"));
}

TEST_F(CS3ObjectsGetTest, getsTheRestOfAnObject)
{
    answer(reply("206 Partial Content", "Content-Range: bytes 2-4/5\r\n", "abc"));
    EXPECT_EQ(get({.start = 2}), "abc");
    answer(reply("206 Partial Content", "Content-Range: bytes 2-4/5\r\n", "abc"));
    EXPECT_EQ(get({.start = 2, .length = 9}), "abc");
    answer(reply("206 Partial Content", "Content-Range: bytes 2-4/*\r\n", "abc"));
    EXPECT_EQ(get({.start = 2, .length = 9}), "abc");
    EXPECT_EQ(m_info.size, -1);
    answer(reply("200 OK", "", "abc")); // that is all there is
    EXPECT_EQ(get({.start = 0, .length = 3}), "abc");
    EXPECT_EQ(m_info.size, 3);
}

TEST_F(CS3ObjectsGetTest, letsNoByteOfAnotherPartThrough)
{
    const std::vector<std::string> answers{reply("200 OK", "", "abcd"),
        reply("200 OK", "Content-Range: bytes 1-3/9\r\n", "abc"), reply("206 Partial Content", "", "abc"),
        reply("206 Partial Content", "Content-Range: bytes 0-2/9\r\n", "abc"),
        reply("206 Partial Content", "Content-Range: bytes 1-2/9\r\n", "ab"),
        reply("206 Partial Content", "Content-Range: bytes 1-4/9\r\n", "abcd"),
        reply("206 Partial Content", "Content-Range: bytes 1-3/3\r\n", "abc"),
        reply("206 Partial Content", "Content-Range: bytes 1-3/-4\r\n", "abc"),
        reply("206 Partial Content", "Content-Range: bytes 1-3/9\r\n", "abcd"),
        reply("206 Partial Content", "Content-Range: lines 1-3/9\r\n", "abc"),
        reply("206 Partial Content", "Content-Range: bytes 1-0/9\r\n", "abc"),
        reply("206 Partial Content", "Content-Range: bytes */9\r\n", "abc"),
        reply("203 Other", "Content-Range: bytes 1-3/9\r\n", "abc")};
    for (const std::string& bytes : answers) {
        answer(bytes);
        EXPECT_THAT(messageOfGet({.start = 1, .length = 3}),
            HasSubstr(
                "The store was asked for 'bytes=1-3' of the object 'k' in the bucket 'b' and gave something else"))
            << bytes;
        EXPECT_EQ(this->bytes(), "") << bytes;
    }
}

TEST_F(CS3ObjectsGetTest, letsNoMoreThroughThanAPartHas)
{
    const std::string head = "HTTP/1.1 206 Partial Content\r\nConnection: close\r\nContent-Range: bytes 1-3/9\r\n\r\n";
    answer(head + "abcd");
    EXPECT_THAT(messageOfGet({.start = 1, .length = 3}), HasSubstr("something else, more than 3 bytes: status 206"));
    EXPECT_EQ(bytes(), "");
    answer(head + "ab");
    EXPECT_THAT(messageOfGet({.start = 1, .length = 3}), HasSubstr("something else, 2 bytes: status 206"));
}

TEST_F(CS3ObjectsGetTest, takesNoPartForTheWhole)
{
    answer(reply("206 Partial Content", "Content-Range: bytes 0-2/9\r\n", "abc"));
    EXPECT_EQ(messageOfGet(),
        "The store was asked for the object 'k' in the bucket 'b' and gave something else, another answer: status 206, "
        "Content-Range 'bytes 0-2/9', Content-Length '3'.");
    EXPECT_EQ(bytes(), "");
}

TEST_F(CS3ObjectsGetTest, takesNothingOfALengthThatIsNone)
{
    const std::string head = "HTTP/1.1 200 OK\r\nConnection: close\r\n";
    answer(head + "Content-Length: 99999999999999999999\r\n\r\nabc");
    EXPECT_EQ(messageOfGet(),
        "The store was asked for the object 'k' in the bucket 'b' and gave something else, a length that is none: "
        "status 200, Content-Range '', Content-Length '99999999999999999999'.");
    answer(head + "Content-Length: 9\r\nContent-Length: 3\r\n\r\nabc");
    EXPECT_THAT(messageOfGet(), HasSubstr("something else, a length that is none: status 200"));
    EXPECT_EQ(bytes(), "");
    answer(head + "Content-Length: 3\r\nContent-Length: 3\r\n\r\nabc");
    EXPECT_EQ(get(), "abc");
}

TEST_F(CS3ObjectsGetTest, takesNoMoreThanWasAllowed)
{
    answer(reply("200 OK", "", "abcd"));
    EXPECT_THAT(
        messageOfGet({.mostBytes = 3}), HasSubstr("something else, 4 bytes where 3 at most may come: status 200"));
    answer("HTTP/1.1 200 OK\r\nConnection: close\r\n\r\nabcd");
    EXPECT_THAT(messageOfGet({.mostBytes = 3}), HasSubstr("something else, more than 3 bytes: status 200"));
    EXPECT_EQ(bytes(), "");
    answer(reply("200 OK", "", "abc"));
    EXPECT_EQ(get({.mostBytes = 3}), "abc");
}

TEST_F(CS3ObjectsGetTest, letsNoErrorDocumentThrough)
{
    answer(answerWith(404, errorDocument("NoSuchKey")));
    const auto error = support::errorOf([this] { get(); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getProps().get("s3-code"), "NoSuchKey");
    EXPECT_EQ(bytes(), "");
    answer(reply("200 OK", "", "abc"));
    EXPECT_EQ(get(), "abc");
}

TEST_F(CS3ObjectsGetTest, saysThatAnObjectIsAsItWas)
{
    answer("HTTP/1.1 304 Not Modified\r\nConnection: close\r\n\r\n");
    const auto error = support::errorOf([this] { get({.conditions = {.ifNoneMatch = "\"a\""}}); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getProps().get("s3-code"), "NotModified");
}

TEST_F(CS3ObjectsGetTest, asksForTheHeadersAlone)
{
    const std::string head = "HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: 4\r\nETag: \"e\"\r\n\r\n";
    answer(head);
    EXPECT_EQ(objects().head("b", "k", {.versionId = "v"}).size, 4);
    answer(head);
    EXPECT_EQ(get({.start = 1, .length = 0}), "");
    EXPECT_EQ(m_info.eTag, "\"e\"");
    EXPECT_EQ(requestLine(), "HEAD /b/k?versionId=v HTTP/1.1");
    EXPECT_THAT(server().received(1), testing::StartsWith("HEAD /b/k HTTP/1.1\r\n"));
}

TEST_F(CS3ObjectsGetTest, asksForTheHeadersAloneOnConditions)
{
    answer("HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: 4\r\n\r\n");
    objects().head("b", "k",
        {.conditions = {.ifMatch = "\"a\"",
             .ifNoneMatch = "\"b\"",
             .ifModifiedSince = kx::CTime(1255369830LL * 1'000'000),
             .ifUnmodifiedSince = kx::CTime(1255369831LL * 1'000'000)}});
    EXPECT_EQ(requestLine(), "HEAD /b/k HTTP/1.1");
    for (const char* const line : {"if-match: \"a\"", "if-none-match: \"b\"",
             "if-modified-since: Mon, 12 Oct 2009 17:50:30 GMT", "if-unmodified-since: Mon, 12 Oct 2009 17:50:31 GMT"})
        EXPECT_TRUE(hasSent(line)) << line;
}

TEST_F(CS3ObjectsGetTest, refusesWhatMakesNoSense)
{
    EXPECT_THROW(get({.start = -1}), kx::CInvalidArgError);
    EXPECT_THROW(get({.length = -2}), kx::CInvalidArgError);
    EXPECT_THROW(get({.mostBytes = -2}), kx::CInvalidArgError);
    EXPECT_THROW(get({.customerKey = "short"}), kx::CInvalidArgError);
    EXPECT_THROW(objects().get("", "k", request().getDefaultReceiveBuffer().get()), kx::CInvalidArgError);
    EXPECT_THROW(objects().get("b", "k", static_cast<norla::CNetRequest::IDataSink*>(nullptr)), kx::CInvalidArgError);
    EXPECT_THROW(objects().get("b", "k", static_cast<norla::CNetRequest::Buffer*>(nullptr)), kx::CInvalidArgError);
}

/// Keeps all that comes, also of an attempt that fails.
class CKeepingSink : public kx::CBase, public virtual norla::IDataSink {
public:
    int write(const unsigned char* data, int size, int, const HeaderMap&) override
    {
        m_text.append(reinterpret_cast<const char*>(data), static_cast<size_t>(size));
        return size;
    }
    std::string m_text;
};

TEST_F(CS3ObjectsGetTest, doesNotBeginAgainBehindBytesThatASinkCannotTakeBack)
{
    objectClient().setRetryPolicy({.firstPause = {}});
    const std::string whole = reply("200 OK", "", "abcdef");
    server().onConnection().readHead().send(whole.substr(0, whole.size() - 3)).reset();
    answer(whole);
    const auto sink = kx::newObj<CKeepingSink>();
    EXPECT_TRUE(support::errorOf([&] { objects().get("b", "k", sink.get()); }));
    EXPECT_EQ(sink->m_text, "abc");
}

TEST_F(CS3ObjectsGetTest, beginsAgainBehindAFailureOfWhichNothingHasComeToTheSink)
{
    objectClient().setRetryPolicy({.firstPause = {}});
    answer(reply("503 Slow Down", "", errorDocument("SlowDown")));
    answer(reply("200 OK", "", "abcdef"));
    const auto sink = kx::newObj<CKeepingSink>();
    EXPECT_NO_THROW(objects().get("b", "k", sink.get()));
    EXPECT_EQ(sink->m_text, "abcdef");
}

} // namespace
