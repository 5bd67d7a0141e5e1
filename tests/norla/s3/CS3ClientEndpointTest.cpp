// Clients that are made of an endpoint.
#include "kx/base/CInvalidArgError.h"
#include "kx/streams/CBufferStream.h"
#include "norla/s3/CS3StaticCredentials.h"
#include "tests/norla/s3/CS3ClientFixture.h"
#include "tests/support/errorOf.h"

#include <gmock/gmock.h>

#include <ostream>
#include <string>
#include <vector>

namespace {

using norla::CS3Client;
using norla::CS3Endpoint;
using testing::HasSubstr;
using testing::Not;

class CS3ClientEndpointTest : public CS3ClientFixture {
protected:
    kx::P<CS3Client> make(const CS3Endpoint& endpoint, norla::IS3Signer* signer = nullptr)
    {
        auto client = kx::newObj<CS3Client>(endpoint, m_credentials.get(), signer);
        client->setMaxRetries(0);
        return client;
    }

    CS3Endpoint here()
    {
        CS3Endpoint endpoint = CS3Endpoint::ceph(host(), false);
        endpoint.region = "eu-north-1";
        return endpoint;
    }

    kx::String urlOf(const CS3Endpoint& endpoint, const kx::String& bucket, const kx::String& object)
    {
        return make(endpoint)->getObjectURL(request(), bucket, object);
    }

