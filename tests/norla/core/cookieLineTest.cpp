#include "norla/core/cookieLine.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

using norla::isCookieComment;
using norla::parseCookieLine;

bool isCookie(std::string_view line)
{
    return parseCookieLine(line).has_value();
}

TEST(CookieLineTest, isACookie)
{
    EXPECT_EQ(parseCookieLine("example.com\tFALSE\t/path\tTRUE\t2000000000\tname\tthe value"),
        (norla::CCookie{.domain = "example.com",
            .path = "/path",
            .name = "name",
            .value = "the value",
            .expiry = kx::CTime(2'000'000'000'000'000),
            .isSecure = true}));
}

TEST(CookieLineTest, isACookieOfSubdomainsAndNotForScripts)
{
    EXPECT_EQ(parseCookieLine("#HttpOnly_.example.com\tTRUE\t/\tFALSE\t0\tname\tvalue"),
        (norla::CCookie{.domain = "example.com",
            .hasSubdomains = true,
            .path = "/",
            .name = "name",
            .value = "value",
            .isHTTPOnly = true}));
}

TEST(CookieLineTest, mayHaveNoValue)
{
    EXPECT_EQ(parseCookieLine("a.b\tFALSE\t/\tFALSE\t0\tname\t")->value, "");
    EXPECT_EQ(parseCookieLine("a.b\tFALSE\t/\tFALSE\t0\tname")->value, "");
}

TEST(CookieLineTest, isShownInUTF8OrLatin1)
{
    EXPECT_EQ(parseCookieLine("a.b\tFALSE\t/\tFALSE\t0\tname\t\xC3\xBC")->value, L"\u00fc");
    EXPECT_EQ(parseCookieLine("a.b\tFALSE\t/\tFALSE\t0\tname\t\xFC")->value, L"\u00fc");
}

TEST(CookieLineTest, mayLastForEver)
{
    EXPECT_EQ(parseCookieLine("a.b\tFALSE\t/\tFALSE\t9223372036854775807\tname\tx")->expiry,
        kx::CTime(std::numeric_limits<long long>::max() / 1'000'000 * 1'000'000));
}

TEST(CookieLineTest, isNoCookieAsAHeaderLine)
{
    EXPECT_FALSE(isCookie("Set-Cookie:name=value;\tFALSE\t/\tFALSE\t0\tname\tvalue"));
    EXPECT_FALSE(isCookie("set-cookie:name\tFALSE\t/\tFALSE\t0\tname\tvalue"));
}

TEST(CookieLineTest, isNoCookieWithOtherFields)
{
    EXPECT_FALSE(isCookie("a.b\tFALSE\t/\tFALSE\t0"));
    EXPECT_FALSE(isCookie("a.b\tFALSE\t/\tFALSE\t0\tname\tvalue\tmore"));
    EXPECT_FALSE(isCookie("a.b\tFALSE\t/\tFALSE\t0\tname\tvalue\t"));
    EXPECT_FALSE(isCookie("\tFALSE\t/\tFALSE\t0\tname\tvalue"));
    EXPECT_FALSE(isCookie(".\tFALSE\t/\tFALSE\t0\tname\tvalue"));
    EXPECT_FALSE(isCookie("..a.b\tTRUE\t/\tFALSE\t0\tname\tvalue"));
    EXPECT_FALSE(isCookie(".#HttpOnly_a\tFALSE\t/\tFALSE\t0\tname\tvalue"));
    EXPECT_FALSE(isCookie(".Set-Cookie:a\tFALSE\t/\tFALSE\t0\tname\tvalue"));
    EXPECT_FALSE(isCookie("a b\tFALSE\t/\tFALSE\t0\tname\tvalue"));
    EXPECT_FALSE(isCookie("a.b\tmaybe\t/\tFALSE\t0\tname\tvalue"));
    EXPECT_FALSE(isCookie("a.b\tFALSE\tpath\tFALSE\t0\tname\tvalue"));
    EXPECT_FALSE(isCookie("a.b\tFALSE\t/\t1\t0\tname\tvalue"));
    EXPECT_FALSE(isCookie("a.b\tFALSE\t/\tFALSE\t\t0\tname"));
    EXPECT_FALSE(isCookie("a.b\tFALSE\t/\tFALSE\t-1\tname\tvalue"));
    EXPECT_FALSE(isCookie("a.b\tFALSE\t/\tFALSE\t1x\tname\tvalue"));
    EXPECT_FALSE(isCookie("a.b\tFALSE\t/\tFALSE\t9223372036854775808\tname\tvalue"));
    EXPECT_FALSE(isCookie("a.b\tFALSE\t/\tFALSE\t0\t\tvalue"));
}

TEST(CookieLineTest, isNoCommandForLibcurl)
{
    for (const char* command : {"ALL", "SESS", "FLUSH", "RELOAD", "Set-Cookie: a=b", ""})
        EXPECT_FALSE(isCookie(command)) << command;
}

TEST(CookieLineTest, holdsNoControlCharacters)
{
    EXPECT_FALSE(isCookie("a.b\tFALSE\t/\tFALSE\t0\tname\tval\rue"));
    EXPECT_FALSE(isCookie("a.b\tFALSE\t/\tFALSE\t0\tname\tval\x7fue"));
    EXPECT_FALSE(isCookie(std::string_view("a.b\tFALSE\t/\tFALSE\t0\tname\tval\0ue", 31)));
}

TEST(CookieLineTest, isACommentOrNot)
{
    EXPECT_TRUE(isCookieComment("# Netscape HTTP Cookie File"));
    EXPECT_TRUE(isCookieComment(""));
    EXPECT_TRUE(isCookieComment(" \t"));
    EXPECT_FALSE(isCookieComment("#HttpOnly_garbage"));
    EXPECT_FALSE(isCookieComment("garbage"));
    EXPECT_FALSE(isCookieComment(" # is no comment to libcurl"));
    EXPECT_FALSE(isCookie("#a.b\tFALSE\t/\tFALSE\t0\tname\tvalue"));
}

} // namespace
