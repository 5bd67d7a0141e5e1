#include "kx/text/CStringFormat.h"

#include "kx/base/CError.h"

#include <gtest/gtest.h>

namespace {

TEST(CStringFormatTest, formatsIntegers)
{
    EXPECT_EQ(kx::CStringFormat("%04d-%02d|%llu|%llx", 7, 3, 42ULL, 255ULL).toString(), "0007-03|42|ff");
}

TEST(CStringFormatTest, formatsTextInUTF8)
{
    EXPECT_EQ(kx::CStringFormat("<%s>", "gr\xC3\xBCn").toString(), L"<gr\u00FCn>");
}

TEST(CStringFormatTest, formatsNothing)
{
    EXPECT_EQ(kx::CStringFormat("%s", "").toString(), "");
}

TEST(CStringFormatTest, formatsLongTexts)
{
    const std::string text(100'000, 'x');
    EXPECT_EQ(kx::CStringFormat("%s!", text.c_str()).toString().size(), 100'001u);
}

TEST(CStringFormatTest, standsWhereTextIsWanted)
{
    EXPECT_EQ(kx::String("a") + kx::CStringFormat("%d", 1), "a1");
}

TEST(CStringFormatTest, refusesTextThatIsNotUTF8)
{
    EXPECT_THROW(kx::CStringFormat("%s", "\xFF"), kx::CError);
}

} // namespace
