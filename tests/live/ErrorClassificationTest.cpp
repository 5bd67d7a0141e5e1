// What kind of failure it is, asked of the errors that transfers really end with.
#include "norla/http/util.h"
#include "tests/live/liveRequest.h"
#include "tests/support/CNginxServer.h"
#include "tests/support/CRefusedPort.h"
#include "tests/support/CScriptedServer.h"
#include "tests/support/CTestCertificates.h"

#include <gtest/gtest.h>

namespace {

struct CExpectedError {
    int code;
    bool isDown;
    int status;
};

void expectFailure(norla::CNetRequest& request, const CExpectedError& expected)
{
    const auto error = live::failureOf(request);
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getDomain(), "curl");
    EXPECT_EQ(error->getCode(), expected.code) << error->getMessage();
    EXPECT_EQ(norla::isNetworkOrServiceDownError(*error), expected.isDown) << error->getMessage();
    EXPECT_EQ(norla::getHTTPStatusCodeFromError(*error), expected.status) << error->getMessage();
}

// A label of a host name has at most 63 letters (RFC 1035 section 2.3.4): no name server is asked for such a name.
std::string unknownHost()
{
    return std::string(64, 'x') + ".invalid";
}

kx::P<norla::CNetRequest> shortRequestFor(const std::string& url)
{
    auto request = live::requestFor(url);
    request->setFullRequestTimeout(kx::CTimeSpan::fromMilliseconds(300));
    return request;
}

TEST(LiveErrorTest, refusedConnectionMeansDown)
{
    const support::CRefusedPort port;
    expectFailure(*live::requestFor(port.url()), {.code = CURLE_COULDNT_CONNECT, .isDown = true, .status = -1});
    expectFailure(
        *live::requestFor(port.url("/", "ftp")), {.code = CURLE_COULDNT_CONNECT, .isDown = true, .status = -1});
    expectFailure(
        *live::requestFor(port.url("/", "smtp")), {.code = CURLE_COULDNT_CONNECT, .isDown = true, .status = -1});
}

TEST(LiveErrorTest, unknownHostMeansDown)
{
    expectFailure(*live::requestFor("http://" + unknownHost() + "/"),
        {.code = CURLE_COULDNT_RESOLVE_HOST, .isDown = true, .status = -1});
}

TEST(LiveErrorTest, unknownProxyMeansDown)
{
    const auto request = live::requestFor("http://127.0.0.1/");
    request->setProxy(kx::String::fromUTF8(unknownHost()));
    expectFailure(*request, {.code = CURLE_COULDNT_RESOLVE_PROXY, .isDown = true, .status = -1});
}

TEST(LiveErrorTest, peerWithoutTLSMeansDown)
{
    support::CScriptedServer server;
    server.onConnection().send("no TLS here\r\n").readToEnd();
    expectFailure(
        *live::requestFor(server.url("/", "https")), {.code = CURLE_SSL_CONNECT_ERROR, .isDown = true, .status = -1});
}

TEST(LiveErrorTest, wrongCertificateDoesNotMeanDown)
{
    support::CScriptedServer server;
    const auto& certificates = support::CTestCertificates::get();
    server.onConnection().startTLS(certificates.serverCertificate(), certificates.serverKey());
    const auto request = live::requestFor(server.url("/", "https"));
    request->setRootCertBundlePath(norla::CNetRequest::Path::fromBytes(certificates.otherCAFile().native()));
    expectFailure(*request, {.code = CURLE_PEER_FAILED_VERIFICATION, .isDown = false, .status = -1});
}

TEST(LiveErrorTest, statusOfNginxIsTold)
{
    const support::CNginxServer server;
    expectFailure(*live::requestFor(server.url("/status/503")),
        {.code = CURLE_HTTP_RETURNED_ERROR, .isDown = true, .status = 503});
    expectFailure(*live::requestFor(server.url("/status/500")),
        {.code = CURLE_HTTP_RETURNED_ERROR, .isDown = false, .status = 500});
    expectFailure(*live::requestFor(server.url("/status/404")),
        {.code = CURLE_HTTP_RETURNED_ERROR, .isDown = false, .status = 404});
}

