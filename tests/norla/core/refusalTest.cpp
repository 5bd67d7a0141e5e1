#include "norla/core/refusal.h"

#include "norla/core/CNetStringList.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <string_view>

namespace {

kx::String refusalIn(std::initializer_list<std::string_view> lines)
{
    const auto list = kx::newObj<norla::CNetStringList>();
    for (const std::string_view line : lines)
        list->addUTF8(line);
    return norla::lastRefusal(*list);
}

TEST(refusalTest, isThereOnlyWhenSomethingWasRefused)
{
    EXPECT_EQ(refusalIn({}), "");
    EXPECT_EQ(refusalIn({"220 ready\r\n", "250-host\r\n", "250 SIZE\r\n", "354 go on\r\n", "221 Bye\r\n"}), "");
    EXPECT_EQ(refusalIn({"550 no\r\n"}), "550 no");
    EXPECT_EQ(refusalIn({"421 later\r\n", "221 Bye\r\n"}), "421 later");
    EXPECT_EQ(refusalIn({"250 550 no\r\n", "600 no\r\n", "399 no\r\n", "55 no\r\n", "5x0 no\r\n", "\r\n"}), "");
    EXPECT_EQ(refusalIn({"400\r\n"}), "400");
    EXPECT_EQ(refusalIn({"599"}), "599");
}

TEST(refusalTest, hasAllLinesOfTheReply)
{
    EXPECT_EQ(refusalIn({"250-a\r\n", "250 b\r\n", "550-c\r\n", "550-\r\n", "550 d\r\n", "221-e\r\n", "221 f\r\n"}),
        "550-c\n550-\n550 d");
}

TEST(refusalTest, isTheLastOfSeveral)
{
    EXPECT_EQ(refusalIn({"550-a\r\n", "550 b\r\n", "550 c\r\n"}), "550 c");
    EXPECT_EQ(refusalIn({"504 a\r\n", "235 in\r\n", "451-b\r\n", "451 c\r\n", "250 d\r\n"}), "451-b\n451 c");
    EXPECT_EQ(refusalIn({"550-a\r\n", "451 b\r\n"}), "451 b");
    EXPECT_EQ(refusalIn({"550-a\r\n", "250 b\r\n", "550 c\r\n"}), "550 c");
}

TEST(refusalTest, mayBeCutOff)
{
    EXPECT_EQ(refusalIn({"550-a\r\n", "550-b"}), "550-a\n550-b");
}

} // namespace
