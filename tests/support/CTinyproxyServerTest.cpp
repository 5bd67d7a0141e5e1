#include "tests/support/CTinyproxyServer.h"

#include "tests/support/CNginxServer.h"
#include "tests/support/CTestCertificates.h"
#include "tests/support/runCurl.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using support::CNginxServer;
using support::CProcessRun;
using support::CTinyproxyServer;
using support::runCurl;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

TEST(CTinyproxyServerTest, passesRequestsOn)
{
    const CNginxServer nginx;
    const CTinyproxyServer proxy;
    const CProcessRun run = runCurl({"-x", "http://" + proxy.host(), nginx.url("/digits.txt")});
    EXPECT_EQ(run.output(), "0123456789") << run.errors();
    EXPECT_EQ(nginx.lastAccess(), "GET /digits.txt HTTP/1.1 200 range=- length=- auth=-");
    EXPECT_THAT(proxy.log(), HasSubstr("GET " + nginx.url("/digits.txt") + " HTTP/1.1\n"));
}

TEST(CTinyproxyServerTest, opensTunnels)
{
    const CNginxServer nginx;
    const CTinyproxyServer proxy;
    const std::string authority = support::CTestCertificates::get().caFile();
    const CProcessRun run
        = runCurl({"-x", "http://" + proxy.host(), "--cacert", authority, nginx.httpsURL("/digits.txt")});
    EXPECT_EQ(run.output(), "0123456789") << run.errors();
    EXPECT_EQ(nginx.lastAccess(), "GET /digits.txt HTTP/2.0 200 range=- length=- auth=-");
    EXPECT_THAT(proxy.log(), HasSubstr("CONNECT 127.0.0.1:" + std::to_string(nginx.getHTTPSPort()) + " HTTP/1.1\n"));
}

TEST(CTinyproxyServerTest, letsInWhoLogsIn)
{
    const CNginxServer nginx;
    const CTinyproxyServer proxy({.user = "user", .password = "secret"});
    const CProcessRun run = runCurl({"-x", "http://user:secret@" + proxy.host(), nginx.url("/digits.txt")});
    EXPECT_EQ(run.output(), "0123456789") << run.errors();
}

TEST(CTinyproxyServerTest, refusesAWrongLogin)
{
    const CNginxServer nginx;
    const CTinyproxyServer proxy({.user = "user", .password = "secret"});
    const auto statusOf = [&](const std::string& login) {
        return runCurl({"-x", "http://" + login + proxy.host(), "-o", "/dev/null", "-w", "%{http_code}", nginx.url()})
            .output();
    };
    EXPECT_EQ(statusOf(""), "407");
    EXPECT_EQ(statusOf("user:wrong@"), "401");
    EXPECT_EQ(statusOf("other:secret@"), "401");
    EXPECT_THAT(nginx.accessLog(), IsEmpty());
}

TEST(CTinyproxyServerTest, logsToItsOwnLog)
{
    const CNginxServer nginx;
    const CTinyproxyServer proxy;
    const CTinyproxyServer other;
    runCurl({"-x", "http://" + other.host(), nginx.url("/a")});
    other.waitUntilLogged("GET " + nginx.url("/a"));
    EXPECT_THAT(proxy.log(), testing::Not(HasSubstr("/a")));
}

} // namespace
