#include "norla/s3/CS3ObjectInfo.h"

#include <gtest/gtest.h>

namespace {

using norla::CS3ObjectInfo;

TEST(CS3ObjectInfoTest, readsWhatAStoreSaysOfAnObject)
{
    const CS3ObjectInfo info = CS3ObjectInfo::fromObjectHeaders({{"content-length", "5497558138880"}, {"etag", "\"e\""},
        {"x-amz-version-id", "v"}, {"last-modified", "Mon, 12 Oct 2009 17:50:30 GMT"}, {"content-type", "text/plain"},
        {"cache-control", "no-cache"}, {"content-disposition", "inline"}, {"content-encoding", "gzip"},
        {"content-language", "de"}, {"expires", "Mon, 12 Oct 2009 17:50:31 GMT"}, {"x-amz-meta-a", "1"},
        {"x-amz-meta-author", "=?UTF-8?B?Wm/Dqw==?="}, {"x-amz-missing-meta", "2"}, {"x-amz-tagging-count", "3"},
        {"x-amz-storage-class", "GLACIER"}, {"x-amz-server-side-encryption", "aws:kms"},
        {"x-amz-server-side-encryption-aws-kms-key-id", "id"}, {"x-amz-server-side-encryption-customer-key-md5", "m"},
        {"x-amz-checksum-sha256", "s"}, {"x-amz-checksum-crc32c", "c"}});
    constexpr long long second = 1'000'000;
    EXPECT_EQ(info.size, 5497558138880);
    EXPECT_EQ(info.eTag, "\"e\"");
    EXPECT_EQ(info.versionId, "v");
    EXPECT_FALSE(info.isDeleteMarker);
    EXPECT_EQ(info.lastModified, kx::CTime(1255369830 * second));
    EXPECT_EQ(info.contentType, "text/plain");
    EXPECT_EQ(info.cacheControl, "no-cache");
    EXPECT_EQ(info.contentDisposition, "inline");
    EXPECT_EQ(info.contentEncoding, "gzip");
    EXPECT_EQ(info.contentLanguage, "de");
    EXPECT_EQ(info.expires, kx::CTime(1255369831 * second));
    EXPECT_EQ(info.metadata, (kx::TMap<kx::String, kx::String>{{"a", "1"}, {"author", L"Zo\xEB"}}));
    EXPECT_EQ(info.missingMetadata, 2);
    EXPECT_EQ(info.tagCount, 3);
    EXPECT_EQ(info.storageClass, "GLACIER");
    EXPECT_EQ(info.encryption, "aws:kms");
    EXPECT_EQ(info.encryptionKeyId, "id");
    EXPECT_EQ(info.customerKeyMD5, "m");
    EXPECT_EQ(info.checksumSHA256, "s");
    EXPECT_EQ(info.checksumCRC32C, "c");
}

TEST(CS3ObjectInfoTest, knowsNothingFromHeadersWithoutSense)
{
    const CS3ObjectInfo info = CS3ObjectInfo::fromObjectHeaders({{"content-length", "-5"}, {"last-modified", "soon"},
        {"expires", "0"}, {"x-amz-missing-meta", "99999999999999999999"}, {"x-amz-tagging-count", ""}});
    EXPECT_EQ(info.size, -1);
    EXPECT_FALSE(info.lastModified.isSet());
    EXPECT_FALSE(info.expires.isSet());
    EXPECT_EQ(info.missingMetadata, 0);
    EXPECT_EQ(info.tagCount, 0);
}

TEST(CS3ObjectInfoTest, takesTheWayAnObjectHasComeForNoEncoding)
{
    const auto encodingOf = [](const kx::String& value) {
        return CS3ObjectInfo::fromObjectHeaders({{"content-encoding", value}}).contentEncoding;
    };
    EXPECT_EQ(encodingOf("aws-chunked"), "");
    EXPECT_EQ(encodingOf("AWS-chunked, gzip"), "gzip");
    EXPECT_EQ(encodingOf("aws-chunked2"), "aws-chunked2");
    EXPECT_EQ(encodingOf("gzip"), "gzip");
}

TEST(CS3ObjectInfoTest, takesNothingOfAnAnswerForTheObjects)
{
    const CS3ObjectInfo info = CS3ObjectInfo::fromChangeHeaders(
        {{"content-length", "5"}, {"content-type", "application/xml"}, {"x-amz-delete-marker", "true"}});
    EXPECT_EQ(info.size, -1);
    EXPECT_EQ(info.contentType, "");
    EXPECT_TRUE(info.isDeleteMarker);
}

} // namespace
