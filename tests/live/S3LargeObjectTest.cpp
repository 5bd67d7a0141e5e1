// An object of more than 2 GiB by parts, in a real store, which takes 10 GB of memory for it and its copy.
#include "norla/s3/CS3MultipartUpload.h"
#include "norla/s3/CS3ObjectCopy.h"
#include "norla/s3/CS3Objects.h"
#include "norla/s3/CS3ParallelUpload.h"
#include "norla/s3/CS3StaticCredentials.h"
#include "sela/CDigest.h"
#include "tests/live/S3Session.h"
#include "tests/support/CTemporaryFolder.h"
#include "tests/support/errorOf.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <sys/resource.h>
#include <vector>

namespace {

using norla::CNetRequest;

constexpr long long MiB = 1LL << 20;
constexpr long long GiB = 1LL << 30;
constexpr long long size = 5 * GiB / 2 + 12'345; // two and a half GiB, and a last part of its own size
constexpr long long partSize = 8 * MiB;
constexpr long long partCount = 321;
constexpr long long copyPartSize = 512 * MiB;
constexpr long long markSize = 19;
constexpr long long memoryLimit = 128 * MiB; // of the whole process

std::string bytesOf(const sela::CDigest& digest)
{
    return {reinterpret_cast<const char*>(digest.getBytes()), digest.getLength()};
}

std::string hexOf(const std::string& bytes)
{
    std::string hex;
    for (const char character : bytes) {
        const auto byte = static_cast<unsigned char>(character);
        for (const int digit : {byte >> 4, byte & 15})
            hex += "0123456789abcdef"[digit];
    }
    return hex;
}

long long mostMemory()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss * 1024LL;
}

/// A file that is nearly all holes: a few blocks name their places.
class CMarkedFile {
public:
    CMarkedFile()
    {
        std::ofstream(m_path, std::ios::binary).close();
        std::filesystem::resize_file(m_path, size);
        std::fstream file(m_path, std::ios::binary | std::ios::in | std::ios::out);
        for (const long long place : {0LL, partSize - 9, GiB + 1, 2 * GiB - 9, 2 * GiB + 5 * MiB, size - markSize})
            file.seekp(place) << "mark at " << 10 * GiB + place;
        if (!file.flush())
            throw std::runtime_error("the file with holes cannot be written");
    }

    CNetRequest::Path path() const { return CNetRequest::Path::fromBytes(m_path.native()); }

    std::string sha256() const
    {
        sela::CDigest digest("SHA256");
        read(0, size, digest);
        digest.finish();
        return hexOf(bytesOf(digest));
    }

    /// What stores make of the MD5s of the parts.
    std::string eTagOfParts(long long length) const
    {
        sela::CDigest all("MD5");
        long long count = 0;
        for (long long start = 0; start < size; start += length, ++count) {
            sela::CDigest part("MD5");
            read(start, std::min(length, size - start), part);
            part.finish();
            all.update(part.getBytes(), part.getLength());
        }
        all.finish();
        return '"' + hexOf(bytesOf(all)) + "-" + std::to_string(count) + '"';
    }

    std::string bytes(long long start, size_t length) const
    {
        std::string bytes(length, '\0');
        std::ifstream(m_path, std::ios::binary).seekg(start).read(bytes.data(), static_cast<std::streamsize>(length));
        return bytes;
    }

private:
    void read(long long start, long long length, sela::CDigest& digest) const
    {
        std::ifstream file(m_path, std::ios::binary);
        file.seekg(start);
        std::vector<char> block(MiB);
        while (length > 0) {
            const long long wanted = std::min(length, MiB);
            if (!file.read(block.data(), wanted))
                throw std::runtime_error("the file with holes cannot be read");
            digest.update(block.data(), static_cast<size_t>(wanted));
            length -= wanted;
        }
    }

    const support::CTemporaryFolder m_folder;
    const std::filesystem::path m_path = m_folder.path() / "large";
};

class CDigestingSink : public kx::CBase, public virtual CNetRequest::IDataSink {
public:
    void begin() override { m_digest.reset(); }
    int write(const unsigned char* data, int count, int, const CNetRequest::HeaderMap&) override
    {
        m_digest.update(data, static_cast<size_t>(count));
        return count;
    }
    std::string sha256()
    {
        m_digest.finish();
        return hexOf(bytesOf(m_digest));
    }

private:
    sela::CDigest m_digest{"SHA256"};
};

