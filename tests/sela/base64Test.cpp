#include "sela/base64.h"

#include <gtest/gtest.h>

#include <string>

namespace {

kx::String encoded(const std::string& bytes, bool pad = true, bool breakLines = false)
{
    return sela::base64Encode(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), pad, breakLines);
}

TEST(Base64Test, encodesTheExamplesOfRFC4648)
{
    EXPECT_EQ(encoded(""), "");
    EXPECT_EQ(encoded("f"), "Zg==");
    EXPECT_EQ(encoded("fo"), "Zm8=");
    EXPECT_EQ(encoded("foo"), "Zm9v");
    EXPECT_EQ(encoded("foob"), "Zm9vYg==");
    EXPECT_EQ(encoded("fooba"), "Zm9vYmE=");
    EXPECT_EQ(encoded("foobar"), "Zm9vYmFy");
}

TEST(Base64Test, usesTheStandardAlphabet)
{
    EXPECT_EQ(encoded("\xFB\xEF\xBF"), "+++/");
}

TEST(Base64Test, leavesOutThePaddingWhenAskedTo)
{
    EXPECT_EQ(encoded("f", false), "Zg");
    EXPECT_EQ(encoded("fo", false), "Zm8");
    EXPECT_EQ(encoded("foob", false), "Zm9vYg");
    EXPECT_EQ(encoded("foo", false), "Zm9v");
    EXPECT_EQ(encoded("", false), "");
}

TEST(Base64Test, breaksLinesAfter76Characters)
{
    const kx::String line = encoded(std::string(57, 'x'));
    EXPECT_EQ(line.size(), 76u);
    EXPECT_EQ(encoded(std::string(57, 'x'), true, true), line);
    EXPECT_EQ(encoded(std::string(58, 'x'), true, true), line + "\r\neA==");
    EXPECT_EQ(encoded(std::string(114, 'x'), true, true), line + "\r\n" + line);
}

TEST(Base64Test, isAppendedAsBytes)
{
    kx::TBuffer<unsigned char> text;
    const auto* const bytes = reinterpret_cast<const unsigned char*>("foob");
    sela::base64Encode(bytes, 4, true, false, text);
    sela::base64Encode(bytes, 3, true, false, text);
    sela::base64Encode(bytes, 0, true, false, text);
    sela::base64Encode(bytes, 1, false, false, text);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(text.getData()), text.getSize()), "Zm9vYg==Zm9vZg");
}

TEST(Base64Test, breaksLinesWithoutPadding)
{
    const kx::String line = encoded(std::string(57, 'x'));
    EXPECT_EQ(encoded(std::string(58, 'x'), false, true), line + "\r\neA");
}

TEST(Base64Test, joinsLongTextsWithoutBreaks)
{
    EXPECT_EQ(encoded(std::string(300, 'x')), encoded(std::string(300, 'x'), true, true).replaceAll("\r\n", ""));
}

TEST(Base64Test, decodesWithAndWithoutPadding)
{
    for (const char* text : {"Zm9vYg==", "Zm9vYg"})
        EXPECT_EQ(sela::base64Decode(text), "foob") << text;
    EXPECT_EQ(sela::base64Decode("Zm9vYmFy"), "foobar");
    EXPECT_EQ(sela::base64Decode("+++/"), "\xFB\xEF\xBF");
    EXPECT_EQ(sela::base64Decode(""), "");
}

TEST(Base64Test, decodesNothingElse)
{
    for (const char* text : {"Zm9vYg=", "Zm9v=", "Zg===", "====", "Z", "A", "AAAAA", "Zm9vY", "Zm9v\n", "Zm9v YmFy",
             "Zm9*", "Zm-_", "Zh==", "Zm9=", "Z=9v"})
        EXPECT_EQ(sela::base64Decode(text), std::nullopt) << text;
}

} // namespace
