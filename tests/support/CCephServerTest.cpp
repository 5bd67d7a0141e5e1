#include "tests/support/CCephServer.h"

#include "tests/support/runCurl.h"
#include "tests/support/signedS3Path.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using support::CCephServer;
using support::CProcessRun;
using support::runCurl;
using testing::HasSubstr;

namespace {

std::string signedURL(const CCephServer& server, std::string_view method, std::string_view path)
{
    return "http://" + server.host()
        + support::signedS3Path(method, path, server.accessKeyId(), server.secretAccessKey());
}

CProcessRun put(const CCephServer& server, std::string_view path, const std::string& body)
{
    return runCurl({"-f", "-T", "-", "-H", "Transfer-Encoding:", "-H", "Content-Length: " + std::to_string(body.size()),
                       signedURL(server, "PUT", path)},
        body);
}

std::string get(const CCephServer& server, std::string_view path)
{
    return runCurl({signedURL(server, "GET", path)}).output();
}

TEST(CCephServerTest, storesAndGivesBackAnObject)
{
    CCephServer server;
    server.makeBucket("bucket");
    EXPECT_EQ(put(server, "/bucket/folder/key%20+", "0123456789").errors(), "");
    EXPECT_EQ(get(server, "/bucket/folder/key%20+"), "0123456789");
    EXPECT_THAT(get(server, "/bucket?prefix=folder/"), HasSubstr("<Key>folder/key +</Key>"));
}

} // namespace
