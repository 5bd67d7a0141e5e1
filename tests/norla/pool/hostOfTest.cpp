#include "norla/pool/hostOf.h"

#include "kx/text/String.h"

#include <gtest/gtest.h>

namespace {

std::string hostOf(const char* url)
{
    return norla::hostOf(kx::String::fromUTF8(url).toWide());
}

TEST(HostOfTest, isSchemeHostAndPort)
{
    EXPECT_EQ(hostOf("http://example.org:8080/path?query#part"), "http://example.org:8080");
}

TEST(HostOfTest, endsWhereThePathQueryOrFragmentBegins)
{
    EXPECT_EQ(hostOf("http://example.org"), "http://example.org");
    EXPECT_EQ(hostOf("http://example.org?query"), "http://example.org");
    EXPECT_EQ(hostOf("http://example.org#part"), "http://example.org");
}

TEST(HostOfTest, knowsNoCase)
{
    EXPECT_EQ(hostOf("HTTP://Example.ORG/Path"), "http://example.org");
}

TEST(HostOfTest, leavesOutTheLogin)
{
    EXPECT_EQ(hostOf("ftp://user:p@ss@example.org/"), "ftp://example.org");
}

TEST(HostOfTest, doesNotTakeAPathForALogin)
{
    EXPECT_EQ(hostOf("http://example.org/a@b"), "http://example.org");
}

TEST(HostOfTest, isWhatThereIsOfAnAddressWithoutAScheme)
{
    EXPECT_EQ(hostOf("example.org/path"), "example.org");
    EXPECT_EQ(hostOf(""), "");
}

} // namespace
