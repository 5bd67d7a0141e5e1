#include "norla/http/serverMessage.h"

#include "kx/base/CError.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

constexpr size_t limit = 4096;

/// What is left of a body whose limit lies `taken` bytes behind the beginning of the character, behind which it goes
/// on.
kx::String textBefore(const std::string& character, size_t taken)
{
    const std::string before(limit - taken, 'x');
    const kx::String message = norla::serverMessage(before + character + "more", {});
    return message.substr(before.size());
}

struct CCharacterRow {
    const char* name;
    const char* bytes;
};

class CCutCharacterTest : public testing::TestWithParam<CCharacterRow> {};

TEST_P(CCutCharacterTest, isLeftOut)
{
    const std::string bytes = GetParam().bytes;
    for (size_t taken = 1; taken < bytes.size(); ++taken)
        EXPECT_EQ(textBefore(bytes, taken), "") << taken;
}

TEST_P(CCutCharacterTest, staysWhenItIsWhole)
{
    const std::string bytes = GetParam().bytes;
    EXPECT_EQ(textBefore(bytes, bytes.size()), kx::String::fromUTF8(bytes));
}

INSTANTIATE_TEST_SUITE_P(All, CCutCharacterTest,
    testing::ValuesIn(std::vector<CCharacterRow>{
        {"ascii", "a"},
        {"lastOfASCII", "\x7F"},
        {"firstOfTwoBytes", "\xC2\x80"},
        {"lastOfTwoBytes", "\xDF\xBF"},
        {"firstOfThreeBytes", "\xE0\xA0\x80"},
        {"lastOfThreeBytes", "\xEF\xBF\xBF"},
        {"firstOfFourBytes", "\xF0\x90\x80\x80"},
        {"last", "\xF4\x8F\xBF\xBF"},
    }),
    [](const testing::TestParamInfo<CCharacterRow>& row) { return row.param.name; });

TEST(ServerMessageTest, mayBeOfNothingButContinuingBytes)
{
    EXPECT_THROW(norla::serverMessage(std::string(limit + 1, '\x80'), {}), kx::CError);
}

} // namespace
