#include "tests/support/CMicrosocksServer.h"

#include "tests/support/CNginxServer.h"
#include "tests/support/CTestCertificates.h"
#include "tests/support/runCurl.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using support::CMicrosocksServer;
using support::CNginxServer;
using support::CProcessRun;
using support::runCurl;
using testing::IsEmpty;

namespace {

TEST(CMicrosocksServerTest, connectsToAddresses)
{
    const CNginxServer nginx;
    const CMicrosocksServer proxy;
    const CProcessRun run = runCurl({"-x", "socks5://" + proxy.host(), nginx.url("/digits.txt")});
    EXPECT_EQ(run.output(), "0123456789") << run.errors();
    EXPECT_EQ(nginx.lastAccess(), "GET /digits.txt HTTP/1.1 200 range=- length=- auth=-");
    proxy.waitUntilLogged(" 127.0.0.1: connected to 127.0.0.1:" + std::to_string(nginx.getPort()) + "\n");
}

TEST(CMicrosocksServerTest, connectsToNames)
{
    const CNginxServer nginx;
    const CMicrosocksServer proxy;
    const std::string target = "localhost:" + std::to_string(nginx.getPort());
    const CProcessRun run = runCurl({"-x", "socks5h://" + proxy.host(), "http://" + target + "/digits.txt"});
    EXPECT_EQ(run.output(), "0123456789") << run.errors();
    proxy.waitUntilLogged(" 127.0.0.1: connected to " + target + "\n");
}

TEST(CMicrosocksServerTest, carriesTLS)
{
    const CNginxServer nginx;
    const CMicrosocksServer proxy;
    const std::string authority = support::CTestCertificates::get().caFile();
    const CProcessRun run
        = runCurl({"-x", "socks5://" + proxy.host(), "--cacert", authority, nginx.httpsURL("/digits.txt")});
    EXPECT_EQ(run.output(), "0123456789") << run.errors();
    proxy.waitUntilLogged("connected to 127.0.0.1:" + std::to_string(nginx.getHTTPSPort()) + "\n");
}

TEST(CMicrosocksServerTest, letsInWhoLogsIn)
{
    const CNginxServer nginx;
    const CMicrosocksServer proxy({.user = "us@er", .password = "se:cret"});
    const CProcessRun run = runCurl({"-x", "socks5://us%40er:se%3Acret@" + proxy.host(), nginx.url("/digits.txt")});
    EXPECT_EQ(run.output(), "0123456789") << run.errors();
}

TEST(CMicrosocksServerTest, refusesAWrongLogin)
{
    const CNginxServer nginx;
    const CMicrosocksServer proxy({.user = "user", .password = "secret"});
    const auto statusOf = [&](const std::string& login) {
        return runCurl({"-x", "socks5://" + login + proxy.host(), nginx.url()}).exitStatus();
    };
    EXPECT_EQ(statusOf(""), 97);
    EXPECT_EQ(statusOf("user:wrong@"), 97);
    EXPECT_EQ(statusOf("other:secret@"), 97);
    EXPECT_THAT(nginx.accessLog(), IsEmpty());
    EXPECT_EQ(proxy.log(), "");
}

} // namespace
