#include "norla/s3/forbiddenCharacters.h"

#include <gtest/gtest.h>

namespace {

using norla::withForbiddenCharactersEscaped;

TEST(ForbiddenCharactersTest, areEscapedByteByByte)
{
    EXPECT_EQ(withForbiddenCharactersEscaped(std::string("a\0b\x01\x1f", 5)), "a%00b%01%1F");
    EXPECT_EQ(withForbiddenCharactersEscaped("\xef\xbf\xbe\xef\xbf\xbfx"), "%EF%BF%BE%EF%BF%BFx");
}

TEST(ForbiddenCharactersTest, areEscapedWhereAReferenceStandsForThem)
{
    EXPECT_EQ(withForbiddenCharactersEscaped("a&#x01;&#x1F;&#8;&#0;b"), "a%01%1F%08%00b");
    EXPECT_EQ(withForbiddenCharactersEscaped("&#xFFFF;&#65534;"), "%EF%BF%BF%EF%BF%BE");
}

TEST(ForbiddenCharactersTest, canBeUndoneWithPercentSignsEscapedToo)
{
    EXPECT_EQ(norla::withPercentSignsEscapedToo("%01\x01&#1;&#37;&#x25;&#x26;%"), "%2501%01%01%25%25&#x26;%25");
}

TEST(ForbiddenCharactersTest, areNoOthers)
{
    for (const std::string text : {"", "plain %01 + text", "\t\r\n", "&#9;&#xA;&#13;", "&#x20;&#xE4;&#x1F600;",
             "&amp;&lt;", "&", "&#", "&#;", "&#x;", "&#x", "&#1", "&#z1;", "&#x1z;", "&#-1;", "&#1 ;",
             "&#99999999999999999999;", "\xef\xbf\xbd", "\x7f", "\xc3\xa4"})
        EXPECT_EQ(withForbiddenCharactersEscaped(text), text);
}

} // namespace
