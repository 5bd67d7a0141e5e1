// Objects by parts, in a real store.
#include "kx/streams/CBufferStream.h"
#include "norla/core/CStreamDataSource.h"
#include "norla/core/errorKind.h"
#include "norla/s3/CS3MultipartUpload.h"
#include "norla/s3/CS3ObjectCopy.h"
#include "norla/s3/CS3ParallelUpload.h"
#include "norla/s3/CS3StaticCredentials.h"
#include "tests/live/S3Session.h"
#include "tests/support/CTemporaryFolder.h"
#include "tests/support/errorOf.h"

#include <fstream>
#include <string>

namespace {

using norla::CS3Client;
using norla::CS3Endpoint;
using norla::CS3MultipartUpload;
using norla::CS3ParallelUpload;

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

    /// How often the store has seen that part of an upload.
    static size_t countOf(int number, const kx::String& uploadId)
    {
        const std::string part = "partNumber=" + std::to_string(number) + "&uploadId=" + uploadId.toUTF8();
        const std::string log = store().log();
        size_t count = 0;
        for (size_t at = log.find(part); at != std::string::npos; at = log.find(part, at + 1))
            ++count;
        return count;
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

class S3ParallelUploadTest : public S3MultipartTest {
protected:
    static kx::P<norla::CNetRequest::IDataSource> sourceOf(const std::string& content)
    {
        const auto bytes = kx::newObj<norla::CNetRequest::Buffer>();
        bytes->append(reinterpret_cast<const unsigned char*>(content.data()), content.size());
        return kx::newObj<norla::CStreamDataSource>(kx::newObj<kx::CBufferStream>(bytes).get());
    }

    kx::String upload(const std::string& content)
    {
        m_upload = kx::newObj<CS3ParallelUpload>(m_store.get(), &request(), m_options);
        return m_upload->upload(sourceOf(content).get(), m_bucket, m_key);
    }

    norla::CS3ParallelUploadOptions m_options{.partSize = leastPart};
    kx::P<CS3ParallelUpload> m_upload;
};

TEST_F(S3ParallelUploadTest, uploadsAFile)
{
    const std::string content = parts("abcdefg") + "end";
    const support::CTemporaryFolder folder;
    std::ofstream(folder.path() / "file", std::ios::binary) << content;
    m_upload = kx::newObj<CS3ParallelUpload>(m_store.get(), &request(), m_options);
    EXPECT_TRUE(
        m_upload->upload(norla::CNetRequest::Path::fromBytes((folder.path() / "file").native()), m_bucket, m_key)
            .endsWith("-8\""));
    EXPECT_EQ(get(m_key), content);
}

TEST_F(S3ParallelUploadTest, uploadsOneByOneWithoutMemory)
{
    m_options.memory = 0;
    upload(parts("ab") + "end");
    EXPECT_EQ(get(m_key), parts("ab") + "end");
}

TEST_F(S3ParallelUploadTest, uploadsAnEmptyObject)
{
    upload("");
    EXPECT_EQ(client().getObjectSize(request(), m_bucket, m_key), 0);
}

TEST_F(S3ParallelUploadTest, resumesWhatWasCancelled)
{
    const std::string content = parts("abcdef");
    m_options.atOnce = 1;
    m_options.keepFailed = true;
    m_options.onProgress = [this](long long bytes, long long) {
        if (bytes >= 2 * static_cast<long long>(leastPart))
            m_upload->cancel();
    };
    const auto error = support::errorOf([&] { upload(content); });
    ASSERT_TRUE(error);
    EXPECT_EQ(norla::getErrorKind(*error), norla::ErrorKind::Cancelled);
    m_options.uploadId = m_upload->getUploadId();
    m_options.onProgress = {};
    upload(content);
    EXPECT_EQ(get(m_key), content);
    store().waitUntilLogged("partNumber=6&uploadId=" + m_options.uploadId.toUTF8());
    EXPECT_EQ(countOf(1, m_options.uploadId), 1U);
    EXPECT_EQ(countOf(2, m_options.uploadId), 1U);
}

TEST_F(S3ParallelUploadTest, leavesNothingOfWhatWasCancelled)
{
    kx::String id;
    m_options.onStarted = [&id](const kx::String& startedId) { id = startedId; };
    m_options.onProgress = [this](long long, long long) { m_upload->cancel(); };
    EXPECT_TRUE(support::errorOf([&] { upload(parts("abc")); }));
    const auto other = make();
    other->attach(id);
    EXPECT_TRUE(support::errorOf([&] { other->listParts(); }));
}

TEST_F(S3ParallelUploadTest, outlivesAStorageDaemon)
{
    support::CCephServer twofold({.storageDaemons = 2});
    twofold.makeBucket("bucket");
    const auto client = clientOf(twofold);
    const std::string content = parts("abcdef");
    bool isKilled = false;
    m_options.onProgress = [&](long long bytes, long long) {
        if (bytes < static_cast<long long>(leastPart) || isKilled)
            return;
        isKilled = true;
        twofold.killStorageDaemon(1);
    };
    kx::newObj<CS3ParallelUpload>(client.get(), &request(), m_options)
        ->upload(sourceOf(content).get(), "bucket", m_key);
    EXPECT_TRUE(isKilled);
    client->getObject(request(), "bucket", m_key, 0, -1);
    EXPECT_EQ(live::bodyOf(request()), content);
}

TEST_F(S3MultipartTest, copiesAnObjectByPartsWithItsHeaders)
{
    m_store->putObject(request(), m_bucket, "source /1", parts("ab").data(), 2 * leastPart, "text/x-source");
    norla::CS3ObjectCopyOptions options;
    options.partSize = leastPart;
    options.threshold = leastPart;
    const auto copies = kx::newObj<norla::CS3ObjectCopy>(m_store.get(), &request(), options);
    EXPECT_TRUE(copies->copy({.bucketName = m_bucket, .objectName = "source /1"}, m_bucket, m_key).endsWith("-2\""));
    EXPECT_EQ(get(m_key), parts("ab"));
    EXPECT_EQ(client().getObjectHeaders(request(), m_bucket, m_key).at("content-type"), "text/x-source");
}

TEST_F(S3MultipartTest, copiesASmallObjectAtOnceUnlessItIsAnother)
{
    put("source", "content");
    const auto copies = kx::newObj<norla::CS3ObjectCopy>(m_store.get(), &request());
    copies->copy({.bucketName = m_bucket, .objectName = "source"}, m_bucket, m_key);
    EXPECT_EQ(get(m_key), "content");
    const auto error = support::errorOf(
        [&] { copies->copy({.bucketName = m_bucket, .objectName = "source", .eTag = "\"other\""}, m_bucket, m_key); });
    ASSERT_TRUE(error);
    EXPECT_TRUE(error->getMessage().startsWith("The object 'source' in the bucket")) << error->what();
}

} // namespace