class S3LargeObjectTest : public testing::Test {
protected:
    S3LargeObjectTest()
    {
        m_store.makeBucket("bucket");
        m_client->setMaxRetries(3);
    }

    /// @return its ETag
    kx::String upload(const CMarkedFile& file)
    {
        norla::CS3ParallelUploadOptions options;
        options.onStarted = [this](const kx::String& id) { m_uploadId = id; };
        options.onProgress = [this](long long bytes, long long total) {
            if (bytes == total)
                listParts();
        };
        return kx::newObj<norla::CS3ParallelUpload>(m_client.get(), m_request.get(), options)
            ->upload(file.path(), "bucket", "large");
    }

    /// With a request of its own, since the upload is not complete.
    void listParts()
    {
        const auto request = kx::newObj<CNetRequest>();
        norla::CS3MultipartUpload upload(m_client.get(), request.get(), "bucket", "large", {.partsPerPage = 100});
        upload.attach(m_uploadId);
        for (const norla::CS3UploadedPart& part : upload.listParts())
            m_partSizes.push_back(part.size);
    }

    kx::String copy()
    {
        norla::CS3ObjectCopyOptions options;
        options.threshold = GiB;
        options.partSize = copyPartSize;
        return kx::newObj<norla::CS3ObjectCopy>(m_client.get(), m_request.get(), options)
            ->copy({.bucketName = "bucket", .objectName = "large"}, "bucket", "copy");
    }

    std::string fetch(const kx::String& name, long long start, long long length)
    {
        const auto bytes = kx::newObj<CNetRequest::Buffer>();
        m_objects->get("bucket", name, bytes.get(), {.start = start, .length = length});
        return {reinterpret_cast<const char*>(bytes->getData()), bytes->getSize()};
    }

    void remove(const kx::String& name)
    {
        m_objects->remove("bucket", name);
        const auto error = support::errorOf([&] { m_objects->head("bucket", name); });
        ASSERT_TRUE(error) << "'" << name.toUTF8() << "' is still there";
        EXPECT_TRUE(m_client->isNotFoundError(*error)) << error->what();
    }

    support::CCephServer m_store{{.storageBytes = 8 * GiB}};
    const kx::P<norla::IS3Credentials> m_credentials = kx::newObj<norla::CS3StaticCredentials>(
        norla::CS3Credentials{.accessKeyId = live::text(m_store.accessKeyId()),
            .secretAccessKey = live::text(m_store.secretAccessKey()),
            .sessionToken = {},
            .expiry = {}});
    const kx::P<norla::CS3Client> m_client = kx::newObj<norla::CS3Client>(
        norla::CS3Endpoint::ceph(live::text(m_store.host()), false), m_credentials.get());
    const kx::P<CNetRequest> m_request = kx::newObj<CNetRequest>();
    const kx::P<norla::CS3Objects> m_objects = kx::newObj<norla::CS3Objects>(m_client.get(), m_request.get());
    kx::String m_uploadId;
    std::vector<long long> m_partSizes; // that the store has told
};

TEST_F(S3LargeObjectTest, isUploadedFetchedCopiedAndRemovedInBoundedMemory)
{
    const CMarkedFile file;

    EXPECT_EQ(upload(file).toUTF8(), file.eTagOfParts(partSize));
    std::vector<long long> sizes(partCount, partSize);
    sizes.back() = 12'345;
    EXPECT_EQ(m_partSizes, sizes);
    EXPECT_EQ(m_objects->head("bucket", "large").size, size);
    EXPECT_LT(mostMemory(), memoryLimit) << "behind the upload";

    const auto sink = kx::newObj<CDigestingSink>();
    EXPECT_EQ(m_objects->get("bucket", "large", sink.get()).size, size);
    EXPECT_EQ(sink->sha256(), file.sha256());
    EXPECT_EQ(fetch("large", 2 * GiB - 9, markSize), file.bytes(2 * GiB - 9, markSize));

    EXPECT_EQ(copy().toUTF8(), file.eTagOfParts(copyPartSize));
    EXPECT_EQ(m_objects->head("bucket", "copy").size, size);
    EXPECT_EQ(fetch("copy", size - markSize, -1), file.bytes(size - markSize, markSize));

    remove("large");
    remove("copy");
    EXPECT_LT(mostMemory(), memoryLimit);
}

} // namespace
