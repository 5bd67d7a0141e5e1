// HTTP and HTTPS against nginx; digest authentication against Apache.
#include "norla/core/CAcceptEncoding.h"
#include "norla/core/CCookieJar.h"
#include "norla/core/CNetHeaders.h"
#include "norla/http/CServerInfo.h"
#include "tests/live/liveRequest.h"
#include "tests/support/CApacheServer.h"
#include "tests/support/CNginxServer.h"
#include "tests/support/CTestCertificates.h"
#include "tests/support/libcurlWords.h"

#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <sstream>
#include <thread>
#include <vector>

namespace {

using live::bodyOf;
using live::messageOf;
using live::requestFor;

std::string contentOf(const std::filesystem::path& file)
{
    std::ifstream in(file, std::ios::binary);
    return (std::ostringstream() << in.rdbuf()).str();
}

class NginxTest : public testing::Test {
protected:
    static void SetUpTestSuite() { s_server = std::make_unique<support::CNginxServer>(); }
    static void TearDownTestSuite() { s_server.reset(); }

    static support::CNginxServer& server() { return *s_server; }

private:
    static inline std::unique_ptr<support::CNginxServer> s_server;
};

TEST_F(NginxTest, getAnswersTheFile)
{
    const auto request = requestFor(server().url("/digits.txt"));
    request->perform();
    EXPECT_EQ(bodyOf(*request), "0123456789");
    EXPECT_EQ(request->getResponseCode(), 200);
    EXPECT_EQ(request->getDownloadSize(), 10);
    EXPECT_EQ(server().lastAccess(), "GET /digits.txt HTTP/1.1 200 range=- length=- auth=-");
}

TEST_F(NginxTest, cookieJarIsUsedByManyThreads)
{
    constexpr int threadCount = 4;
    constexpr int transfers = 20;
    const auto jar = kx::newObj<norla::CCookieJar>();
    std::atomic<int> sent{0};
    const auto transferOften = [&] {
        const auto request = requestFor(server().url("/cookies"));
        request->setCookieJar(jar.get());
        for (int i = 0; i < transfers; ++i) {
            request->perform();
            sent += bodyOf(*request) == "visit=yes\n" ? 1 : 0;
            jar->getCookies();
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < threadCount; ++i)
        threads.emplace_back(transferOften);
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(jar->getCookies().size(), 1U);
    EXPECT_GE(sent, threadCount * (transfers - 1)) << "all but the first of each thread";
}

TEST_F(NginxTest, rangeRequestAnswersOnlyThatRange)
{
    const auto request = requestFor(server().url("/digits.txt"));
    request->setRange(3, 4);
    request->perform();
    EXPECT_EQ(bodyOf(*request), "3456");
    EXPECT_EQ(server().lastAccess(), "GET /digits.txt HTTP/1.1 206 range=bytes=3-6 length=- auth=-");
}

TEST_F(NginxTest, openRangeAnswersUpToTheEnd)
{
    const auto request = requestFor(server().url("/digits.txt"));
    request->setRange(7, -1);
    request->perform();
    EXPECT_EQ(bodyOf(*request), "789");
    EXPECT_EQ(request->getResponseHeaderMap().at("content-range"), "bytes 7-9/10");
}

TEST_F(NginxTest, rangeBeyondTheEndIsAnError)
{
    const auto request = requestFor(server().url("/digits.txt"));
    request->setRange(100, 10);
    EXPECT_EQ(messageOf(*request), "HTTP response code said error (response code: http 416)");
}

TEST_F(NginxTest, serverThatIgnoresRangesAnswersEverything)
{
    const auto request = requestFor(server().url("/noranges/digits.txt"));
    request->setRange(3, 4);
    request->perform();
    EXPECT_EQ(bodyOf(*request), "0123456789");
}

TEST_F(NginxTest, headAnswersNoBody)
{
    const auto request = requestFor(server().url("/digits.txt"));
    request->setHTTPMethod("HEAD");
    request->perform();
    EXPECT_EQ(bodyOf(*request), "");
    EXPECT_EQ(request->getResponseHeaderMap().at("content-length"), "10");
    EXPECT_EQ(server().lastAccess(), "HEAD /digits.txt HTTP/1.1 200 range=- length=- auth=-");
}

TEST_F(NginxTest, putStoresTheBody)
{
    const auto request = requestFor(server().url("/dav/new/folder/text.txt"));
    request->setSendDataAsUTF8(L"gr\u00FCn");
    request->setHTTPMethod("PUT");
    request->perform();
    EXPECT_EQ(request->getResponseCode(), 201);
    EXPECT_EQ(contentOf(server().root() / "dav/new/folder/text.txt"), "gr\xC3\xBCn");
}

TEST_F(NginxTest, deleteAfterPutRemovesTheFile)
{
    const auto request = requestFor(server().url("/dav/short-lived.txt"));
    request->setSendDataAsUTF8("text");
    request->setHTTPMethod("PUT");
    request->perform();
    request->setHTTPMethod("DELETE");
    request->perform();
    EXPECT_FALSE(std::filesystem::exists(server().root() / "dav/short-lived.txt"));
    EXPECT_EQ(server().lastAccess(), "DELETE /dav/short-lived.txt HTTP/1.1 204 range=- length=- auth=-");
}

TEST_F(NginxTest, aLargeBodyArrivesWhole)
{
    norla::CNetRequest::Buffer large(20u << 20);
    for (size_t i = 0; i < large.getSize(); ++i)
        large.getData()[i] = static_cast<unsigned char>(i * 31 % 251);
    const auto request = requestFor(server().url("/dav/large.bin"));
    request->setSendDataBuffer(&large);
    request->setHTTPMethod("PUT");
    request->perform();
    request->setHTTPMethod("GET");
    request->perform();
    ASSERT_EQ(request->getDefaultReceiveBuffer()->getSize(), large.getSize());
    EXPECT_EQ(std::memcmp(request->getDefaultReceiveBuffer()->getData(), large.getData(), large.getSize()), 0);
}

TEST_F(NginxTest, postSendsItsBody)
{
    const auto request = requestFor(server().url("/post"));
    request->setSendDataAsUTF8("12345");
    request->setHTTPMethod("POST");
    request->perform();
    EXPECT_EQ(bodyOf(*request), "POST 5\n");
}

TEST_F(NginxTest, bodyOfUnknownSizeIsSentInChunks)
{
    const auto buffer = kx::newObj<norla::CNetRequest::Buffer>();
    buffer->append(reinterpret_cast<const unsigned char*>("chunks"), 6);
    const auto request = requestFor(server().url("/store/chunks.txt"));
    request->setSendDataStream(kx::newObj<kx::CBufferStream>(buffer).get());
    request->setHTTPMethod("PUT");
    request->perform();
    EXPECT_EQ(contentOf(server().root() / "store/chunks.txt"), "chunks");
}

class RedirectTest : public NginxTest, public testing::WithParamInterface<const char*> {};

TEST_P(RedirectTest, keepsAPOSTAsAskedFor)
{
    const auto request = requestFor(server().url(std::string("/redirect/") + GetParam()));
    request->setSendDataAsUTF8("12345");
    request->setHTTPMethod("POST");
    request->setKeepPostOnRedirect(true);
    request->perform();
    // 303 asks for a GET, and libcurl is told to keep the POST there too.
    EXPECT_EQ(bodyOf(*request), "POST 5\n");
}

INSTANTIATE_TEST_SUITE_P(All, RedirectTest, testing::Values("301", "302", "303", "307", "308"),
    [](const testing::TestParamInfo<const char*>& status) { return std::string(status.param); });

TEST_F(NginxTest, redirectTurnsAPOSTIntoAGETUnlessAskedOtherwise)
{
    const auto request = requestFor(server().url("/redirect/302"));
    request->setSendDataAsUTF8("12345");
    request->setHTTPMethod("POST");
    request->perform();
    EXPECT_TRUE(bodyOf(*request).starts_with("GET ")) << bodyOf(*request);
}

TEST_F(NginxTest, chainOfRedirectsIsFollowed)
{
    const auto request = requestFor(server().url("/chain/3"));
    request->perform();
    EXPECT_EQ(bodyOf(*request), "0123456789");
    EXPECT_EQ(request->getResponseHeaderMap().count("location"), 0u);
}

TEST_F(NginxTest, endlessRedirectEnds)
{
    const auto request = requestFor(server().url("/loop"));
    request->setOptionInt(CURLOPT_MAXREDIRS, 5);
    EXPECT_EQ(messageOf(*request),
        "Number of redirects hit maximum amount: Maximum (5) redirects followed (response code: http 302)");
}

TEST_F(NginxTest, basicAuthenticationOpensAPrivateFile)
{
    const auto request = requestFor(server().url("/private/digits.txt"));
    request->setUserName("user");
    request->setUserPassword("secret");
    request->perform();
    EXPECT_EQ(bodyOf(*request), "0123456789");
    EXPECT_EQ(server().lastAccess(), "GET /private/digits.txt HTTP/1.1 200 range=- length=- auth=user");
}

TEST_F(NginxTest, wrongPasswordIsToldWithTheServersOwnWords)
{
    const auto request = requestFor(server().url("/private/digits.txt"));
    request->setUserName("user");
    request->setUserPassword("wrong");
    const auto error = live::failureOf(*request);
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getProps().get("responseCode"), "401");
    EXPECT_TRUE(error->getProps().get("serverMessage").startsWith("401 Authorization Required"))
        << error->getProps().get("serverMessage");
}

TEST_F(NginxTest, missingFileIsToldWithTheServersOwnWords)
{
    const auto request = requestFor(server().url("/status/404"));
    const auto error = live::failureOf(*request);
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getMessage(), "HTTP response code said error (response code: http 404)");
    EXPECT_EQ(error->getProps().get("serverMessage"), "Not here");
}

