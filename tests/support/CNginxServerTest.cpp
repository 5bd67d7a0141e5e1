#include "tests/support/CNginxServer.h"

#include "tests/support/CTestCertificates.h"
#include "tests/support/files.h"
#include "tests/support/runCurl.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using support::CNginxServer;
using support::CProcessRun;
using support::CTestCertificates;
using support::runCurl;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace {

class CNginxServerTest : public testing::Test {
protected:
    std::string get(std::string_view path) { return runCurl({server().url(path)}).output(); }

    std::string statusOf(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.end(), {"-o", "/dev/null", "-w", "%{http_code} %{redirect_url}"});
        return runCurl(arguments).output();
    }

    static CNginxServer& server()
    {
        static CNginxServer nginx;
        return nginx;
    }
};

TEST_F(CNginxServerTest, servesFilesAndRanges)
{
    EXPECT_EQ(get("/digits.txt"), "0123456789");
    EXPECT_EQ(server().lastAccess(), "GET /digits.txt HTTP/1.1 200 range=- length=- auth=-");
    EXPECT_EQ(runCurl({"-r", "3-6", server().url("/digits.txt")}).output(), "3456");
    EXPECT_EQ(server().lastAccess(), "GET /digits.txt HTTP/1.1 206 range=bytes=3-6 length=- auth=-");
    EXPECT_EQ(runCurl({"-r", "3-6", server().url("/noranges/digits.txt")}).output(), "0123456789");
}

TEST_F(CNginxServerTest, eachServerHasItsOwnLog)
{
    const CNginxServer other;
    EXPECT_THAT(other.accessLog(), ElementsAre());
    EXPECT_EQ(other.lastAccess(), "");
    runCurl({other.url("/a")});
    EXPECT_EQ(runCurl({other.url("/drop")}).exitStatus(), 52);
    EXPECT_THAT(other.accessLog(),
        ElementsAre("GET /a HTTP/1.1 404 range=- length=- auth=-", "GET /drop HTTP/1.1 444 range=- length=- auth=-"));
}

TEST_F(CNginxServerTest, servesHTTP2WithATrustedCertificate)
{
    const CProcessRun run = runCurl({"--cacert", CTestCertificates::get().caFile(), server().httpsURL("/digits.txt")});
    EXPECT_EQ(run.output(), "0123456789") << run.errors();
    EXPECT_EQ(server().lastAccess(), "GET /digits.txt HTTP/2.0 200 range=- length=- auth=-");
}

TEST_F(CNginxServerTest, hasCertificatesThatClientsRefuse)
{
    const CTestCertificates& certificates = CTestCertificates::get();
    EXPECT_THAT(runCurl({"--cacert", certificates.otherCAFile(), server().httpsURL()}).errors(),
        HasSubstr("unable to get local issuer certificate"));
    EXPECT_THAT(runCurl({"--cacert", certificates.caFile(), server().wrongHostURL()}).errors(),
        HasSubstr("no alternative certificate subject name matches"));
    EXPECT_THAT(runCurl({"--cacert", certificates.caFile(), server().expiredURL()}).errors(),
        HasSubstr("certificate has expired"));
}

TEST_F(CNginxServerTest, storesAndDeletesBelowDav)
{
    EXPECT_EQ(statusOf({"-T", server().root() / "digits.txt", server().url("/dav/new/digits.txt")}), "201 ");
    EXPECT_EQ(server().lastAccess(), "PUT /dav/new/digits.txt HTTP/1.1 201 range=- length=10 auth=-");
    EXPECT_EQ(support::readFile(server().root() / "dav/new/digits.txt"), "0123456789");
    EXPECT_EQ(statusOf({"-X", "DELETE", server().url("/dav/new/digits.txt")}), "204 ");
    EXPECT_FALSE(exists(server().root() / "dav/new/digits.txt"));
}

TEST_F(CNginxServerTest, acceptsPostedBodiesOnOneConnection)
{
    const std::string url = server().url("/post");
    const CProcessRun run = runCurl({"-d", "abc", url, url, "-w", "%{num_connects}\n"});
    EXPECT_EQ(run.output(), "POST 3\n1\nPOST 3\n0\n");
    EXPECT_EQ(runCurl({"-T", "-", url, "-X", "POST"}).output(), "POST 0\n");
    EXPECT_EQ(get("/echo"), "GET 0\n");
}

