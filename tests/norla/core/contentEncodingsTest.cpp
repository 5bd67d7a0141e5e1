#include "norla/core/contentEncodings.h"

#include "tests/support/errorOf.h"

#include <curl/curl.h>
#include <gtest/gtest.h>

namespace {

constexpr int all = CURL_VERSION_LIBZ | CURL_VERSION_BROTLI | CURL_VERSION_ZSTD;
const kx::String refused = "Invalid argument passed to 'CNetRequest::setAcceptEncoding': ";

kx::String refusalOf(const kx::String& names, int features = all)
{
    return support::messageOf([&] { norla::requireContentEncodings(names, features); });
}

TEST(ContentEncodingsTest, areThoseThatLibcurlUnpacks)
{
    EXPECT_EQ(refusalOf("gzip,deflate, BR ,\tzstd,identity"), "(no error)");
    EXPECT_EQ(refusalOf(""), "(no error)");
}

TEST(ContentEncodingsTest, areRefusedByName)
{
    EXPECT_EQ(refusalOf("gzip, lzma, br"), refused + "there is no content encoding 'lzma'.");
    EXPECT_EQ(refusalOf("gzip;q=0.5"), refused + "there is no content encoding 'gzip;q=0.5'.");
}

TEST(ContentEncodingsTest, haveAName)
{
    EXPECT_EQ(refusalOf("gzip,"), refused + "there is no content encoding ''.");
}

TEST(ContentEncodingsTest, areRefusedWhereLibcurlLacksThem)
{
    EXPECT_EQ(refusalOf("gzip, br", all & ~CURL_VERSION_BROTLI),
        refused + "this libcurl cannot unpack the content encoding 'br'.");
    EXPECT_EQ(refusalOf("zstd", all & ~CURL_VERSION_ZSTD),
        refused + "this libcurl cannot unpack the content encoding 'zstd'.");
    EXPECT_EQ(refusalOf("gzip", 0), refused + "this libcurl cannot unpack the content encoding 'gzip'.");
    EXPECT_EQ(refusalOf("deflate", 0), refused + "this libcurl cannot unpack the content encoding 'deflate'.");
    EXPECT_EQ(refusalOf("identity", 0), "(no error)");
}

} // namespace
