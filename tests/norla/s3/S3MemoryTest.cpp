// How much memory it takes to store what is larger than memory.
#include "kx/text/numbers.h"
#include "norla/s3/CS3Client.h"
#include "norla/s3/CS3Objects.h"
#include "norla/s3/CS3ParallelUpload.h"
#include "norla/s3/CS3StaticCredentials.h"
#include "tests/norla/s3/CCountingStore.h"
#include "tests/support/sanitized.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <malloc.h>
#include <stdexcept>
#include <string>

#if !defined(NORLA_TEST_MEMORY_IS_SANITIZED) // which keeps what was freed

namespace {

constexpr long long mebibyte = 1 << 20;

/// Makes its bytes when they are asked for.
class CMadeSource : public kx::CBase, public virtual norla::CNetRequest::IDataSource {
public:
    explicit CMadeSource(long long size)
        : m_size(size)
    {
    }
    int read(unsigned char* buffer, int size, const HeaderMap& /*responseHeaders*/) override
    {
        const auto count = static_cast<int>(std::min<long long>(size, m_size - m_position));
        std::fill_n(buffer, count, static_cast<unsigned char>(m_position >> 10));
        m_position += count;
        return count;
    }
    long long getLength() override { return m_size; }
    void seek(long long position) override { m_position = position; }
    long long getPosition() override { return m_position; }

private:
    const long long m_size;
    long long m_position = 0;
};

class S3MemoryTest : public testing::Test {
protected:
    // Large blocks go back to the system at once: what is kept of them varies.
    S3MemoryTest() { mallopt(M_MMAP_THRESHOLD, 1 << 18); }

    /// The most memory that the process has had meanwhile, in bytes.
    template <typename TAction>
    static long long peakOf(TAction action, long long size)
    {
        std::ofstream("/proc/self/clear_refs") << "5"; // the peak is what it has now
        action(size);
        std::ifstream status("/proc/self/status");
        for (std::string line; std::getline(status, line);) {
            if (line.starts_with("VmHWM:"))
                return 1024 * std::stoll(line.substr(6));
        }
        throw std::runtime_error("no VmHWM");
    }

    /// By how much more memory it takes to do it with a large size than with a small one.
    template <typename TAction>
    static long long growthOf(TAction action)
    {
        action(least); // what is needed at first
        const long long usual = peakOf(action, small);
        return peakOf(action, large) - usual;
    }

    static kx::P<norla::CS3Client> clientOf(const CCountingStore& store)
    {
        auto endpoint = norla::CS3Endpoint::ceph("127.0.0.1:" + kx::toString(store.getPort()), false);
        const auto credentials = kx::newObj<norla::CS3StaticCredentials>(norla::CS3Credentials{
            .accessKeyId = "AKID", .secretAccessKey = "secret", .sessionToken = {}, .expiry = {}});
        return kx::newObj<norla::CS3Client>(endpoint, credentials.get());
    }

    static constexpr long long least = 16 * mebibyte;
    static constexpr long long small = 32 * mebibyte;
    static constexpr long long large = 256 * mebibyte;
};

TEST_F(S3MemoryTest, putsASourceOfAnySizeInSignedChunksWithTheSameMemory)
{
    const auto put = [](long long size) {
        const CCountingStore store;
        const auto client = clientOf(store);
        const auto request = kx::newObj<norla::CNetRequest>();
        const auto source = kx::newObj<CMadeSource>(size);
        norla::CS3Objects(client.get(), request.get()).put("bucket", "key", source.get(), size);
        EXPECT_GT(store.getByteCount(), size); // with a signature for each chunk
    };
    EXPECT_LT(growthOf(put), 4 * mebibyte);
}

TEST_F(S3MemoryTest, uploadsASourceOfAnySizeByPartsWithTheSameMemory)
{
    constexpr long long part = 8 * mebibyte;
    constexpr int atOnce = 2;
    const auto upload = [](long long size) {
        const CCountingStore store(static_cast<int>(size / part), atOnce);
        const auto client = clientOf(store);
        const auto request = kx::newObj<norla::CNetRequest>();
        const auto source = kx::newObj<CMadeSource>(size);
        norla::CS3ParallelUpload(client.get(), request.get(), {.partSize = part, .memory = atOnce * part})
            .upload(source.get(), "bucket", "key");
        EXPECT_EQ(store.getByteCount(), size);
    };
    EXPECT_LT(growthOf(upload), atOnce * part); // of few parts two may not have met
}

} // namespace

#endif