TEST_F(NginxTest, connectionThatIsDroppedIsAnError)
{
    const auto request = requestFor(server().url("/drop"));
    EXPECT_EQ(messageOf(*request), "Server returned nothing (no headers, no data): Empty reply from server");
}

TEST_F(NginxTest, slowTransferIsEndedByItsTimeLimit)
{
    const auto request = requestFor(server().url("/slow.bin"));
    request->setFullRequestTimeout(kx::CTimeSpan::fromMilliseconds(300));
    EXPECT_EQ(live::failureOf(*request)->getCode(), CURLE_OPERATION_TIMEDOUT);
}

TEST_F(NginxTest, compressedAnswerIsReadWhenAskedFor)
{
    const auto request = requestFor(server().url("/gzip/text.txt"));
    request->setOptionString(CURLOPT_ACCEPT_ENCODING, "gzip");
    request->perform();
    EXPECT_EQ(bodyOf(*request).size(), 10'000u);
    EXPECT_EQ(request->getResponseHeaderMap().at("content-encoding"), "gzip");
    EXPECT_LT(request->getDownloadedBytes(), 10'000);
}

TEST_F(NginxTest, anyCompressedAnswerIsAskedForAndRead)
{
    const auto request = requestFor(server().url("/gzip/text.txt"));
    request->setAcceptEncoding({.maxSize = 10'000});
    request->perform();
    EXPECT_EQ(bodyOf(*request), std::string(10'000, 'g'));
    EXPECT_EQ(request->getResponseHeaderMap().at("content-encoding"), "gzip");
}

TEST_F(NginxTest, repeatedHeadersAreJoined)
{
    const auto request = requestFor(server().url("/headers"));
    request->perform();
    EXPECT_EQ(request->getResponseHeaderMap().at("x-repeated"), "one,two");
    EXPECT_EQ(request->getResponseHeaderMap().at("x-header-10"), "value 10");
}

TEST_F(NginxTest, serverInfoLearnsTheServer)
{
    const auto info = kx::newObj<norla::CServerInfo>();
    const auto request = requestFor(server().url("/digits.txt"));
    request->setServerInfoToUpdate(info.get());
    request->perform();
    EXPECT_TRUE(info->getServerHeader().startsWith("nginx/")) << info->getServerHeader();
    EXPECT_FALSE(info->areGetRangesBroken());
}

kx::P<norla::CNetRequest> secureRequestFor(const std::string& url, const std::filesystem::path& authority)
{
    auto request = requestFor(url);
    request->setRootCertBundlePath(norla::CNetRequest::Path::fromBytes(authority.native()));
    return request;
}

const support::CTestCertificates& certificates()
{
    return support::CTestCertificates::get();
}

TEST_F(NginxTest, rightAuthorityPasses)
{
    const auto request = secureRequestFor(server().httpsURL("/digits.txt"), certificates().caFile());
    request->perform();
    EXPECT_EQ(bodyOf(*request), "0123456789");
}

TEST_F(NginxTest, https2IsSpokenWhereTheServerOffersIt)
{
    const auto request = secureRequestFor(server().httpsURL("/digits.txt"), certificates().caFile());
    request->perform();
    EXPECT_EQ(request->getInfoLong(CURLINFO_HTTP_VERSION), CURL_HTTP_VERSION_2_0);
    EXPECT_EQ(server().lastAccess(), "GET /digits.txt HTTP/2.0 200 range=- length=- auth=-");
    EXPECT_EQ(request->getResponseHeaderMap().at("content-length"), "10");
}

TEST_F(NginxTest, https1IsSpokenWhenAskedFor)
{
    const auto request = secureRequestFor(server().httpsURL("/digits.txt"), certificates().caFile());
    request->setOptionInt(CURLOPT_HTTP_VERSION, CURL_HTTP_VERSION_1_1);
    request->perform();
    EXPECT_EQ(server().lastAccess(), "GET /digits.txt HTTP/1.1 200 range=- length=- auth=-");
}

TEST_F(NginxTest, putOverHTTP2StoresTheBody)
{
    const auto request = secureRequestFor(server().httpsURL("/dav/h2.txt"), certificates().caFile());
    request->setSendDataAsUTF8("text");
    request->setHTTPMethod("PUT");
    request->perform();
    EXPECT_EQ(contentOf(server().root() / "dav/h2.txt"), "text");
}

TEST_F(NginxTest, unknownAuthorityIsNamedAsTheReason)
{
    const auto request = secureRequestFor(server().httpsURL("/digits.txt"), certificates().otherCAFile());
    EXPECT_EQ(messageOf(*request),
        "SSL peer certificate or SSH remote key was not OK: SSL certificate problem: unable to get local issuer "
        "certificate");
}

TEST_F(NginxTest, wrongHostNameIsNamedAsTheReason)
{
    const auto request = secureRequestFor(server().wrongHostURL("/digits.txt"), certificates().caFile());
    EXPECT_EQ(messageOf(*request),
        support::libcurlSays("SSL peer certificate or SSH remote key was not OK: SSL: no alternative certificate "
                             "subject name matches target host name '127.0.0.1'"));
}

TEST_F(NginxTest, expiredCertificateIsNamedAsTheReason)
{
    const auto request = secureRequestFor(server().expiredURL("/digits.txt"), certificates().caFile());
    EXPECT_EQ(messageOf(*request),
        "SSL peer certificate or SSH remote key was not OK: SSL certificate problem: certificate has expired");
}

TEST_F(NginxTest, unverifiedPeerPassesWhenAskedFor)
{
    const auto request = secureRequestFor(server().httpsURL("/digits.txt"), certificates().otherCAFile());
    request->setSSLVerifyPeer(false);
    request->perform();
    EXPECT_EQ(bodyOf(*request), "0123456789");
}

TEST_F(NginxTest, missingBundleIsNamed)
{
    const auto request = secureRequestFor(server().httpsURL("/digits.txt"), "/nowhere/ca.crt");
    EXPECT_EQ(messageOf(*request),
        "Problem with the SSL CA cert (path? access rights?): error setting certificate file: /nowhere/ca.crt");
}

TEST_F(NginxTest, requestIsUsableAfterEachFailure)
{
    const auto request = secureRequestFor(server().httpsURL("/digits.txt"), certificates().otherCAFile());
    EXPECT_NE(live::failureOf(*request), nullptr);
    request->setRootCertBundlePath(norla::CNetRequest::Path::fromBytes(certificates().caFile().native()));
    request->perform();
    EXPECT_EQ(bodyOf(*request), "0123456789");
}

class ApacheTest : public testing::Test {
protected:
    support::CApacheServer m_server;
};

TEST_F(ApacheTest, digestAuthenticationOpensAPrivateFile)
{
    const auto request = requestFor(m_server.url("/digest/digits.txt"));
    request->setHTTPAuthMethods(CURLAUTH_DIGEST);
    request->setUserName("user");
    request->setUserPassword("secret");
    request->perform();
    EXPECT_EQ(bodyOf(*request), "0123456789");
    EXPECT_EQ(m_server.accessLog().back(), "GET /digest/digits.txt HTTP/1.1 200 auth=user");
}

TEST_F(ApacheTest, digestAuthenticationSendsTheBodyOfAPUT)
{
    const auto request = requestFor(m_server.url("/digest/new.txt"));
    request->setHTTPAuthMethods(CURLAUTH_DIGEST);
    request->setUserName("user");
    request->setUserPassword("secret");
    request->setSendDataAsUTF8("text");
    request->setHTTPMethod("PUT");
    request->perform();
    request->setHTTPMethod("GET");
    request->perform();
    EXPECT_EQ(bodyOf(*request), "text");
}

TEST_F(ApacheTest, wrongDigestPasswordIsAnError)
{
    const auto request = requestFor(m_server.url("/digest/digits.txt"));
    request->setHTTPAuthMethods(CURLAUTH_DIGEST);
    request->setUserName("user");
    request->setUserPassword("wrong");
    EXPECT_EQ(messageOf(*request), "HTTP response code said error (response code: http 401)");
}

} // namespace