    const kx::P<norla::IS3Credentials> m_credentials = kx::newObj<norla::CS3StaticCredentials>(
        norla::CS3Credentials{.accessKeyId = "AKID", .secretAccessKey = secret, .sessionToken = "tok", .expiry = {}});
};

TEST_F(CS3ClientEndpointTest, signsInVersion4WithTheRegion)
{
    make(here())->prepareGetObjectRequest(request(), "bucket", "k", 0, -1);
    EXPECT_THAT(sentHeader("authorization").toUTF8(), HasSubstr("/eu-north-1/s3/aws4_request,SignedHeaders=host;"));
    EXPECT_EQ(sentHeader("x-amz-security-token"), "tok");
    EXPECT_EQ(sentHeader("date"), "(missing)");
}

TEST_F(CS3ClientEndpointTest, signsTheBytesOfABodyInMemory)
{
    make(here())->preparePutObjectRequest(request(), "bucket", "k", "abc", 3, "");
    EXPECT_EQ(sentHeader("x-amz-content-sha256"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

TEST_F(CS3ClientEndpointTest, takesAnAnswerThatBreaksOffInItsHeaderForNoObject)
{
    answer("HTTP/1.1 200 OK\r\nDate: Sun, 22 Nov");
    const auto client = make(here());
    EXPECT_THAT(support::messageOf([&] { client->getObject(request(), "bucket", "k", 0, -1); }).toUTF8(),
        HasSubstr("closed within the header of the answer"));
}

TEST_F(CS3ClientEndpointTest, doesNotReadASourceBeforeItIsSent)
{
    const auto source = kx::newObj<norla::CNetRequest::CStreamDataSource>(
        kx::newObj<kx::CBufferStream>(kx::newObj<CS3Client::Buffer>()).get());
    const auto client = make(here());
    client->preparePutObjectRequest(request(), "bucket", "k", source.get(), 3, "", "");
    EXPECT_EQ(sentHeader("x-amz-content-sha256"), "STREAMING-AWS4-HMAC-SHA256-PAYLOAD");
    client->setSignSources(false);
    client->preparePutObjectRequest(request(), "bucket", "k", source.get(), 3, "", "");
    EXPECT_EQ(sentHeader("x-amz-content-sha256"), "UNSIGNED-PAYLOAD");
}

TEST_F(CS3ClientEndpointTest, leavesToTLSWhatASourceGives)
{
    CS3Endpoint endpoint = here();
    endpoint.useTLS = true;
    const auto source = kx::newObj<norla::CNetRequest::CStreamDataSource>(
        kx::newObj<kx::CBufferStream>(kx::newObj<CS3Client::Buffer>()).get());
    make(endpoint)->preparePutObjectRequest(request(), "bucket", "k", source.get(), 3, "", "");
    EXPECT_EQ(sentHeader("x-amz-content-sha256"), "UNSIGNED-PAYLOAD");
}

TEST_F(CS3ClientEndpointTest, signsNothingsDigestWhereThereIsNoBody)
{
    make(here())->prepareDeleteObjectRequest(request(), "bucket", "k");
    EXPECT_EQ(sentHeader("x-amz-content-sha256"), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
}

TEST_F(CS3ClientEndpointTest, signsInVersion2OnDemand)
{
    CS3Endpoint endpoint = here();
    endpoint.signature = CS3Endpoint::Signature::V2;
    make(endpoint)->prepareGetObjectRequest(request(), "bucket", "k", 0, -1);
    EXPECT_THAT(sentHeader("authorization").toUTF8(), testing::StartsWith("AWS AKID:"));
    EXPECT_NE(sentHeader("date"), "(missing)");
}

/// Says whom it was asked for.
class CRecordingSigner : public kx::CBase, public norla::IS3Signer {
public:
    void sign(norla::CS3RequestToSign& request, const norla::CS3Credentials& credentials) override
    {
        request.headers.emplace_back("X-Signer", credentials.accessKeyId.toUTF8() + " " + request.url);
    }
    std::vector<std::string> getHeaderNames() const override { return {"x-signer"}; }
    std::string presign(
        const norla::CS3RequestToSign& request, const norla::CS3Credentials& /*credentials*/, kx::CTimeSpan) override
    {
        return request.method + " " + request.url;
    }
};

TEST_F(CS3ClientEndpointTest, asksTheSignerThatItIsGiven)
{
    const auto client = make(here(), kx::newObj<CRecordingSigner>().get());
    client->prepareGetObjectRequest(request(), "bucket", "a b", 0, -1);
    EXPECT_EQ(sentHeader("x-signer"), "AKID http://" + host() + "/bucket/a%20b");
    EXPECT_EQ(client->presignObjectURL(request(), "HEAD", "bucket", "k", {}), "HEAD http://" + host() + "/bucket/k");
}

TEST_F(CS3ClientEndpointTest, followsNoRedirectWithAnOldSignature)
{
    answer("HTTP/1.1 307 Elsewhere\r\nLocation: " + server().url("/other") + "\r\nContent-Length: 0\r\n\r\n");
    answer(ok("the other"));
    const auto client = make(here());
    EXPECT_TRUE(support::errorOf([&] { client->getObject(request(), "bucket", "k", 0, -1); }));
    EXPECT_EQ(request().getResponseCode(), 307);
    useNewRequest();
    performPath(); // takes the answer that nobody has asked for
}

TEST_F(CS3ClientEndpointTest, sendsAnEmptyValueThatIsSigned)
{
    const auto client = make(here());
    const auto headers = client->beginPrepareRequest(request(), client->getObjectURL(request(), "bucket", "k"));
    headers->add("x-amz-meta-note", "");
    client->finishPrepareRequest(request());
    EXPECT_THAT(sentHeader("authorization").toUTF8(), HasSubstr(";x-amz-meta-note;"));
    answer(ok(""));
    request().perform();
    EXPECT_THAT(received(), HasSubstr("\r\nx-amz-meta-note:\r\n"));
}

TEST_F(CS3ClientEndpointTest, signsARequestWithoutHeadersOfItsOwn)
{
    const auto client = make(here());
    client->beginPrepareRequest(request(), client->getObjectURL(request(), "bucket", "k"));
    request().setCustomHTTPHeaders(nullptr);
    client->finishPrepareRequest(request());
    EXPECT_THAT(sentHeader("authorization").toUTF8(), HasSubstr(",SignedHeaders=host;x-amz-content-sha256;"));
}

TEST_F(CS3ClientEndpointTest, namesABucketInTheHost)
{
    CS3Endpoint endpoint = CS3Endpoint::aws("eu-central-1");
    EXPECT_EQ(urlOf(endpoint, "my.bucket-1", "a/b"), "https://my.bucket-1.s3.eu-central-1.amazonaws.com/a%2Fb");
    endpoint.addressing = CS3Endpoint::Addressing::Path;
    EXPECT_EQ(urlOf(endpoint, "my.bucket-1", "a/b"), "https://s3.eu-central-1.amazonaws.com/my.bucket-1/a%2Fb");
}

TEST_F(CS3ClientEndpointTest, listsABucketInTheHost)
{
    make(CS3Endpoint::aws("eu-central-1"))->prepareListObjectsRequest(request(), "bucket", "p", "", "", -1);
    EXPECT_EQ(request().getURL(), "https://bucket.s3.eu-central-1.amazonaws.com/?prefix=p");
}

TEST_F(CS3ClientEndpointTest, sendsNothingToAHostThatABucketsNameWouldMake)
{
    for (const char* const name : {"", "evil.example/", "a@b", "a:b", "A", "a..b", ".a", "a.", "a b", "a?b", "a#b"})
        EXPECT_THROW(urlOf(CS3Endpoint::aws("eu-central-1"), kx::String::fromLatin1(name), "k"), kx::CInvalidArgError)
            << name;
    EXPECT_THROW(
        urlOf(CS3Endpoint::aws("eu-central-1"), kx::String(std::wstring(64, L'a')), "k"), kx::CInvalidArgError);
}

TEST_F(CS3ClientEndpointTest, refusesNoCredentialsAndNoRegion)
{
    EXPECT_THROW(kx::newObj<CS3Client>(here(), nullptr), kx::CInvalidArgError);
    CS3Endpoint endpoint = here();
    endpoint.region = "";
    EXPECT_THROW(make(endpoint), kx::CInvalidArgError);
    endpoint = here();
    endpoint.host = "a/b";
    EXPECT_THROW(make(endpoint), kx::CInvalidArgError);
}

TEST_F(CS3ClientEndpointTest, lendsNothingWithoutAName)
{
    const auto client = make(here());
    EXPECT_THROW(
        client->presignObjectURL(request(), "GET", "", "k", kx::CTimeSpan::fromSeconds(1)), kx::CInvalidArgError);
    EXPECT_THROW(
        client->presignObjectURL(request(), "GET", "bucket", "", kx::CTimeSpan::fromSeconds(1)), kx::CInvalidArgError);
    EXPECT_THROW(
        client->presignObjectURL(request(), "", "bucket", "k", kx::CTimeSpan::fromSeconds(1)), kx::CInvalidArgError);
}

using Addressing = CS3Endpoint::Addressing;

struct CStoreRow {
    const char* name;
    CS3Endpoint made;
    CS3Endpoint expected;
};

void PrintTo(const CStoreRow& row, std::ostream* stream)
{
    *stream << row.name;
}

class CS3EndpointTest : public testing::TestWithParam<CStoreRow> {};

TEST_P(CS3EndpointTest, knowsHowAStoreWantsToBeAsked)
{
    const CS3Endpoint& made = GetParam().made;
    const CS3Endpoint& expected = GetParam().expected;
    EXPECT_EQ(made.host, expected.host);
    EXPECT_EQ(made.useTLS, expected.useTLS);
    EXPECT_EQ(made.region, expected.region);
    EXPECT_EQ(made.addressing, expected.addressing);
    EXPECT_EQ(made.signature, CS3Endpoint::Signature::V4);
}

INSTANTIATE_TEST_SUITE_P(Stores, CS3EndpointTest,
    testing::ValuesIn(std::vector<CStoreRow>{
        {"aws", CS3Endpoint::aws("eu-west-1"),
            {"s3.eu-west-1.amazonaws.com", true, "eu-west-1", Addressing::VirtualHost}},
        {"b2", CS3Endpoint::b2("us-west-004"),
            {"s3.us-west-004.backblazeb2.com", true, "us-west-004", Addressing::Path}},
        {"ceph", CS3Endpoint::ceph("gateway:7480"), {"gateway:7480", true, "us-east-1", Addressing::Path}},
        {"cephWithoutTLS", CS3Endpoint::ceph("gateway", false), {"gateway", false, "us-east-1", Addressing::Path}},
        {"gcs", CS3Endpoint::gcs(), {"storage.googleapis.com", true, "auto", Addressing::Path}},
        {"minio", CS3Endpoint::minio("localhost:9000"), {"localhost:9000", true, "us-east-1", Addressing::Path}},
        {"minioWithoutTLS", CS3Endpoint::minio("localhost", false),
            {"localhost", false, "us-east-1", Addressing::Path}},
        {"r2", CS3Endpoint::r2("0123"), {"0123.r2.cloudflarestorage.com", true, "auto", Addressing::Path}},
        {"wasabi", CS3Endpoint::wasabi("eu-central-1"),
            {"s3.eu-central-1.wasabisys.com", true, "eu-central-1", Addressing::Path}},
    }),
    [](const auto& tested) { return std::string(tested.param.name); });

} // namespace
