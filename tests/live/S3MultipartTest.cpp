// Objects by parts, in a real store.
#include "norla/core/CNetHeaders.h"
#include "norla/s3/CS3MultipartUpload.h"
#include "norla/s3/CS3StaticCredentials.h"
#include "tests/live/S3Session.h"
#include "tests/support/errorOf.h"

#include <string>

namespace {

using norla::CS3Client;
using norla::CS3Endpoint;
using norla::CS3MultipartUpload;

constexpr size_t leastPart = 5 << 20;

kx::P<CS3Client> clientOf(const support::CCephServer& store)
{
    const auto credentials
        = kx::newObj<norla::CS3StaticCredentials>(norla::CS3Credentials{.accessKeyId = live::text(store.accessKeyId()),
            .secretAccessKey = live::text(store.secretAccessKey()),
            .sessionToken = {},
            .expiry = {}});
    auto client = kx::newObj<CS3Client>(CS3Endpoint::ceph(live::text(store.host()), false), credentials.get());
    client->setMaxRetries(0);
    return client;
}

class S3MultipartTest : public live::S3Session {
protected:
    kx::P<CS3MultipartUpload> make(const norla::CS3MultipartOptions& options = {})
    {
        return kx::newObj<CS3MultipartUpload>(m_store.get(), &request(), m_bucket, m_key, options);
    }

    kx::String send(CS3MultipartUpload& upload, int number, char letter, size_t size = leastPart)
    {
        const std::string bytes(size, letter);
        return upload.uploadPart(number, bytes.data(), bytes.size());
    }

    static std::string parts(const std::string& letters)
    {
        std::string content;
        for (const char letter : letters)
            content += std::string(leastPart, letter);
        return content;
    }

    const kx::P<CS3Client> m_store = clientOf(store());
    const kx::String m_key = kx::String::fromUTF8("a b/\xC3\xA4\x01+&");
};

TEST_F(S3MultipartTest, makesAnObjectOfThreeParts)
{
    const auto upload = make({.headers = {{"Content-Type", "text/x-parts"}, {"x-amz-meta-a", "b"}},
        .partHeaders = {},
        .completeHeaders = {}});
    upload->create();
    send(*upload, 3, 'c', 1);
    send(*upload, 1, 'x');
    send(*upload, 2, 'b');
    send(*upload, 1, 'a');
    EXPECT_TRUE(upload->complete().endsWith("-3\""));
    EXPECT_EQ(get(m_key), parts("ab") + "c");
    const auto headers = client().getObjectHeaders(request(), m_bucket, m_key);
    EXPECT_EQ(headers.at("content-type"), "text/x-parts");
    EXPECT_EQ(headers.at("x-amz-meta-a"), "b");
}

TEST_F(S3MultipartTest, listsAndResumesWhatAnotherHasBegun)
{
    const auto first = make();
    first->create();
    const kx::String tag = send(*first, 1, 'a');
    send(*first, 2, 'b');
    const auto second = make({.partsPerPage = 1});
    second->attach(first->getId());
    const auto found = second->listParts();
    ASSERT_EQ(found.size(), 2U);
    EXPECT_EQ(found[0].eTag, tag);
    EXPECT_EQ(found[1].size, static_cast<long long>(leastPart));
    send(*second, 3, 'c', 7);
    second->complete();
    EXPECT_EQ(get(m_key), parts("ab") + "ccccccc");
}

TEST_F(S3MultipartTest, completesTwice)
{
    const auto upload = make();
    upload->create();
    const kx::String id = upload->getId();
    const norla::CS3UploadedPart part{1, send(*upload, 1, 'a', 3), 3};
    const kx::String tag = upload->complete();
    upload->attach(id);
    EXPECT_EQ("\"" + upload->complete({part}) + "\"", tag); // Ceph's gateway has no quotes here
}

TEST_F(S3MultipartTest, leavesNothingBehindWhenItIsAborted)
{
    const auto upload = make();
    upload->create();
    const kx::String id = upload->getId();
    send(*upload, 1, 'a', 3);
    upload->abort();
    upload->attach(id);
    const auto error = support::errorOf([&] { upload->listParts(); });
    ASSERT_TRUE(error);
    EXPECT_TRUE(m_store->isNotFoundError(*error)) << error->what();
    upload->abort();
    EXPECT_FALSE(client().objectExists(request(), m_bucket, m_key));
}

TEST_F(S3MultipartTest, isRefusedWithPartsThatAreTooSmall)
{
    const auto upload = make();
    upload->create();
    send(*upload, 1, 'a', 3);
    send(*upload, 2, 'b', 3);
    const auto error = support::errorOf([&] { upload->complete(); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getProps().get("s3-code"), "EntityTooSmall");
    upload->abort();
}

TEST_F(S3MultipartTest, copiesPartsOfAnotherObject)
{
    put("source /1", "0123456789");
    const auto upload = make();
    upload->create();
    upload->uploadPartCopy(1, {.bucketName = m_bucket, .objectName = "source /1"}, 3, 4);
    upload->complete();
    EXPECT_EQ(get(m_key), "3456");
}

} // namespace
