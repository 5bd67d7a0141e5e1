#include "kx/text/CURI.h"

#include "kx/base/CError.h"

#include <gtest/gtest.h>

namespace {

TEST(CURITest, keepsUnreservedCharacters)
{
    const kx::String unreserved = "ABCXYZabcxyz0189-._~";
    EXPECT_EQ(kx::CURI::escape(unreserved, true, ""), unreserved);
}

TEST(CURITest, makesABlankAPlusAndAPlusItsCode)
{
    EXPECT_EQ(kx::CURI::escape("a b+c", true, ""), "a+b%2Bc");
}

TEST(CURITest, keepsASlashUnlessAskedToEscapeIt)
{
    EXPECT_EQ(kx::CURI::escape("a/b", false, ""), "a/b");
    EXPECT_EQ(kx::CURI::escape("a/b", true, ""), "a%2Fb");
}

TEST(CURITest, keepsWhatItIsTold)
{
    EXPECT_EQ(kx::CURI::escape("a:b c/d?e", true, ": /"), "a:b c/d%3Fe");
}

TEST(CURITest, escapesEveryByteOfUTF8InUpperCase)
{
    EXPECT_EQ(kx::CURI::escape(L"\u00FC\U0001F680\n%", false, ""), "%C3%BC%F0%9F%9A%80%0A%25");
}

TEST(CURITest, keepsNoByteOfACharacterBeyondASCII)
{
    EXPECT_EQ(kx::CURI::escape(L"\u00FC", false, L"\u00C3\u00BC\u00FC"), "%C3%BC");
}

TEST(CURITest, refusesTextWithoutUTF8Form)
{
    EXPECT_THROW(kx::CURI::escape(kx::String(std::wstring(1, wchar_t(0xD800))), false, ""), kx::CError);
}

} // namespace