TEST_F(CNginxServerTest, acceptsAPostedBodyThatWaitsForContinue)
{
    const CProcessRun run = runCurl({"-v", "-H", "Expect: 100-continue", "-d", "abc", server().url("/post")});
    EXPECT_EQ(run.output(), "POST 3\n");
    EXPECT_THAT(run.errors(), HasSubstr("HTTP/1.1 100 Continue"));
}

TEST_F(CNginxServerTest, storesPostedBodies)
{
    EXPECT_EQ(statusOf({"-d", "posted", server().url("/store/name")}), "201 ");
    EXPECT_EQ(support::readFile(server().root() / "store/name"), "posted");
    EXPECT_EQ(server().lastAccess(), "POST /store/name HTTP/1.1 201 range=- length=6 auth=-");
}

TEST_F(CNginxServerTest, redirects)
{
    for (const char* code : {"301", "302", "303", "307", "308"})
        EXPECT_EQ(statusOf({server().url(std::string("/redirect/") + code)}), code + (" " + server().url("/echo")));
    EXPECT_EQ(runCurl({"-L", server().url("/chain/3"), "-w", " %{num_redirects}"}).output(), "0123456789 3");
    EXPECT_EQ(runCurl({"-L", "--max-redirs", "5", server().url("/loop")}).exitStatus(), 47);
}

TEST_F(CNginxServerTest, asksForBasicAuthentication)
{
    EXPECT_EQ(statusOf({server().url("/private/digits.txt")}), "401 ");
    EXPECT_EQ(runCurl({"-u", "user:secret", server().url("/private/digits.txt")}).output(), "0123456789");
    EXPECT_EQ(server().lastAccess(), "GET /private/digits.txt HTTP/1.1 200 range=- length=- auth=user");
}

TEST_F(CNginxServerTest, answersWithStatusAndBody)
{
    const CProcessRun missing = runCurl({"-i", server().url("/status/404")});
    EXPECT_THAT(missing.output(), HasSubstr("\r\nContent-Type: text/html\r\n"));
    EXPECT_THAT(missing.output(), HasSubstr("\r\n\r\n<html><body><h1>Not here</h1></body></html>"));
    EXPECT_EQ(statusOf({server().url("/status/500")}), "500 ");
    EXPECT_EQ(statusOf({server().url("/status/503")}), "503 ");
    EXPECT_EQ(runCurl({server().url("/drop")}).exitStatus(), 52);
}

TEST_F(CNginxServerTest, answersWithRepeatedHeaders)
{
    const std::string answer = runCurl({"-i", server().url("/headers")}).output();
    EXPECT_THAT(answer, HasSubstr("X-Repeated: one\r\nX-Repeated: two\r\n"));
    EXPECT_THAT(answer, HasSubstr("X-Header-10: value 10\r\n"));
    EXPECT_THAT(answer, HasSubstr("\r\n\r\nheaders\n"));
}

TEST_F(CNginxServerTest, compressesIfAsked)
{
    const std::string url = server().url("/gzip/text.txt");
    EXPECT_THAT(runCurl({"-i", url}).output(), Not(HasSubstr("Content-Encoding")));
    EXPECT_EQ(runCurl({"--compressed", url}).output(), std::string(10'000, 'g'));
    EXPECT_EQ(runCurl({"-H", "Accept-Encoding: gzip", "-I", url, "-X", "GET", "-o", "/dev/null", "-w",
                          "%header{content-encoding}"})
                  .output(),
        "gzip");
}

TEST_F(CNginxServerTest, servesBigAndSlowFiles)
{
    const CProcessRun big
        = runCurl({server().url(server().big(50'000'000)), "-o", "/dev/null", "-w", "%{size_download}"});
    EXPECT_EQ(big.output(), "50000000");
    const CProcessRun slow
        = runCurl({"-m", "1", server().url("/slow.bin"), "-o", "/dev/null", "-w", "%{size_download}"});
    EXPECT_EQ(slow.exitStatus(), 28);
    EXPECT_LT(std::stoul(slow.output()), 100'000U);
}

} // namespace