TEST(LiveErrorTest, redirectThatIsNotFollowedIsTold)
{
    const support::CNginxServer server;
    const auto request = live::requestFor(server.url("/redirect/302"));
    request->setFollowRedirects(false);
    expectFailure(*request, {.code = CURLE_HTTP_RETURNED_ERROR, .isDown = false, .status = 302});
}

TEST(LiveErrorTest, endlessRedirectHasNoStatus)
{
    const support::CNginxServer server;
    const auto request = live::requestFor(server.url("/loop"));
    request->setOptionInt(CURLOPT_MAXREDIRS, 2);
    expectFailure(*request, {.code = CURLE_TOO_MANY_REDIRECTS, .isDown = false, .status = -1});
}

// libcurl takes a 421 for a time-out of the server's, whenever it comes.
TEST(LiveErrorTest, ftpServerThatIsFullMeansDown)
{
    support::CScriptedServer server;
    server.onConnection().send("421 Too many users\r\n").readToEnd();
    expectFailure(
        *live::requestFor(server.url("/a", "ftp")), {.code = CURLE_OPERATION_TIMEDOUT, .isDown = true, .status = -1});
}

TEST(LiveErrorTest, ftpServerThatClosesDownMeansDown)
{
    support::CScriptedServer server;
    server.onConnection().send("220 here\r\n").readUntil("\r\n").send("421 Closing down\r\n").readToEnd();
    expectFailure(
        *live::requestFor(server.url("/a", "ftp")), {.code = CURLE_OPERATION_TIMEDOUT, .isDown = true, .status = -1});
}

TEST(LiveErrorTest, wrongFTPPasswordDoesNotMeanDown)
{
    support::CScriptedServer server;
    server.onConnection().send("220 here\r\n").readUntil("\r\n").send("530 Who?\r\n").readToEnd();
    expectFailure(
        *live::requestFor(server.url("/a", "ftp")), {.code = CURLE_LOGIN_DENIED, .isDown = false, .status = -1});
}

TEST(LiveErrorTest, mailServerThatIsFullDoesNotMeanDown)
{
    support::CScriptedServer server;
    server.onConnection().send("421 Too many\r\n").readToEnd();
    expectFailure(
        *live::requestFor(server.url("/", "smtp")), {.code = CURLE_WEIRD_SERVER_REPLY, .isDown = false, .status = -1});
}

TEST(LiveErrorTest, silenceDoesNotMeanDown)
{
    support::CScriptedServer server;
    server.onConnection().readHead().stall();
    expectFailure(*shortRequestFor(server.url()), {.code = CURLE_OPERATION_TIMEDOUT, .isDown = false, .status = -1});
}

TEST(LiveErrorTest, silenceAfterSuccessHasNoStatus)
{
    support::CScriptedServer server;
    server.onConnection().readHead().send("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nhalf").stall();
    expectFailure(*shortRequestFor(server.url()), {.code = CURLE_OPERATION_TIMEDOUT, .isDown = false, .status = -1});
}

TEST(LiveErrorTest, silenceAfterAnErrorHasItsStatus)
{
    support::CScriptedServer server;
    server.onConnection().readHead().send("HTTP/1.1 503 Busy\r\nContent-Length: 9\r\n\r\nhalf").stall();
    server.onConnection().readHead().send("HTTP/1.1 404 No\r\nContent-Length: 9\r\n\r\nhalf").stall();
    expectFailure(*shortRequestFor(server.url()), {.code = CURLE_OPERATION_TIMEDOUT, .isDown = true, .status = 503});
    expectFailure(*shortRequestFor(server.url()), {.code = CURLE_OPERATION_TIMEDOUT, .isDown = false, .status = 404});
}

TEST(LiveErrorTest, bodyThatBreaksOffHasNoStatus)
{
    support::CScriptedServer server;
    server.onConnection().readHead().send("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nhalf");
    expectFailure(*live::requestFor(server.url()), {.code = CURLE_PARTIAL_FILE, .isDown = false, .status = -1});
}

} // namespace
