#include "norla/s3/CS3ObjectCopy.h"

#include "kx/base/CInvalidArgError.h"
#include "tests/norla/s3/CMultipartFixture.h"
#include "tests/support/errorOf.h"

#include <gmock/gmock.h>

#include <utility>
#include <vector>

namespace {

using norla::CS3ObjectCopy;
using norla::CS3ObjectCopyOptions;
using support::messageOf;
using testing::HasSubstr;
using testing::Not;

constexpr long long leastPart = 5 << 20;

class CS3ObjectCopyTest : public CMultipartFixture {
protected:
    CS3ObjectCopyTest()
    {
        m_options.partSize = leastPart;
        m_options.retries.firstPause = {};
    }

    kx::String copy(const norla::CS3CopySource& source = {.bucketName = "from", .objectName = "a b"})
    {
        return kx::newObj<CS3ObjectCopy>(&store(), &request(), m_options)->copy(source, "to", "c");
    }

    void answerHead(long long size)
    {
        answer("HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: " + std::to_string(size)
            + "\r\nETag: \"tag\"\r\nContent-Type: text/x\r\nX-Amz-Meta-A: b\r\nX-Other: c\r\n\r\n");
    }

    void answerResult(const std::string& root, const std::string& eTag)
    {
        answer(answerWith(200, "<" + root + "><ETag>" + eTag + "</ETag></" + root + ">"));
    }

