#include "norla/s3/crc32c.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string ascending(bool reversed)
{
    std::string bytes;
    for (int i = 0; i < 32; ++i)
        bytes += static_cast<char>(reversed ? 31 - i : i);
    return bytes;
}

// RFC 3720 section B.4, where the bytes of the values stand in the other order.
TEST(crc32cTest, knowsTheAnswersOfTheStandard)
{
    EXPECT_EQ(norla::crc32c(std::string(32, '\0')), 0x8A9136AAU);
    EXPECT_EQ(norla::crc32c(std::string(32, '\xFF')), 0x62A8AB43U);
    EXPECT_EQ(norla::crc32c(ascending(false)), 0x46DD794EU);
    EXPECT_EQ(norla::crc32c(ascending(true)), 0x113FDB5CU);
    EXPECT_EQ(norla::crc32c(""), 0U);
}

TEST(crc32cTest, goesOnBehindABlock)
{
    EXPECT_EQ(norla::crc32c("6789", norla::crc32c("12345")), 0xE3069283U);
}

} // namespace
