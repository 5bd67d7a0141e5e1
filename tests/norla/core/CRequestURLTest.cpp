#include "norla/core/CRequestURL.h"

#include <gtest/gtest.h>

namespace {

using norla::CRequestURL;

struct CSchemeCase {
    const char* name;
    const char* url;
    const char* scheme;
    const char* domain;
};

class CRequestURLSchemeTest : public testing::TestWithParam<CSchemeCase> {};

TEST_P(CRequestURLSchemeTest, tellsTheProtocol)
{
    const CRequestURL url(kx::String::fromLatin1(GetParam().url));
    EXPECT_EQ(url.getScheme(), kx::String::fromLatin1(GetParam().scheme));
    EXPECT_EQ(url.getResponseCodeDomain(), kx::String::fromLatin1(GetParam().domain));
    EXPECT_EQ(url.isHTTP(), std::string(GetParam().domain) == "http");
    EXPECT_EQ(url.isMail(), std::string(GetParam().domain) == "smtp");
}

TEST_P(CRequestURLSchemeTest, tellsSSHByItsText)
{
    CRequestURL url(kx::String::fromLatin1(GetParam().url));
    const std::string scheme = GetParam().scheme;
    EXPECT_EQ(url.isSSH(), scheme == "sftp" || scheme == "scp");
    url.setSpoken(url.isSSH() ? "http" : "sftp");
    EXPECT_EQ(url.isSSH(), scheme == "sftp" || scheme == "scp");
}

INSTANTIATE_TEST_SUITE_P(All, CRequestURLSchemeTest,
    testing::Values(CSchemeCase{"http", "http://host/", "http", "http"},
        CSchemeCase{"https", "https://host/", "https", "http"}, CSchemeCase{"ftp", "ftp://host/", "ftp", "ftp"},
        CSchemeCase{"ftps", "ftps://host/", "ftps", "ftp"}, CSchemeCase{"sftp", "sftp://host/", "sftp", "ftp"},
        CSchemeCase{"scp", "scp://host/", "scp", ""}, CSchemeCase{"SSHinCapitals", "SFTP://host/", "sftp", "ftp"},
        CSchemeCase{"smtp", "smtp://host/", "smtp", "smtp"}, CSchemeCase{"smtps", "smtps://host/", "smtps", "smtp"},
        CSchemeCase{"capitals", "HtTp://host/", "http", "http"}, CSchemeCase{"another", "file:///x", "file", ""},
        CSchemeCase{"longer", "httpx://host/", "httpx", ""}, CSchemeCase{"none", "host/path", "", ""},
        CSchemeCase{"onlyAName", "http", "", ""}, CSchemeCase{"port", "host:80/", "host", ""}),
    [](const testing::TestParamInfo<CSchemeCase>& tested) { return std::string(tested.param.name); });

TEST(CRequestURLTest, isEmptyAtFirst)
{
    const CRequestURL url;
    EXPECT_TRUE(url.toString().isEmpty());
    EXPECT_TRUE(url.getScheme().isEmpty());
    EXPECT_TRUE(url.getResponseCodeDomain().isEmpty());
    EXPECT_FALSE(url.isHTTP());
    EXPECT_FALSE(url.isMail());
    EXPECT_FALSE(url.isSSH());
}

TEST(CRequestURLTest, keepsItsText)
{
    EXPECT_EQ(CRequestURL("HTTP://Host/%7Ea").toString(), "HTTP://Host/%7Ea");
}

} // namespace