    CS3ObjectCopyOptions m_options;
};

TEST_F(CS3ObjectCopyTest, copiesASmallObjectAtOnce)
{
    answerHead(leastPart);
    answerResult("CopyObjectResult", "\"new\"");
    m_options.threshold = leastPart;
    EXPECT_EQ(copy({.bucketName = "from", .objectName = "a b", .versionId = "v"}), "\"new\"");
    EXPECT_EQ(requestLine(0), "HEAD /from/a%20b?versionId=v HTTP/1.1");
    EXPECT_EQ(requestLine(1), "PUT /to/c HTTP/1.1");
    EXPECT_THAT(received(1), HasSubstr("\r\nx-amz-copy-source: /from/a%20b?versionId=v\r\n"));
    EXPECT_THAT(received(1), HasSubstr("\r\nx-amz-copy-source-if-match: \"tag\"\r\n"));
    EXPECT_THAT(received(1), Not(HasSubstr("x-amz-metadata-directive")));
}

TEST_F(CS3ObjectCopyTest, copiesUpToFiveGiBAtOnceUnlessToldOtherwise)
{
    m_options = {};
    answerHead(5LL << 30);
    answerResult("CopyObjectResult", "e");
    EXPECT_EQ(copy(), "e");
    EXPECT_EQ(requestLine(1), "PUT /to/c HTTP/1.1");
    EXPECT_EQ(server().connectionCount(), 2U);
}

TEST_F(CS3ObjectCopyTest, copiesMoreThanFiveGiBByPartsOf512MiBUnlessToldOtherwise)
{
    m_options = {};
    answerHead((5LL << 30) + 1);
    answer(created("id"));
    for (int number = 1; number <= 11; ++number)
        answerResult("CopyPartResult", "p");
    answerHead((5LL << 30) + 1);
    answerCompletion(completed("\"whole-11\""));
    EXPECT_EQ(copy(), "\"whole-11\"");
    EXPECT_EQ(requestLine(1), "POST /to/c?uploads HTTP/1.1");
    EXPECT_EQ(requestLine(2), "PUT /to/c?partNumber=1&uploadId=id HTTP/1.1");
    EXPECT_THAT(received(2), HasSubstr("\r\nx-amz-copy-source-range: bytes=0-536870911\r\n"));
    EXPECT_THAT(received(12), HasSubstr("\r\nx-amz-copy-source-range: bytes=5368709120-5368709120\r\n"));
}

TEST_F(CS3ObjectCopyTest, givesTheCopyHeadersOfItsOwn)
{
    m_options.multipart.headers = {{"Content-Type", "text/new"}};
    answerHead(0);
    answerResult("CopyObjectResult", "e");
    copy();
    EXPECT_THAT(received(1), HasSubstr("\r\nx-amz-metadata-directive: REPLACE\r\nContent-Type: text/new\r\n"));
}

TEST_F(CS3ObjectCopyTest, copiesALargeObjectByPartsWithItsHeaders)
{
    std::vector<long long> told;
    m_options.threshold = 2 * leastPart;
    m_options.onProgress = [&told](long long bytes, long long) { told.push_back(bytes); };
    answerHead(2 * leastPart + 1);
    answer(created("id"));
    for (const char* const tag : {"p1", "p2", "p3"})
        answerResult("CopyPartResult", tag);
    answerHead(2 * leastPart + 1);
    answerCompletion(completed("\"whole-3\""));
    EXPECT_EQ(copy(), "\"whole-3\"");
    EXPECT_THAT(received(1), HasSubstr("\r\ncontent-type: text/x\r\nx-amz-meta-a: b\r\n"));
    EXPECT_THAT(received(1), Not(HasSubstr("x-other")));
    EXPECT_THAT(received(3), HasSubstr("\r\nx-amz-copy-source-range: bytes=5242880-10485759\r\n"));
    EXPECT_THAT(received(3), HasSubstr("\r\nx-amz-copy-source-if-match: \"tag\"\r\n"));
    EXPECT_THAT(received(4), HasSubstr("\r\nx-amz-copy-source-range: bytes=10485760-10485760\r\n"));
    EXPECT_THAT(bodyReceived(6), HasSubstr("<PartNumber>3</PartNumber><ETag>p3</ETag>"));
    EXPECT_EQ(told, (std::vector<long long>{leastPart, 2 * leastPart, 2 * leastPart + 1}));
}

TEST_F(CS3ObjectCopyTest, copiesAgainBehindAnErrorWithTheStatusOfASuccess)
{
    answerHead(3);
    answer(answerWith(200, errorDocument("InternalError")));
    answer(answerWith(200, errorDocument("AccessDenied")));
    EXPECT_EQ(messageOf([this] { copy(); }), "Amazon S3 error: Because(AccessDenied)");
    EXPECT_EQ(server().connectionCount(), 3U);
}

TEST_F(CS3ObjectCopyTest, abortsACopyByPartsThatFails)
{
    m_options.threshold = 0;
    answerHead(3);
    answer(created("id"));
    answer(answerWith(412, errorDocument("PreconditionFailed")));
    answer("HTTP/1.1 204 Gone\r\nConnection: close\r\n\r\n");
    EXPECT_EQ(messageOf([this] { copy(); }), "Amazon S3 error: Because(PreconditionFailed)");
    EXPECT_EQ(requestLine(3), "DELETE /to/c?uploadId=id HTTP/1.1");
}

TEST_F(CS3ObjectCopyTest, abortsACopyByPartsWhoseProgressThrowsWhatIsNoError)
{
    m_options.threshold = 0;
    m_options.onProgress = [](long long, long long) { throw 42; };
    answerHead(3);
    answer(created("id"));
    answerResult("CopyPartResult", "p1");
    answer("HTTP/1.1 204 Gone\r\nConnection: close\r\n\r\n");
    EXPECT_THROW(copy(), int);
    ASSERT_EQ(server().connectionCount(), 4U);
    EXPECT_EQ(requestLine(3), "DELETE /to/c?uploadId=id HTTP/1.1");
}

TEST_F(CS3ObjectCopyTest, mixesNoTwoObjects)
{
    m_options.threshold = 0;
    answerHead(3);
    answer(created("id"));
    answerResult("CopyPartResult", "p1");
    answer("HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: 3\r\nETag: \"new\"\r\n\r\n");
    answer("HTTP/1.1 204 Gone\r\nConnection: close\r\n\r\n");
    EXPECT_EQ(messageOf([this] { copy(); }),
        "The object 'a b' in the bucket 'from' is another one: its ETag is \"new\", and not \"tag\".");
    EXPECT_EQ(requestLine(4), "DELETE /to/c?uploadId=id HTTP/1.1");
}

TEST_F(CS3ObjectCopyTest, copiesNoOtherObjectThanTheOneThatIsNamed)
{
    answerHead(3);
    EXPECT_EQ(messageOf([this] { copy({.bucketName = "from", .objectName = "a b", .eTag = "\"mine\""}); }),
        "The object 'a b' in the bucket 'from' is another one: its ETag is \"tag\", and not \"mine\".");
    EXPECT_EQ(server().connectionCount(), 1U);
}

TEST_F(CS3ObjectCopyTest, refusesASizeThatCannotBe)
{
    answer("HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n");
    EXPECT_EQ(messageOf([this] { copy(); }), "The store has '' for the size of 'a b' in the bucket 'from'.");
    m_options.threshold = (5LL << 30) + 1;
    EXPECT_THROW(copy(), kx::CInvalidArgError);
    m_options = {};
    EXPECT_THROW(copy({.bucketName = "from", .objectName = ""}), kx::CInvalidArgError);
}

TEST_F(CS3ObjectCopyTest, copiesNothingByPartsThatCouldBecomeAnotherObjectUnseen)
{
    m_options.threshold = 3;
    answer("HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: 4\r\n\r\n");
    EXPECT_EQ(messageOf([this] { copy(); }),
        "The store tells no ETag of the object 'a b' in the bucket 'from', by which to see that its parts are of one.");
    EXPECT_EQ(server().connectionCount(), 1U);
}

} // namespace
