#include "kx/text/hex.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(HexTest, encodesInLowerCaseHighDigitFirst)
{
    EXPECT_EQ(kx::hexEncode(std::string_view("\x00\x1F\xFA", 3)), "001ffa");
    EXPECT_EQ(kx::hexEncode(""), "");
}

TEST(HexTest, decodesDigitsOfBothCasesAndNothingElse)
{
    const std::string digits = "0123456789abcdef";
    for (int code = -128; code < 128; ++code) {
        const char character = static_cast<char>(code);
        const char lower = character >= 'A' && character <= 'Z' ? static_cast<char>(character + 32) : character;
        const size_t place = lower == '\0' ? std::string::npos : digits.find(lower);
        EXPECT_EQ(kx::hexDecodeCharLax(character), place == std::string::npos ? -1 : static_cast<int>(place)) << code;
    }
}

} // namespace
