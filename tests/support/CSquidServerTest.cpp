#include "tests/support/CSquidServer.h"

#include "tests/support/CNginxServer.h"
#include "tests/support/CTestCertificates.h"
#include "tests/support/loopback.h"
#include "tests/support/runCurl.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <optional>

using support::CNginxServer;
using support::CProcessRun;
using support::CSquidServer;
using support::runCurl;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace {

TEST(CSquidServerTest, passesRequestsOn)
{
    const CNginxServer nginx;
    const CSquidServer proxy;
    const CProcessRun run = runCurl({"-x", "http://user:secret@" + proxy.host(), nginx.url("/digits.txt")});
    EXPECT_EQ(run.output(), "0123456789") << run.errors();
    EXPECT_EQ(nginx.lastAccess(), "GET /digits.txt HTTP/1.1 200 range=- length=- auth=-");
    proxy.waitUntilLogged("request: GET " + nginx.url("/digits.txt") + " 200 user=user\n");
}

TEST(CSquidServerTest, opensTunnels)
{
    const CNginxServer nginx;
    const CSquidServer proxy;
    const std::string authority = support::CTestCertificates::get().caFile();
    const CProcessRun run
        = runCurl({"-x", "http://user:secret@" + proxy.host(), "--cacert", authority, nginx.httpsURL("/digits.txt")});
    EXPECT_EQ(run.output(), "0123456789") << run.errors();
    EXPECT_EQ(nginx.lastAccess(), "GET /digits.txt HTTP/2.0 200 range=- length=- auth=-");
    proxy.waitUntilLogged("request: CONNECT 127.0.0.1:" + std::to_string(nginx.getHTTPSPort()) + " 200 user=user\n");
}

TEST(CSquidServerTest, passesBodiesOnAfterContinue)
{
    const CNginxServer nginx;
    const CSquidServer proxy;
    const std::string body(2'000'000, 'b');
    const CProcessRun run
        = runCurl({"-x", "http://user:secret@" + proxy.host(), "--data-binary", "@-", nginx.url("/post")}, body);
    EXPECT_EQ(run.output(), "POST 2000000\n") << run.errors();
}

TEST(CSquidServerTest, refusesAWrongLogin)
{
    const CNginxServer nginx;
    const CSquidServer proxy;
    const auto statusOf = [&](const std::string& login) {
        return runCurl({"-x", "http://" + login + proxy.host(), "-o", "/dev/null", "-w", "%{http_code}", nginx.url()})
            .output();
    };
    EXPECT_EQ(statusOf(""), "407");
    EXPECT_EQ(statusOf("user:wrong@"), "407");
    EXPECT_EQ(statusOf("other:secret@"), "407");
    EXPECT_THAT(nginx.accessLog(), IsEmpty());
    proxy.waitUntilLogged("request: GET " + nginx.url() + " 407 user=-\n");
    proxy.waitUntilLogged("request: GET " + nginx.url() + " 407 user=other\n");
}

TEST(CSquidServerTest, forbidsPort9)
{
    const CSquidServer proxy;
    const std::string url = "http://127.0.0.1:9/";
    const CProcessRun run
        = runCurl({"-x", "http://user:secret@" + proxy.host(), "-o", "/dev/null", "-w", "%{http_code}", url});
    EXPECT_EQ(run.output(), "403");
    proxy.waitUntilLogged("request: GET " + url + " 403 ");
}

TEST(CSquidServerTest, letsInAnyUserItIsToldOf)
{
    const CNginxServer nginx;
    const CSquidServer proxy({.user = "us@er", .password = "se:cret %"});
    const CProcessRun run = runCurl({"-x", "http://us%40er:se%3Acret%20%25@" + proxy.host(), nginx.url("/digits.txt")});
    EXPECT_EQ(run.output(), "0123456789") << run.errors();
}

TEST(CSquidServerTest, leavesNoSharedMemoryBehind)
{
    const CSquidServer proxy;
    const std::string start = "norla" + std::to_string(proxy.getPort());
    for (const auto& entry : std::filesystem::directory_iterator("/dev/shm"))
        EXPECT_THAT(entry.path().filename(), Not(StartsWith(start)));
}

TEST(CSquidServerTest, runsBesideAnotherAndStopsWhenTheObjectGoes)
{
    std::optional<CSquidServer> server(std::in_place);
    const CSquidServer other;
    const unsigned short port = server->getPort();
    EXPECT_TRUE(support::connectToLoopback(port));
    server.reset();
    EXPECT_FALSE(support::connectToLoopback(port));
    EXPECT_TRUE(support::connectToLoopback(other.getPort()));
}

} // namespace
