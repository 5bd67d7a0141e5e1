#include "kx/text/CStringFormat.h"

#include "kx/base/CError.h"
#include "tests/support/errorOf.h"

#include <gtest/gtest.h>

#include <cwchar>
#include <string>

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

// Too long for the text's own place, so that it stands in memory that the next one would get.
TEST(CStringFormatTest, leavesATextThatAReferenceKeeps)
{
    const std::string first(100, 'x');
    const std::string second(100, 'y');
    const kx::String& converted = kx::CStringFormat("%s", first.c_str());
    const kx::String& told = kx::CStringFormat("%s", second.c_str()).toString();
    EXPECT_EQ(converted.toUTF8(), first);
    EXPECT_EQ(told.toUTF8(), second);
}

TEST(CStringFormatTest, keepsItsOwnText)
{
    const kx::CStringFormat format("%d", 1);
    const kx::String first = format;
    const kx::String second = format.toString();
    EXPECT_EQ(first, "1");
    EXPECT_EQ(second, "1");
}

TEST(CStringFormatTest, namesTheFormatThatFails)
{
    EXPECT_EQ(support::messageOf([] { kx::CStringFormat("<%lc>", std::wint_t{0x7FFFFFFF}); }),
        "Text cannot be formatted by '<%lc>'.");
}

TEST(CStringFormatTest, refusesTextThatIsNotUTF8)
{
    EXPECT_THROW(kx::CStringFormat("%s", "\xFF"), kx::CError);
}

} // namespace
