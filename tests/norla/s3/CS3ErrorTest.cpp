#include "norla/s3/CS3Error.h"

#include "norla/s3/CS3ErrorResponse.h"

#include <gtest/gtest.h>

namespace {

using norla::CS3Error;
using norla::CS3ErrorResponse;

CS3Error denied()
{
    return {CS3ErrorResponse("AccessDenied", "You may not", "/bucket/key", "tx01"), 403};
}

TEST(CS3ErrorTest, saysWhatTheServiceSaid)
{
    EXPECT_EQ(denied().getMessage(), "Amazon S3 error: You may not(AccessDenied)");
    EXPECT_STREQ(denied().what(), "Amazon S3 error: You may not(AccessDenied)");
}

TEST(CS3ErrorTest, hasTheStatusAsItsCodeInTheDomainOfHTTP)
{
    EXPECT_EQ(denied().getDomain(), "http");
    EXPECT_EQ(denied().getCode(), 403);
}

TEST(CS3ErrorTest, hasTheDetailsAsProperties)
{
    const kx::TMap<kx::String, kx::String> expected{
        {"responseCode", "403"}, {"s3-code", "AccessDenied"}, {"s3-requestID", "tx01"}, {"s3-resource", "/bucket/key"}};
    EXPECT_EQ(denied().getProps().getMap(), expected);
}

TEST(CS3ErrorTest, keepsEmptyDetailsAsProperties)
{
    EXPECT_TRUE(CS3Error(CS3ErrorResponse("", "", "", ""), 500).getProps().has("s3-code"));
}

TEST(CS3ErrorTest, keepsTheServicesCode)
{
    EXPECT_EQ(denied().getS3Code(), "AccessDenied");
}

TEST(CS3ErrorTest, clonesAsItself)
{
    const auto copy = denied().clone();
    const auto* const error = dynamic_cast<const CS3Error*>(copy.get());
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getS3Code(), "AccessDenied");
    EXPECT_EQ(error->getMessage(), denied().getMessage());
}

TEST(CS3ErrorTest, throwsACloneAsItself)
{
    const auto copy = denied().clone();
    EXPECT_THROW(copy->throwClone(), CS3Error);
}

TEST(CS3ErrorTest, isCaughtAsAnyError)
{
    EXPECT_THROW(throw denied(), kx::CError);
    EXPECT_THROW(throw denied(), std::exception);
}

TEST(CS3ErrorTest, canBeMadeForAMissingObject)
{
    const auto error = CS3Error::createObjectNotFoundError("/bucket/key");
    EXPECT_EQ(error->getMessage(), "Amazon S3 error: The resource you requested does not exist(NoSuchKey)");
    EXPECT_EQ(error->getCode(), 404);
    EXPECT_EQ(error->getS3Code(), "NoSuchKey");
    EXPECT_EQ(error->getProps().get("s3-requestID"), "#dummy#");
    EXPECT_EQ(error->getProps().get("s3-resource"), "/bucket/key");
}

} // namespace
