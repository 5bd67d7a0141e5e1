#include "norla/files/CPartDigests.h"

#include "kx/text/hex.h"
#include "norla/files/CPartFile.h"
#include "tests/support/CTemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using norla::CPartDigests;
using testing::StartsWith;

constexpr long long size = (33 << 20) + 5; // two pieces and a rest

class CPartDigestsTest : public testing::Test {
protected:
    CPartDigestsTest()
    {
        for (size_t i = 0; i < m_bytes.size(); ++i)
            m_bytes[i] = static_cast<char>(i % 251);
        write(m_bytes);
        m_options.sha256 = digestOf("SHA256", m_bytes);
        m_options.md5 = digestOf("MD5", m_bytes);
    }

    static kx::String digestOf(const char* algorithm, const std::string& bytes)
    {
        sela::CDigest digest(algorithm);
        digest.update(bytes.data(), bytes.size());
        digest.finish();
        return kx::hexEncode({reinterpret_cast<const char*>(digest.getBytes()), digest.getLength()});
    }

    void write(const std::string& bytes)
    {
        m_part.write(0, reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
    }

    std::string differenceOf(CPartDigests& digests, long long end)
    {
        while (digests.follow(m_part, end)) {
        }
        return digests.findDifference().toUTF8();
    }

    std::string m_bytes = std::string(size, '\0');
    norla::CFileDownloadOptions m_options;
    const support::CTemporaryFolder m_folder;
    norla::CPartFile m_part{norla::CPartFile::Path::fromBytes((m_folder.path() / "file").native())};
};

TEST_F(CPartDigestsTest, followWhatArrivesPieceByPiece)
{
    CPartDigests digests(m_options);
    EXPECT_FALSE(digests.follow(m_part, 0));
    EXPECT_FALSE(digests.follow(m_part, 1'000'001));
    EXPECT_TRUE(digests.follow(m_part, size));
    EXPECT_EQ(differenceOf(digests, size), "");
}

TEST_F(CPartDigestsTest, tellTheFirstThatDiffers)
{
    m_options.md5 = "00000000000000000000000000000000";
    CPartDigests digests(m_options);
    EXPECT_EQ(differenceOf(digests, size),
        "MD5 is " + digestOf("MD5", m_bytes).toUTF8() + ", and not 00000000000000000000000000000000");
    m_options.sha256 = m_options.md5 + m_options.md5;
    CPartDigests others(m_options);
    EXPECT_THAT(differenceOf(others, size), StartsWith("SHA-256 is "));
}

TEST_F(CPartDigestsTest, beginAnewWithThePart)
{
    CPartDigests digests(m_options);
    write("other bytes");
    digests.follow(m_part, 11);
    digests.forget();
    write(m_bytes);
    EXPECT_EQ(differenceOf(digests, size), "");
}

TEST_F(CPartDigestsTest, ofAPartThatSomebodyHasCutAreOthers)
{
    CPartDigests digests(m_options);
    m_part.truncate(1000);
    EXPECT_THAT(differenceOf(digests, size), StartsWith("SHA-256 is "));
}

TEST_F(CPartDigestsTest, readNothingWhereNoneIsExpected)
{
    CPartDigests digests(norla::CFileDownloadOptions{});
    EXPECT_TRUE(digests.isEmpty());
    EXPECT_EQ(differenceOf(digests, size), "");
}

} // namespace
