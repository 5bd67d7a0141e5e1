#include "tests/support/CApacheServer.h"

#include "tests/support/files.h"
#include "tests/support/runCurl.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using support::CApacheServer;
using support::CProcessRun;
using support::runCurl;
using testing::ElementsAre;

namespace {

TEST(CApacheServerTest, wantsDigestAuthentication)
{
    const CApacheServer server;
    const std::string url = server.url("/digest/digits.txt");
    EXPECT_EQ(runCurl({"-o", "/dev/null", "-w", "%{http_code}", "-u", "user:secret", url}).output(), "401");
    EXPECT_EQ(runCurl({"--digest", "-u", "user:secret", url}).output(), "0123456789");
    EXPECT_THAT(server.accessLog(),
        ElementsAre("GET /digest/digits.txt HTTP/1.1 401 auth=-", "GET /digest/digits.txt HTTP/1.1 401 auth=-",
            "GET /digest/digits.txt HTTP/1.1 200 auth=user"));
}

TEST(CApacheServerTest, storesAfterDigestAuthentication)
{
    const CApacheServer server;
    const std::string file = server.root() / "digest/digits.txt";
    const CProcessRun run = runCurl({"--digest", "-u", "user:secret", "-T", file, server.url("/digest/new.txt")});
    EXPECT_EQ(run.exitStatus(), 0) << run.errors();
    EXPECT_EQ(support::readFile(server.root() / "digest/new.txt"), "0123456789");
}

} // namespace
