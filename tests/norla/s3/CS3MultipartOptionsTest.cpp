#include "norla/s3/CS3MultipartOptions.h"

#include "kx/base/CInvalidArgError.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using norla::CS3Call;
using norla::CS3MultipartOptions;
using norla::CS3PutOptions;

TEST(CS3MultipartOptionsTest, tellTheBeginningWhatTheObjectIsStoredWith)
{
    const auto options = CS3MultipartOptions::of({.contentType = "image/png",
        .metadata = {{"Author", L"Zo\u00eb"}, {"place", "here"}},
        .storageClass = "STANDARD_IA",
        .tags = {{"a b", "c"}}});
    const CS3Call::Fields headers{{"Content-Type", "image/png"}, {"x-amz-meta-author", "=?UTF-8?B?Wm/Dqw==?="},
        {"x-amz-meta-place", "here"}, {"x-amz-tagging", "a%20b=c"}, {"x-amz-storage-class", "STANDARD_IA"}};
    EXPECT_EQ(options.headers, headers);
    EXPECT_EQ(options.partHeaders, CS3Call::Fields());
    EXPECT_EQ(options.completeHeaders, CS3Call::Fields());
}

TEST(CS3MultipartOptionsTest, tellTheCompletionTheConditions)
{
    const auto options = CS3MultipartOptions::of({.ifMatch = "\"e\"", .ifNoneMatch = "*"});
    const CS3Call::Fields conditions{{"If-Match", "\"e\""}, {"If-None-Match", "*"}};
    EXPECT_EQ(options.completeHeaders, conditions);
    EXPECT_EQ(options.headers, CS3Call::Fields());
}

TEST(CS3MultipartOptionsTest, tellEachPartTheCustomersKey)
{
    const auto options = CS3MultipartOptions::of({.encryption = {.customerKey = std::string(32, 'k')}});
    ASSERT_EQ(options.partHeaders.size(), 3U);
    EXPECT_EQ(options.partHeaders[0].second, "AES256");
    EXPECT_EQ(options.headers, CS3Call::Fields());
}

TEST(CS3MultipartOptionsTest, refuseWhatNoHeaderCanHold)
{
    EXPECT_THROW(CS3MultipartOptions::of({.contentType = "image/png\r\nX: y"}), kx::CInvalidArgError);
}

} // namespace
