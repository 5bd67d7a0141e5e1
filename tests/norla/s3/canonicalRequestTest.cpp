#include "norla/s3/canonicalRequest.h"

#include "kx/base/CInvalidArgError.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using norla::CCanonicalRequest;
using norla::CS3RequestToSign;

std::string hostOf(const std::string& url)
{
    return std::string(norla::splitS3URL(url).host);
}

TEST(canonicalRequestTest, takesTheHostOutOfTheURL)
{
    EXPECT_EQ(hostOf("https://a.example/b"), "a.example");
    EXPECT_EQ(hostOf("http://a.example:8080/b"), "a.example:8080");
    EXPECT_EQ(hostOf("https://user:se@cret@a.example/b"), "a.example");
    EXPECT_EQ(hostOf("http://[::1]:7480/b"), "[::1]:7480");
    EXPECT_EQ(hostOf("http://a.example?x"), "a.example");
    EXPECT_EQ(hostOf("http://a.example#x/"), "a.example");
}

TEST(canonicalRequestTest, leavesOutThePortThatIsTheSchemesOwn)
{
    EXPECT_EQ(hostOf("http://a.example:80/b"), "a.example");
    EXPECT_EQ(hostOf("https://a.example:443/b"), "a.example");
    EXPECT_EQ(hostOf("https://a.example:80/b"), "a.example:80");
}

TEST(canonicalRequestTest, refusesAURLWithoutAHost)
{
    for (const char* const url : {"", "a.example/b", "http://", "http:///b", "://", "http://?"})
        EXPECT_THROW(norla::splitS3URL(url), kx::CInvalidArgError) << url;
}

std::string pathOf(const std::string& url)
{
    const std::string text = CCanonicalRequest("GET", norla::splitS3URL("http://h" + url), "", {}, "x").text;
    return text.substr(4, text.find('\n', 4) - 4);
}

TEST(canonicalRequestTest, writesAPathInOneWay)
{
    EXPECT_EQ(pathOf(""), "/");
    EXPECT_EQ(pathOf("?acl"), "/");
    EXPECT_EQ(pathOf("/a%2fb%2Fc"), "/a/b/c"); // where a store splits names
    EXPECT_EQ(pathOf("/%41%7e%2a%2A*+!"), "/A~%2A%2A%2A%2B%21");
    EXPECT_EQ(pathOf("/%C3%a4\xC3\xA4"), "/%C3%A4%C3%A4");
    EXPECT_EQ(pathOf("/a%"), "/a%25");
    EXPECT_EQ(pathOf("/a%4"), "/a%254");
    EXPECT_EQ(pathOf("/a%zz%2525"), "/a%25zz%2525");
    EXPECT_EQ(pathOf("/a#b?c"), "/a");
}

TEST(canonicalRequestTest, leavesDotsAndSlashesOfAPathAlone)
{
    EXPECT_EQ(pathOf("/a/./../b//c/"), "/a/./../b//c/");
}

TEST(canonicalRequestTest, ordersTheParameters)
{
    EXPECT_EQ(norla::canonicalQuery("b=2&a=2&a=1&B=3"), "B=3&a=1&a=2&b=2");
    EXPECT_EQ(norla::canonicalQuery("a-b=1&a=2"), "a=2&a-b=1");
}

TEST(canonicalRequestTest, writesParametersInOneWay)
{
    EXPECT_EQ(norla::canonicalQuery(""), "");
    EXPECT_EQ(norla::canonicalQuery("&&"), "");
    EXPECT_EQ(norla::canonicalQuery("acl"), "acl=");
    EXPECT_EQ(norla::canonicalQuery("a=b=c"), "a=b%3Dc");
    EXPECT_EQ(norla::canonicalQuery("a=%2f/&b=+%2B%20"), "a=%2F%2F&b=%20%2B%20");
    EXPECT_EQ(norla::canonicalQuery("=x"), "=x");
}

std::string headersOf(const CS3RequestToSign::Headers& headers)
{
    const CCanonicalRequest request("GET", norla::splitS3URL("http://h/"), "", headers, "x");
    constexpr size_t start = 7; // behind method, path and query
    return request.text.substr(start, request.text.rfind("\n\n") - start);
}

TEST(canonicalRequestTest, ordersHeadersAndLowersTheirNames)
{
    EXPECT_EQ(headersOf({{"X-Amz-Date", "D"}, {"Content-Type", "T"}}), "content-type:T\nhost:h\nx-amz-date:D");
}

TEST(canonicalRequestTest, joinsRepeatedHeadersInTheirOrder)
{
    EXPECT_EQ(headersOf({{"x-a", "2"}, {"X-A", "1"}, {"x-a", "2"}}), "host:h\nx-a:2,1,2");
}

TEST(canonicalRequestTest, writesOneBlankForSeveral)
{
    EXPECT_EQ(headersOf({{"x-a", "  1 \t  2  "}}), "host:h\nx-a:1 2");
}

TEST(canonicalRequestTest, takesAHostThatIsGiven)
{
    EXPECT_EQ(headersOf({{"Host", "other"}}), "host:other");
}

TEST(canonicalRequestTest, leavesOutWhatOthersMayChange)
{
    EXPECT_EQ(headersOf({{"User-Agent", "a"}, {"Expect", "100-continue"}, {"Transfer-Encoding", "chunked"}}), "host:h");
}

TEST(canonicalRequestTest, leavesOutEmptyHeadersThatAreNotSent)
{
    EXPECT_EQ(headersOf({{"Content-Type", ""}, {"x-amz-meta-a", ""}}), "host:h\nx-amz-meta-a:");
}

TEST(canonicalRequestTest, namesAHeaderThatWouldBecomeTwo)
{
    try {
        headersOf({{"x-a", std::string("1\0", 2)}});
        FAIL();
    } catch (const kx::CInvalidArgError& error) {
        EXPECT_EQ(error.getMessage(),
            "Invalid argument passed to 'norla::requireOneLineHeaders': the header 'x-a' holds a line end or a zero "
            "character.");
    }
    EXPECT_THROW(headersOf({{"x-a\nb", "1"}}), kx::CInvalidArgError);
}

TEST(canonicalRequestTest, namesTheSignedHeadersAndEndsWithTheDigest)
{
    const CCanonicalRequest request("PUT", norla::splitS3URL("http://h/a?b"), "b=", {{"Range", "r"}}, "digest");
    EXPECT_EQ(request.text, "PUT\n/a\nb=\nhost:h\nrange:r\n\nhost;range\ndigest");
    EXPECT_EQ(request.signedHeaders, "host;range");
}

} // namespace
