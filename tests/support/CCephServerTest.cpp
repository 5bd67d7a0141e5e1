#include "tests/support/CCephServer.h"

#include "tests/support/CTestCertificates.h"
#include "tests/support/runCurl.h"
#include "tests/support/signedS3Path.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

using support::CCephServer;
using support::runCurl;
using support::signedS3Path;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;

namespace {

/// @return the body of the answer, and its status behind it
std::string perform(const std::string& url, std::vector<std::string> arguments = {})
{
    arguments.insert(arguments.end(), {"-w", "%{http_code}", url});
    return runCurl(arguments).output();
}

std::string signedURL(const CCephServer& server, std::string_view method, std::string_view path)
{
    return "http://" + server.host() + signedS3Path(method, path, server.accessKeyId(), server.secretAccessKey());
}

std::string put(const CCephServer& server, std::string_view path, const std::string& body)
{
    return perform(signedURL(server, "PUT", path), {"-X", "PUT", "-H", "Content-Type:", "--data-binary", body});
}

std::string get(const CCephServer& server, std::string_view path)
{
    return perform(signedURL(server, "GET", path));
}

TEST(CCephServerTest, storesAndGivesBackAnObject)
{
    CCephServer server;
    server.makeBucket("bucket");
    EXPECT_EQ(put(server, "/bucket/folder/a%20key%2B", "0123456789"), "200");
    EXPECT_EQ(get(server, "/bucket/folder/a%20key%2B"), "0123456789200");
    EXPECT_THAT(get(server, "/bucket?prefix=folder/"), HasSubstr("<Key>folder/a key+</Key>"));
}

TEST(CCephServerTest, refusesAWrongSignature)
{
    CCephServer server;
    server.makeBucket("bucket");
    const std::string path = signedS3Path("GET", "/bucket", server.accessKeyId(), server.otherSecretAccessKey());
    EXPECT_THAT(perform("http://" + server.host() + path),
        AllOf(HasSubstr("<Code>SignatureDoesNotMatch</Code>"), EndsWith("403")));
}

TEST(CCephServerTest, deniesItsBucketsToTheOtherUser)
{
    CCephServer server;
    server.makeBucket("bucket");
    const auto listAsOther = [&](const std::string& bucket) {
        return perform("http://" + server.host()
            + signedS3Path("GET", bucket, server.otherAccessKeyId(), server.otherSecretAccessKey()));
    };
    EXPECT_THAT(listAsOther("/"), AllOf(HasSubstr("<ListAllMyBucketsResult"), EndsWith("200")));
    EXPECT_THAT(listAsOther("/bucket"), AllOf(HasSubstr("<Code>AccessDenied</Code>"), EndsWith("403")));
}

TEST(CCephServerTest, servesHTTPSWithATrustedCertificate)
{
    const CCephServer server;
    const std::string path = signedS3Path("GET", "/", server.accessKeyId(), server.secretAccessKey());
    const std::string url = "https://" + server.tlsHost() + path;
    const support::CTestCertificates& certificates = support::CTestCertificates::get();
    EXPECT_THAT(perform(url, {"--cacert", certificates.caFile()}), EndsWith("200"));
    EXPECT_EQ(perform(url, {"--cacert", certificates.otherCAFile()}), "000");
}

TEST(CCephServerTest, saysWhyThereIsNoBucket)
{
    CCephServer server;
    try {
        server.makeBucket("ab");
        FAIL() << "two letters are enough";
    } catch (const std::runtime_error& error) {
        EXPECT_THAT(error.what(), AllOf(HasSubstr("no bucket ab"), HasSubstr("InvalidBucketName")));
    }
}

TEST(CCephServerTest, logsUserAndPathAndStatus)
{
    CCephServer server;
    server.makeBucket("bucket");
    get(server, "/bucket/missing");
    server.waitUntilLogged(" HTTP/1.1\" 404 ");
    EXPECT_THAT(server.log(), testing::ContainsRegex("- first \\[[^\n]*\"GET /bucket/missing[^\n]*\" 404 "));
}

TEST(CCephServerTest, goesOnWithoutOneOfThreeStorageDaemons)
{
    CCephServer server({.storageDaemons = 3});
    server.makeBucket("bucket");
    const std::string path = "/bucket/key-";
    for (const char* number : {"0", "1", "2", "3"})
        ASSERT_EQ(put(server, path + number, number), "200");
    server.killStorageDaemon(1);
    for (const char* number : {"4", "5", "6", "7"})
        ASSERT_EQ(put(server, path + number, number), "200");
    const std::string list = get(server, "/bucket");
    for (const std::string number : {"0", "1", "2", "3", "4", "5", "6", "7"}) {
        ASSERT_EQ(get(server, path + number), number + "200");
        EXPECT_THAT(list, HasSubstr("<Key>key-" + number + "</Key>"));
    }
}

TEST(CCephServerTest, killsItsOnlyStorageDaemon)
{
    CCephServer server;
    server.makeBucket("bucket");
    server.killStorageDaemon(0);
    server.killStorageDaemon(0);
    EXPECT_EQ(runCurl({"--max-time", "1", signedURL(server, "GET", "/bucket")}).exitStatus(), 28);
}

TEST(CCephServerTest, eachHasBucketsOfItsOwn)
{
    CCephServer first;
    CCephServer second;
    first.makeBucket("bucket");
    EXPECT_THAT(get(first, "/bucket"), EndsWith("200"));
    EXPECT_THAT(get(second, "/bucket"), AllOf(HasSubstr("<Code>NoSuchBucket</Code>"), EndsWith("404")));
}

} // namespace
