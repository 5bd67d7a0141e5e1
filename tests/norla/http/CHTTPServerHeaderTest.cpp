#include "norla/http/CHTTPServerHeader.h"

#include <gtest/gtest.h>

namespace {

using Map = kx::TMap<kx::String, kx::String>;

Map productsOf(const kx::String& header)
{
    return norla::CHTTPServerHeader(header).getProducts();
}

TEST(CHTTPServerHeaderTest, keepsTheHeader)
{
    EXPECT_EQ(norla::CHTTPServerHeader(" a/1 ").getHeader(), " a/1 ");
}

TEST(CHTTPServerHeaderTest, findsProductsAndVersions)
{
    EXPECT_EQ(productsOf("DAV/2 Python/3.9"), (Map{{"DAV", "2"}, {"Python", "3.9"}}));
}

TEST(CHTTPServerHeaderTest, takesACommentForAProduct)
{
    EXPECT_EQ(productsOf("Apache/2.4 (Unix)"), (Map{{"Apache", "2.4"}, {"(Unix)", ""}}));
}

TEST(CHTTPServerHeaderTest, splitsATokenAtItsFirstSlash)
{
    EXPECT_EQ(productsOf("a/1/2"), (Map{{"a", "1/2"}}));
}

TEST(CHTTPServerHeaderTest, keepsTheLastOfSeveralVersions)
{
    EXPECT_EQ(productsOf("a/1 a/2 a"), (Map{{"a", ""}}));
}

TEST(CHTTPServerHeaderTest, tellsProductsApartByCase)
{
    EXPECT_EQ(productsOf("a/1 A/2"), (Map{{"A", "2"}, {"a", "1"}}));
}

TEST(CHTTPServerHeaderTest, skipsRunsOfBlanks)
{
    EXPECT_EQ(productsOf("  a/1   b/2 "), (Map{{"a", "1"}, {"b", "2"}}));
}

TEST(CHTTPServerHeaderTest, splitsAtBlanksOnly)
{
    EXPECT_EQ(productsOf("a/1\tb/2"), (Map{{"a", "1\tb/2"}}));
}

TEST(CHTTPServerHeaderTest, findsNothingInAnEmptyHeader)
{
    EXPECT_EQ(productsOf(""), Map());
}

} // namespace
