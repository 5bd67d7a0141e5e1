#include "norla/s3/canonicalRequest.h"

#include "kx/base/CInvalidArgError.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

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

/// Of the suite that AWS has published for signatures V4, without those whose paths other services than S3 shorten.
struct CPublishedCase {
    const char* name;
    const char* method;
    const char* pathAndQuery;
    CS3RequestToSign::Headers headers;
    std::string canonical;
};

const std::vector<CPublishedCase> publishedCases{
    {"get-header-key-duplicate", "GET", "/",
        {{"My-Header1", "value2"}, {"My-Header1", "value2"}, {"My-Header1", "value1"},
            {"x-amz-date", "20150830T123600Z"}},
        "GET\n/"
        "\n\nhost:example.amazonaws.com\nmy-header1:value2,value2,value1\nx-amz-date:20150830T123600Z\n\nhost;my-"
        "header1;x-amz-date\ne3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
    {"get-header-value-order", "GET", "/",
        {{"My-Header1", "value4"}, {"My-Header1", "value1"}, {"My-Header1", "value3"}, {"My-Header1", "value2"},
            {"x-amz-date", "20150830T123600Z"}},
        "GET\n/"
        "\n\nhost:example.amazonaws.com\nmy-header1:value4,value1,value3,value2\nx-amz-date:20150830T123600Z\n\nhost;"
        "my-header1;x-amz-date\ne3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
    {"get-relative-relative-unnormalized", "GET", "/example1/example2/../..", {{"x-amz-date", "20150830T123600Z"}},
        "GET\n/example1/example2/../"
        "..\n\nhost:example.amazonaws.com\nx-amz-date:20150830T123600Z\n\nhost;x-amz-"
        "date\ne3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
    {"get-slash-pointless-dot-unnormalized", "GET", "/./example", {{"x-amz-date", "20150830T123600Z"}},
        "GET\n/./"
        "example\n\nhost:example.amazonaws.com\nx-amz-date:20150830T123600Z\n\nhost;x-amz-"
        "date\ne3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
    {"get-space-normalized", "GET", "/example space/", {{"x-amz-date", "20150830T123600Z"}},
        "GET\n/example%20space/"
        "\n\nhost:example.amazonaws.com\nx-amz-date:20150830T123600Z\n\nhost;x-amz-"
        "date\ne3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
    {"get-unreserved", "GET", "/-._~0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz",
        {{"x-amz-date", "20150830T123600Z"}},
        "GET\n/"
        "-._~0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz\n\nhost:example.amazonaws.com\nx-amz-date:"
        "20150830T123600Z\n\nhost;x-amz-date\ne3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
    {"get-vanilla", "GET", "/", {{"x-amz-date", "20150830T123600Z"}},
        "GET\n/"
        "\n\nhost:example.amazonaws.com\nx-amz-date:20150830T123600Z\n\nhost;x-amz-"
        "date\ne3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
    {"get-vanilla-query", "GET", "/", {{"x-amz-date", "20150830T123600Z"}},
        "GET\n/"
        "\n\nhost:example.amazonaws.com\nx-amz-date:20150830T123600Z\n\nhost;x-amz-"
        "date\ne3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
    {"get-vanilla-query-order-key-case", "GET", "/?Param2=value2&Param1=value1", {{"x-amz-date", "20150830T123600Z"}},
        "GET\n/"
        "\nParam1=value1&Param2=value2\nhost:example.amazonaws.com\nx-amz-date:20150830T123600Z\n\nhost;x-amz-"
        "date\ne3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
    {"get-vanilla-utf8-query", "GET",
        "/?\xE1"
        "\x88"
        "\xB4"
        "=bar",
        {{"x-amz-date", "20150830T123600Z"}},
        "GET\n/"
        "\n%E1%88%B4=bar\nhost:example.amazonaws.com\nx-amz-date:20150830T123600Z\n\nhost;x-amz-"
        "date\ne3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
    {"post-header-key-case", "POST", "/", {{"x-amz-date", "20150830T123600Z"}},
        "POST\n/"
        "\n\nhost:example.amazonaws.com\nx-amz-date:20150830T123600Z\n\nhost;x-amz-"
        "date\ne3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
    {"post-header-value-case", "POST", "/", {{"My-Header1", "VALUE1"}, {"x-amz-date", "20150830T123600Z"}},
        "POST\n/"
        "\n\nhost:example.amazonaws.com\nmy-header1:VALUE1\nx-amz-date:20150830T123600Z\n\nhost;my-header1;x-amz-"
        "date\ne3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
    {"post-sts-header-before", "POST", "/",
        {{"x-amz-date", "20150830T123600Z"},
            {"x-amz-security-token",
                "AQoDYXdzEPT//////////"
                "wEXAMPLEtc764bNrC9SAPBSM22wDOk4x4HIZ8j4FZTwdQWLWsKWHGBuFqwAeMicRXmxfpSPfIeoIYRqTflfKD8YUuwthAx7mSEI/"
                "qkPpKPi/"
                "kMcGdQrmGdeehM4IC1NtBmUpp2wUE8phUZampKsburEDy0KPkyQDYwT7WZ0wq5VSXDvp75YU9HFvlRd8Tx6q6fE8YQcHNVXAkiY9q6"
                "d+xo0rKwT38xVqr7ZD0u0iPPkUL64lIZbqBAz+scqKmlzm8FDrypNC9Yjc8fPOLn9FX9KSYvKTr4rvx3iSIlTJabIQwj2ICCR/"
                "oLxBA=="}},
        "POST\n/\n\nhost:example.amazonaws.com\nx-amz-date:20150830T123600Z\nx-amz-security-token:AQoDYXdzEPT//////////"
        "wEXAMPLEtc764bNrC9SAPBSM22wDOk4x4HIZ8j4FZTwdQWLWsKWHGBuFqwAeMicRXmxfpSPfIeoIYRqTflfKD8YUuwthAx7mSEI/qkPpKPi/"
        "kMcGdQrmGdeehM4IC1NtBmUpp2wUE8phUZampKsburEDy0KPkyQDYwT7WZ0wq5VSXDvp75YU9HFvlRd8Tx6q6fE8YQcHNVXAkiY9q6d+"
        "xo0rKwT38xVqr7ZD0u0iPPkUL64lIZbqBAz+scqKmlzm8FDrypNC9Yjc8fPOLn9FX9KSYvKTr4rvx3iSIlTJabIQwj2ICCR/"
        "oLxBA==\n\nhost;x-amz-date;x-amz-security-"
        "token\ne3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
    {"post-vanilla-empty-query-value", "POST", "/?Param1=value1", {{"x-amz-date", "20150830T123600Z"}},
        "POST\n/"
        "\nParam1=value1\nhost:example.amazonaws.com\nx-amz-date:20150830T123600Z\n\nhost;x-amz-"
        "date\ne3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
    {"post-x-www-form-urlencoded", "POST", "/",
        {{"Content-Type", "application/x-www-form-urlencoded"}, {"Content-Length", "13"},
            {"x-amz-content-sha256", "9095672bbd1f56dfc5b65f3e153adc8731a4a654192329106275f4c7b24d0b6e"},
            {"x-amz-date", "20150830T123600Z"}},
        "POST\n/\n\ncontent-length:13\ncontent-type:application/"
        "x-www-form-urlencoded\nhost:example.amazonaws.com\nx-amz-content-sha256:"
        "9095672bbd1f56dfc5b65f3e153adc8731a4a654192329106275f4c7b24d0b6e\nx-amz-date:20150830T123600Z\n\ncontent-"
        "length;content-type;host;x-amz-content-sha256;x-amz-"
        "date\n9095672bbd1f56dfc5b65f3e153adc8731a4a654192329106275f4c7b24d0b6e"},
};

TEST(canonicalRequestTest, publishedCases)
{
    for (const CPublishedCase& one : publishedCases) {
        const std::string url = std::string("https://example.amazonaws.com") + one.pathAndQuery;
        const auto parts = norla::splitS3URL(url);
        const std::string digest = one.canonical.substr(one.canonical.rfind('\n') + 1);
        EXPECT_EQ(CCanonicalRequest(one.method, parts, norla::canonicalQuery(parts.query), one.headers, digest).text,
            one.canonical)
            << one.name;
    }
}

} // namespace
