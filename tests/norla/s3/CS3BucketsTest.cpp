#include "norla/s3/CS3Buckets.h"

#include "kx/base/CInvalidArgError.h"
#include "norla/core/CCURLError.h"
#include "norla/s3/CS3Error.h"
#include "tests/norla/s3/CS3ListFixture.h"

namespace {

using norla::CS3Buckets;
using testing::HasSubstr;
using testing::Not;

class CS3BucketsTest : public CS3ListFixture {
protected:
    CS3Buckets& buckets() { return *m_buckets; }

    static std::string bucketsDocument(const std::string& buckets, const std::string& more = "")
    {
        return "<ListAllMyBucketsResult xmlns=\"http://s3.amazonaws.com/doc/2006-03-01/\"><Owner><ID>x</ID></Owner>"
               "<Buckets>"
            + buckets + "</Buckets>" + more + "</ListAllMyBucketsResult>";
    }

    const kx::P<CS3Buckets> m_buckets = kx::newObj<CS3Buckets>(&store(), &request());
};

TEST_F(CS3BucketsTest, createsABucketWithoutADocument)
{
    answerDocument("");
    buckets().create("new");
    EXPECT_EQ(requestLine(), "PUT /new HTTP/1.1");
    EXPECT_THAT(received(), HasSubstr("\r\nContent-Length: 0\r\n"));
    EXPECT_THAT(received(), Not(HasSubstr("x-amz-acl")));
    EXPECT_THAT(received(), Not(HasSubstr("x-amz-bucket-object-lock-enabled")));
}

TEST_F(CS3BucketsTest, createsABucketInARegion)
{
    const std::string document
        = documentToSend("CreateBucketConfiguration", "<LocationConstraint>eu-north-1</LocationConstraint>");
    answerBody(document.size(), "");
    buckets().create("new", {.region = "eu-north-1", .acl = "public-read", .objectLock = true});
    EXPECT_EQ(sentBody(), document);
    EXPECT_THAT(received(), HasSubstr("\r\nx-amz-acl: public-read\r\n"));
    EXPECT_THAT(received(), HasSubstr("\r\nx-amz-bucket-object-lock-enabled: true\r\n"));
    EXPECT_THAT(received(), HasSubstr("\r\nContent-Type: application/xml\r\n"));
    EXPECT_THAT(received(), HasSubstr("\r\nContent-MD5: "));
}

TEST_F(CS3BucketsTest, doesNotTakeAFailureBehindA200ForABucket)
{
    answerDocument(errorDocument("InternalError"));
    const auto error = support::errorOf([this] { buckets().create("new"); });
    ASSERT_TRUE(dynamic_cast<norla::CS3Error*>(error.get()));
    EXPECT_EQ(error->getProps().get("s3-code"), "InternalError");
}

TEST_F(CS3BucketsTest, removesABucket)
{
    answer("HTTP/1.1 204 No Content\r\n\r\n");
    buckets().remove("old");
    EXPECT_EQ(requestLine(), "DELETE /old HTTP/1.1");
}

TEST_F(CS3BucketsTest, findsABucket)
{
    answer("HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n");
    EXPECT_TRUE(buckets().exists("here"));
    EXPECT_EQ(requestLine(), "HEAD /here HTTP/1.1");
}

TEST_F(CS3BucketsTest, findsNoBucketWhereThereIsNone)
{
    answer("HTTP/1.1 404 Not Found\r\nConnection: close\r\n\r\n");
    EXPECT_FALSE(buckets().exists("nowhere"));
}

TEST_F(CS3BucketsTest, doesNotTakeARefusalForAMissingBucket)
{
    answer("HTTP/1.1 403 Forbidden\r\nConnection: close\r\n\r\n");
    const auto error = support::errorOf([this] { buckets().exists("theirs"); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getProps().get("s3-code"), "AccessDenied");
}

TEST_F(CS3BucketsTest, listsBuckets)
{
    answerDocument(bucketsDocument("<Bucket><Name>a</Name><CreationDate>2026-11-21T08:49:37.000Z</CreationDate>"
                                   "</Bucket><Other/><Bucket><Name>b</Name></Bucket>"));
    const auto listed = buckets().list();
    EXPECT_EQ(requestLine(), "GET / HTTP/1.1");
    ASSERT_EQ(listed.size(), 2u);
    EXPECT_EQ(listed[0].name, "a");
    EXPECT_EQ(listed[0].creationDate, "2026-11-21T08:49:37.000Z");
    EXPECT_EQ(listed[1].name, "b");
    EXPECT_EQ(listed[1].creationDate, "");
}

TEST_F(CS3BucketsTest, goesOnWithAListThatComesInPages)
{
    answerDocument(bucketsDocument("<Bucket><Name>a</Name></Bucket>", "<ContinuationToken>t/1</ContinuationToken>"));
    answerDocument(bucketsDocument("<Bucket><Name>b</Name></Bucket>"));
    EXPECT_EQ(buckets().list().size(), 2u);
    EXPECT_EQ(requestLine(1), "GET /?continuation-token=t%2F1 HTTP/1.1");
}

TEST_F(CS3BucketsTest, endsWithAnErrorWhenTheListDoesNotAdvance)
{
    for (int i = 0; i < 2; ++i)
        answerDocument(bucketsDocument("", "<ContinuationToken>t</ContinuationToken>"));
    EXPECT_EQ(support::messageOf([this] { buckets().list(); }),
        "The list of buckets does not end: it came to the marker 't' again.");
}

TEST_F(CS3BucketsTest, namesWhatIsNoListOfBuckets)
{
    answerDocument("");
    answerDocument("<ListBucketResult/>");
    answerDocument(bucketsDocument("<Bucket><Name/></Bucket>"));
    const auto message = [this] { return support::messageOf([this] { buckets().list(); }); };
    EXPECT_EQ(message(), "Error parsing Amazon S3 'list buckets' result: invalid XML.");
    EXPECT_EQ(message(), "Error parsing Amazon S3 'list buckets' result: unknown root element 'ListBucketResult'.");
    EXPECT_EQ(message(), "Error parsing Amazon S3 'list buckets' result: a bucket without a name.");
}

TEST_F(CS3BucketsTest, tellsWhereABucketIs)
{
    answerDocument("<LocationConstraint>eu-north-1</LocationConstraint>");
    answerDocument("<LocationConstraint/>");
    EXPECT_EQ(buckets().getLocation("b"), "eu-north-1");
    EXPECT_EQ(buckets().getLocation("b"), "");
    EXPECT_EQ(requestLine(), "GET /b?location HTTP/1.1");
}

TEST_F(CS3BucketsTest, tellsWhetherVersionsAreKept)
{
    answerDocument("<VersioningConfiguration/>");
    answerDocument("<VersioningConfiguration><Status>Enabled</Status></VersioningConfiguration>");
    answerDocument("<VersioningConfiguration><Status>Suspended</Status></VersioningConfiguration>");
    answerDocument("<VersioningConfiguration><Status>Perhaps</Status></VersioningConfiguration>");
    EXPECT_EQ(buckets().getVersioning("b"), CS3Buckets::Versioning::Never);
    EXPECT_EQ(buckets().getVersioning("b"), CS3Buckets::Versioning::Enabled);
    EXPECT_EQ(buckets().getVersioning("b"), CS3Buckets::Versioning::Suspended);
    EXPECT_EQ(support::messageOf([this] { buckets().getVersioning("b"); }),
        "Error parsing Amazon S3 'get versioning' result of the bucket 'b': unknown status 'Perhaps'.");
    EXPECT_EQ(requestLine(), "GET /b?versioning HTTP/1.1");
}

TEST_F(CS3BucketsTest, setsWhetherVersionsAreKept)
{
    const std::string document = documentToSend("VersioningConfiguration", "<Status>Suspended</Status>");
    answerBody(document.size(), "");
    buckets().setVersioning("b", CS3Buckets::Versioning::Suspended);
    EXPECT_EQ(requestLine(), "PUT /b?versioning HTTP/1.1");
    EXPECT_EQ(sentBody(), document);
    EXPECT_THROW(buckets().setVersioning("b", CS3Buckets::Versioning::Never), kx::CInvalidArgError);
}

TEST_F(CS3BucketsTest, keepsNoAnswerLongerThanDocumentsAre)
{
    constexpr size_t limit = size_t{16} << 20;
    answer("HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n" + std::string(limit, ' ') + "x");
    EXPECT_EQ(support::messageOf([this] { buckets().list(); }),
        "The store's answer is longer than 16 MiB, which no document of a store is.");
}

TEST_F(CS3BucketsTest, refusesAnAnswerOfMoreElementsThanAnyHas)
{
    std::string elements;
    for (int i = 0; i < 300'000; ++i)
        elements += "<a/>";
    answerDocument("<r>" + elements + "</r>");
    EXPECT_EQ(support::messageOf([this] { buckets().remove("b"); }),
        "Error parsing Amazon S3 answer to DELETE: more than 300000 elements.");
}

TEST_F(CS3BucketsTest, wantsABucketsName)
{
    EXPECT_THROW(buckets().create(""), kx::CInvalidArgError);
    EXPECT_THROW(buckets().remove(""), kx::CInvalidArgError);
    EXPECT_THROW(buckets().exists(""), kx::CInvalidArgError);
    EXPECT_THROW(buckets().getLocation(""), kx::CInvalidArgError);
    EXPECT_EQ(server().connectionCount(), 0u);
}

TEST_F(CS3BucketsTest, listsNoBucketWhoseNameIsLongerThanAnyIs)
{
    const std::string name(1025, 'n');
    answerDocument(bucketsDocument("<Bucket><Name>" + name + "</Name></Bucket>"));
    EXPECT_THAT(support::messageOf([this] { buckets().list(); }).toUTF8(),
        HasSubstr("a bucket whose name or date has more than 1024 characters: '" + name.substr(0, 100) + "...'"));
}

} // namespace
