// Transfers through real proxies, as the user's settings say.
#include "norla/core/CNetStringList.h"
#include "norla/ftp/CFTPClient.h"
#include "norla/http/util.h"
#include "norla/proxy/CProxySettings.h"
#include "tests/live/liveRequest.h"
#include "tests/support/CFTPServer.h"
#include "tests/support/CMicrosocksServer.h"
#include "tests/support/CNginxServer.h"
#include "tests/support/CRefusedPort.h"
#include "tests/support/CSMTPServer.h"
#include "tests/support/CSSHServer.h"
#include "tests/support/CScriptedServer.h"
#include "tests/support/CSquidServer.h"
#include "tests/support/CTestCertificates.h"
#include "tests/support/CTinyproxyServer.h"
#include "tests/support/libcurlWords.h"
#include "tests/support/stringOf.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

namespace {

using live::bodyOf;
using live::messageOf;
using support::CMicrosocksServer;
using support::CNginxServer;
using support::CProxyServer;
using support::CSquidServer;
using support::CTinyproxyServer;
using support::stringOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

const CProxyServer::CLogin login{.user = "user", .password = "secret"};

std::string withPort(unsigned short port)
{
    return "127.0.0.1:" + std::to_string(port);
}

/// A server to be reached through a proxy, and one transfer with it.
struct CTarget {
    std::string url;
    unsigned short port;
    std::function<void(norla::CNetRequest&)> configure;
    /// What the transfer has carried.
    std::function<std::string(const norla::CNetRequest&)> carried = [](const auto& request) { return bodyOf(request); };
};

CTarget httpTarget(const char* scheme)
{
    const auto server = std::make_shared<CNginxServer>();
    if (std::string_view(scheme) == "http")
        return {server->url("/digits.txt"), server->getPort(), [server](auto&) {}};
    return {server->httpsURL("/digits.txt"), server->getHTTPSPort(), [server](auto&) {}};
}

CTarget ftpTarget(const char* scheme)
{
    using Security = support::CFTPServer::Security;
    const auto security = std::string_view(scheme) == "ftps" ? Security::Implicit : Security::None;
    const auto server = std::make_shared<support::CFTPServer>(security);
    return {server->url("/digits.txt"), server->getPort(), [server](auto& request) {
                request.setUserName("user");
                request.setUserPassword("secret");
            }};
}

CTarget sftpTarget(const char*)
{
    const auto server = std::make_shared<support::CSSHServer>();
    return {server->url((server->root() / "digits.txt").string()), server->getPort(), [server](auto& request) {
                request.setUserName(stringOf(server->userName()));
                request.setOptionString(CURLOPT_SSH_PRIVATE_KEYFILE, stringOf(server->privateKeyFile().string()));
            }};
}

CTarget smtpTarget(const char*)
{
    const auto server = std::make_shared<support::CSMTPServer>();
    const auto configure = [](norla::CNetRequest& request) {
        const auto recipients = kx::newObj<norla::CNetStringList>();
        recipients->add("to@example.invalid");
        request.keepObject(recipients.get());
        request.setOptionPtr(CURLOPT_MAIL_RCPT, recipients->getCurlList());
        request.setUpload(true);
        request.setSendDataAsUTF8("0123456789\r\n");
    };
    return {server->url(), server->getPort(), configure,
        [server](auto&) { return server->messages().at(0).body.substr(0, 10); }};
}

struct CScheme {
    const char* name;
    CTarget (*makeTarget)(const char* scheme);
};

enum class Kind { tinyproxy, squid, microsocks };

struct CWay {
    const char* name;
    Kind kind;
};

std::shared_ptr<CProxyServer> makeProxy(Kind kind)
{
    if (kind == Kind::tinyproxy)
        return std::make_shared<CTinyproxyServer>(login);
    if (kind == Kind::squid)
        return std::make_shared<CSquidServer>(login);
    return std::make_shared<CMicrosocksServer>(login);
}

/// With which the settings name the proxy.
std::string proxyText(Kind kind, const CProxyServer& proxy, const std::string& credentials = "user:secret@")
{
    return (kind == Kind::microsocks ? "socks5://" : "http://") + credentials + proxy.host();
}

/// What the proxy logs about a transfer that has ended.
std::string witness(Kind kind, const std::string& scheme, const CTarget& target)
{
    if (kind == Kind::microsocks)
        return "connected to " + withPort(target.port) + "\n";
    const bool isPassedOn = scheme == "http" || scheme == "ftp"; // the others are tunneled
    if (kind == Kind::tinyproxy)
        return isPassedOn ? "GET " + target.url + " HTTP/1.1\n" : "CONNECT " + withPort(target.port) + " HTTP/1.1\n";
    if (scheme == "ftp")
        return "request: GET ftp://user:secret@" + withPort(target.port) + "/digits.txt 200 user=user\n";
    return "request: " + (isPassedOn ? "GET " + target.url : "CONNECT " + withPort(target.port)) + " 200 user=user\n";
}

class ProxyTest : public testing::Test {
protected:
    // As a person's own environment may have it, see the last test.
    ProxyTest()
    {
        unsetenv("no_proxy");
        unsetenv("NO_PROXY");
    }
    ~ProxyTest() override { settings().clear(); }

    static norla::CProxySettings& settings() { return *norla::CProxySettings::getUserSettings(); }

    static kx::P<norla::CNetRequest> requestFor(const std::string& url)
    {
        auto request = live::requestFor(url);
        request->setRootCertBundlePath(
            norla::CNetRequest::Path::fromBytes(support::CTestCertificates::get().caFile().native()));
        request->setProxyForCurrentURLFromUserSettings();
        return request;
    }

    static std::string bodyFrom(const std::string& url)
    {
        const auto request = requestFor(url);
        request->perform();
        return bodyOf(*request);
    }

    static kx::P<kx::CError> failureFrom(const std::string& url)
    {
        auto error = live::failureOf(*requestFor(url));
        return error ? error : kx::newObj<kx::CError>("success");
    }
};

class SchemeTest : public ProxyTest, public testing::WithParamInterface<std::tuple<CScheme, CWay>> {};

TEST_P(SchemeTest, goesThroughTheProxyThatTheSettingsName)
{
    const auto& [scheme, way] = GetParam();
    const CTarget target = scheme.makeTarget(scheme.name);
    const auto proxy = makeProxy(way.kind);
    settings().addProxiesFromString(stringOf(std::string(scheme.name) + "=" + proxyText(way.kind, *proxy)));
    {
        const auto request = requestFor(target.url);
        target.configure(*request);
        request->perform();
        EXPECT_EQ(target.carried(*request), "0123456789");
    }
    proxy->waitUntilLogged(witness(way.kind, scheme.name, target));
}

const auto nameOfRow = [](const testing::TestParamInfo<std::tuple<CScheme, CWay>>& row) {
    return std::string(std::get<0>(row.param).name) + "_" + std::get<1>(row.param).name;
};

INSTANTIATE_TEST_SUITE_P(All, SchemeTest,
    testing::Combine(testing::Values(CScheme{"http", httpTarget}, CScheme{"https", httpTarget},
                         CScheme{"ftps", ftpTarget}, CScheme{"sftp", sftpTarget}, CScheme{"smtp", smtpTarget}),
        testing::Values(
            CWay{"tinyproxy", Kind::tinyproxy}, CWay{"squid", Kind::squid}, CWay{"microsocks", Kind::microsocks})),
    nameOfRow);

// Tinyproxy does not know FTP.
INSTANTIATE_TEST_SUITE_P(FTP, SchemeTest,
    testing::Combine(testing::Values(CScheme{"ftp", ftpTarget}),
        testing::Values(CWay{"squid", Kind::squid}, CWay{"microsocks", Kind::microsocks})),
    nameOfRow);

class WayTest : public ProxyTest, public testing::WithParamInterface<CWay> {
protected:
    std::string proxyText(const std::string& credentials = "user:secret@") const
    {
        return ::proxyText(GetParam().kind, *m_proxy, credentials);
    }

    void waitUntilLogged() const { m_proxy->waitUntilLogged(std::to_string(m_server.getPort())); }

    CNginxServer m_server;
    std::shared_ptr<CProxyServer> m_proxy = makeProxy(GetParam().kind);
};

INSTANTIATE_TEST_SUITE_P(All, WayTest,
    testing::Values(
        CWay{"tinyproxy", Kind::tinyproxy}, CWay{"squid", Kind::squid}, CWay{"microsocks", Kind::microsocks}),
    [](const testing::TestParamInfo<CWay>& row) { return row.param.name; });

TEST_P(WayTest, carriesALargeUpload)
{
    settings().addProxiesFromString(stringOf("http=" + proxyText()));
    const auto request = requestFor(m_server.url("/store/large.bin"));
    request->setSendDataAsUTF8(kx::String(std::wstring(3'000'000, L'x')));
    request->setHTTPMethod("PUT");
    request->perform();
    EXPECT_EQ(std::filesystem::file_size(m_server.root() / "store/large.bin"), 3'000'000u);
    waitUntilLogged();
}

TEST_P(WayTest, followsRedirects)
{
    settings().addProxiesFromString(stringOf("http=" + proxyText()));
    EXPECT_EQ(bodyFrom(m_server.url("/chain/3")), "0123456789");
    waitUntilLogged();
}

TEST_P(WayTest, servesManyRequestsOverOneTunnel)
{
    settings().addProxiesFromString(stringOf("https=" + proxyText()));
    {
        const auto request = requestFor(m_server.httpsURL("/digits.txt"));
        request->perform();
        request->perform();
        EXPECT_EQ(bodyOf(*request), "0123456789");
        EXPECT_EQ(request->getInfoLong(CURLINFO_NUM_CONNECTS), 0);
    }
    m_proxy->waitUntilLogged(withPort(m_server.getHTTPSPort()));
}

// The transfer after it is in the log, so that the log would have the direct one too.
TEST_P(WayTest, sendsNothingOfADirectHostToTheProxy)
{
    settings().addProxiesFromString(stringOf("http=" + proxyText()));
    settings().addDirectConnectHostsFromString("elsewhere; 127.0.0.1");
    EXPECT_EQ(bodyFrom(m_server.url("/digits.txt")), "0123456789");
    settings().removeDirectConnectHost("127.0.0.1");
    bodyFrom(m_server.url("/echo"));
    waitUntilLogged();
    const std::string log = m_proxy->log();
    EXPECT_THAT(log, Not(HasSubstr("digits.txt")));
    if (GetParam().kind == Kind::microsocks) {
        EXPECT_EQ(log.find("connected to"), log.rfind("connected to")) << log;
    }
}

TEST_P(WayTest, isNotUsedAnyMoreAfterTheSettingsAreCleared)
{
    settings().addProxiesFromString(stringOf("http=" + proxyText()));
    const auto request = requestFor(m_server.url("/echo"));
    request->perform();
    waitUntilLogged();
    settings().clear();
    m_proxy.reset();
    request->setProxyForCurrentURLFromUserSettings();
    request->perform();
    EXPECT_EQ(bodyOf(*request), "GET 0\n");
}

TEST_P(WayTest, refusesAWrongPasswordWithoutShowingIt)
{
    settings().addProxiesFromString(stringOf("http=" + proxyText("user:wr0ng@")));
    const auto error = failureFrom(m_server.url("/digits.txt"));
    EXPECT_THAT(error->what(), Not(HasSubstr("success")));
    EXPECT_THAT(error->what(), Not(HasSubstr("wr0ng")));
    EXPECT_EQ(error->getProps().get("serverMessage").find("wr0ng"), kx::String::npos);
    EXPECT_THAT(m_server.accessLog(), IsEmpty());
}

TEST_P(WayTest, isNotPassedByWhenItWantsALogin)
{
    settings().addProxiesFromString(stringOf("http=" + proxyText("") + ";https=" + proxyText("")));
    EXPECT_NE(messageOf(*requestFor(m_server.url("/digits.txt"))), "success");
    EXPECT_NE(messageOf(*requestFor(m_server.httpsURL("/digits.txt"))), "success");
    EXPECT_THAT(m_server.accessLog(), IsEmpty());
}

class SquidTest : public ProxyTest {
protected:
    void use(const std::string& credentials)
    {
        const std::string proxy = "http://" + credentials + m_proxy.host();
        settings().addProxiesFromString(stringOf("http=" + proxy + " https=" + proxy + " ftp=" + proxy));
    }

    CNginxServer m_server;
    CSquidServer m_proxy;
};

TEST_F(SquidTest, asksForALoginWithItsOwnWords)
{
    use("");
    const auto error = failureFrom(m_server.url("/digits.txt"));
    EXPECT_EQ(error->getMessage(), "HTTP response code said error (response code: http 407)");
    EXPECT_THAT(error->getProps().get("serverMessage").toUTF8(), HasSubstr("until you have authenticated yourself"));
    m_proxy.waitUntilLogged("request: GET " + m_server.url("/digits.txt") + " 407 user=-\n");
}

TEST_F(SquidTest, asksForALoginBeforeATunnel)
{
    use("");
    const auto request = requestFor(m_server.httpsURL("/digits.txt"));
    EXPECT_EQ(messageOf(*request), "Failure when receiving data from the peer: CONNECT tunnel failed, response 407");
    EXPECT_EQ(request->getInfoLong(CURLINFO_HTTP_CONNECTCODE), 407);
}

TEST_F(SquidTest, takesEscapedLogins)
{
    const CSquidServer proxy({.user = "us@er", .password = "se;cr,et =%"});
    settings().addProxiesFromString(stringOf("http=http://us%40er:se%3Bcr%2Cet%20=%25@" + proxy.host()));
    EXPECT_EQ(bodyFrom(m_server.url("/digits.txt")), "0123456789");
    proxy.waitUntilLogged("request: GET " + m_server.url("/digits.txt") + " 200 user=us");
}

TEST_F(SquidTest, tellsThatItForbidsTheTarget)
{
    use("user:secret@");
    const auto error = failureFrom("http://127.0.0.1:9/");
    EXPECT_EQ(error->getMessage(), "HTTP response code said error (response code: http 403)");
    EXPECT_THAT(error->getProps().get("serverMessage").toUTF8(), HasSubstr("Access Denied"));
    m_proxy.waitUntilLogged("request: GET http://127.0.0.1:9/ 403 ");
}

TEST_F(SquidTest, tellsThatItForbidsATunnel)
{
    use("user:secret@");
    EXPECT_EQ(failureFrom("https://127.0.0.1:9/")->getMessage(),
        "Failure when receiving data from the peer: CONNECT tunnel failed, response 403");
    m_proxy.waitUntilLogged("request: CONNECT 127.0.0.1:9 403 ");
}

TEST_F(SquidTest, tellsThatNobodyListensBehindIt)
{
    use("user:secret@");
    const support::CRefusedPort port;
    const auto error = failureFrom(port.url());
    EXPECT_EQ(error->getMessage(), "HTTP response code said error (response code: http 503)");
    EXPECT_THAT(error->getProps().get("serverMessage").toUTF8(), HasSubstr("Connection refused"));
    EXPECT_TRUE(norla::isNetworkOrServiceDownError(*error));
}

class MicrosocksTest : public ProxyTest {
protected:
    std::string use(const std::string& scheme)
    {
        settings().addProxiesFromString(stringOf("http=" + scheme + "://" + m_proxy.host()));
        const auto request = requestFor("http://localhost:" + std::to_string(m_server.getPort()) + "/digits.txt");
        if (support::isLibcurlSince(8, 14)) // hands over the first address of a name, of whatever kind
            request->setOptionInt(CURLOPT_IPRESOLVE, CURL_IPRESOLVE_V4);
        return messageOf(*request);
    }

    CNginxServer m_server;
    CMicrosocksServer m_proxy;
};

TEST_F(MicrosocksTest, resolvesNamesItselfWhenAskedTo)
{
    EXPECT_EQ(use("socks5h"), "success");
    m_proxy.waitUntilLogged("connected to localhost:" + std::to_string(m_server.getPort()) + "\n");
}

TEST_F(MicrosocksTest, getsAddressesOtherwise)
{
    EXPECT_EQ(use("socks5"), "success");
    m_proxy.waitUntilLogged("connected to " + withPort(m_server.getPort()) + "\n");
}

TEST_F(MicrosocksTest, carriesTheDataOfFTPToo)
{
    const support::CFTPServer ftp;
    settings().addProxiesFromString(stringOf("ftp=socks5://" + m_proxy.host()));
    const auto request = requestFor(ftp.url("/digits.txt"));
    request->setUserName("user");
    request->setUserPassword("secret");
    request->perform();
    const std::string log = m_proxy.log();
    EXPECT_NE(log.find("connected to"), log.rfind("connected to")) << log;
}

// As the lists are read, the URL speaks for its own scheme.
TEST_F(MicrosocksTest, isNotUsedWhenTheListNamesNoScheme)
{
    settings().addProxiesFromString(stringOf("socks5://" + m_proxy.host()));
    EXPECT_EQ(bodyFrom(m_server.url("/digits.txt")), "0123456789");
    EXPECT_THAT(m_proxy.log(), Not(HasSubstr("connected to")));
}

TEST_F(MicrosocksTest, tellsThatItWantsALogin)
{
    const CMicrosocksServer proxy(login);
    settings().addProxiesFromString(stringOf("http=socks5://" + proxy.host()));
    EXPECT_EQ(
        failureFrom(m_server.url())->getMessage(), "proxy handshake error: No authentication method was acceptable.");
}

TEST_F(MicrosocksTest, tellsThatTheLoginIsWrong)
{
    const CMicrosocksServer proxy(login);
    settings().addProxiesFromString(stringOf("http=socks5://user:wr0ng@" + proxy.host()));
    EXPECT_THAT(failureFrom(m_server.url())->what(), HasSubstr("User was rejected by the SOCKS5 server"));
}

TEST_F(MicrosocksTest, tellsThatNobodyListensBehindIt)
{
    const support::CRefusedPort port;
    settings().addProxiesFromString(stringOf("http=socks5://" + m_proxy.host()));
    EXPECT_THAT(failureFrom(port.url())->what(),
        HasSubstr(support::libcurlSays("Can't complete SOCKS5 connection to 127.0.0.1")));
}

class TinyproxyTest : public ProxyTest {
protected:
    CNginxServer m_server;
    CTinyproxyServer m_proxy;
};

TEST_F(TinyproxyTest, servesTheDefaultSchemesWhenItsHostAndPortAreNamed)
{
    settings().addProxiesFromString(stringOf(m_proxy.host()));
    EXPECT_EQ(bodyFrom(m_server.url("/digits.txt")), "0123456789");
    EXPECT_EQ(bodyFrom(m_server.httpsURL("/digits.txt")), "0123456789");
    m_proxy.waitUntilLogged("GET " + m_server.url("/digits.txt") + " HTTP/1.1\n");
    m_proxy.waitUntilLogged("CONNECT " + withPort(m_server.getHTTPSPort()) + " HTTP/1.1\n");
}

TEST_F(TinyproxyTest, leavesOtherSchemesToOtherProxies)
{
    const CMicrosocksServer socks;
    settings().addProxiesFromString(stringOf("http=" + m_proxy.host() + ";\thttps=socks5://" + socks.host()));
    bodyFrom(m_server.url("/digits.txt"));
    bodyFrom(m_server.httpsURL("/digits.txt"));
    m_proxy.waitUntilLogged("GET " + m_server.url("/digits.txt") + " HTTP/1.1\n");
    socks.waitUntilLogged("connected to " + withPort(m_server.getHTTPSPort()) + "\n");
    EXPECT_THAT(m_proxy.log(), Not(HasSubstr("CONNECT 127.0.0.1")));
    EXPECT_THAT(socks.log(), Not(HasSubstr(std::to_string(m_server.getPort()) + "\n")));
}

TEST_F(TinyproxyTest, servesOtherNamesOfADirectHost)
{
    settings().addProxiesFromString(stringOf(m_proxy.host()));
    settings().addDirectConnectHost("127.0.0.1");
    const std::string url = "http://localhost:" + std::to_string(m_server.getPort()) + "/digits.txt";
    EXPECT_EQ(bodyFrom(url), "0123456789");
    m_proxy.waitUntilLogged("GET " + url + " HTTP/1.1\n");
}

TEST_F(TinyproxyTest, tellsAWrongLogin)
{
    const CTinyproxyServer proxy(login);
    settings().addProxiesFromString(stringOf("http=http://user:wr0ng@" + proxy.host()));
    EXPECT_EQ(failureFrom(m_server.url())->getMessage(), "HTTP response code said error (response code: http 401)");
}

// The proxy is chosen once, for the URL of the request.
TEST_F(TinyproxyTest, staysTheProxyOfARequestThatIsRedirectedToADirectHost)
{
    support::CScriptedServer redirecting;
    redirecting.onConnection().readHead().send(
        "HTTP/1.1 302 Found\r\nContent-Length: 0\r\nConnection: close\r\nLocation: " + m_server.url("/digits.txt")
        + "\r\n\r\n");
    settings().addProxiesFromString(stringOf(m_proxy.host()));
    settings().addDirectConnectHost("127.0.0.1");
    EXPECT_EQ(bodyFrom("http://localhost:" + std::to_string(redirecting.getPort()) + "/"), "0123456789");
    m_proxy.waitUntilLogged("GET " + m_server.url("/digits.txt") + " HTTP/1.1\n");
}

/// FTP through a proxy that speaks HTTP. libcurl asks such a proxy for the file by a GET, unless it is told to tunnel.
class FTPTunnelTest : public ProxyTest {
protected:
    FTPTunnelTest() { settings().addProxiesFromString(stringOf("ftp=http://user:secret@" + m_proxy.host())); }

    kx::P<norla::CNetRequest> requestFor(const std::string& path, bool tunnel)
    {
        auto request = ProxyTest::requestFor(m_server.url(path));
        request->setUserName("user");
        request->setUserPassword("secret");
        request->setOptionInt(CURLOPT_HTTPPROXYTUNNEL, tunnel);
        return request;
    }

    std::string messageOfDelete(bool tunnel)
    {
        const auto client = kx::newObj<norla::CFTPClient>(
            stringOf(withPort(m_server.getPort())), "user", "secret", norla::CFTPClient::ConnectUnencrypted);
        const auto request = kx::newObj<norla::CNetRequest>();
        client->prepareDeleteFileRequest(*request, "/digits.txt");
        request->setProxyForCurrentURLFromUserSettings();
        request->setOptionInt(CURLOPT_HTTPPROXYTUNNEL, tunnel);
        return messageOf(*request);
    }

    void waitForTunnel() const
    {
        m_proxy.waitUntilLogged("request: CONNECT " + withPort(m_server.getPort()) + " 200 user=user\n");
    }

    bool fileExists() const { return std::filesystem::exists(m_server.root() / "digits.txt"); }

    support::CFTPServer m_server;
    CSquidServer m_proxy;
};

TEST_F(FTPTunnelTest, tellsThatAFileIsMissing)
{
    EXPECT_EQ(messageOf(*requestFor("/missing.txt", true)),
        "Remote file not found: The file does not exist (response code: ftp 550)");
    waitForTunnel();
}

TEST_F(FTPTunnelTest, hidesThePasswordFromTheProxy)
{
    {
        const auto request = requestFor("/digits.txt", true);
        request->perform();
        EXPECT_EQ(bodyOf(*request), "0123456789");
    }
    waitForTunnel();
    EXPECT_THAT(m_proxy.log(), Not(HasSubstr("secret")));
}

TEST_F(FTPTunnelTest, carriesCommands)
{
    EXPECT_EQ(messageOfDelete(true), "success");
    EXPECT_FALSE(fileExists());
    waitForTunnel();
}

// What the guide warns of.
TEST_F(FTPTunnelTest, isWhatCommandsNeed)
{
    EXPECT_EQ(messageOfDelete(false), "success");
    EXPECT_TRUE(fileExists());
}

TEST_F(FTPTunnelTest, isWhatErrorsNeed)
{
    const auto request = requestFor("/missing.txt", false);
    EXPECT_EQ(messageOf(*request), "success");
    EXPECT_EQ(request->getResponseCode(), 404);
}

struct CDeadRow {
    const char* name;
    const char* proxyScheme;
    const char* urlScheme;
};

class DeadProxyTest : public ProxyTest, public testing::WithParamInterface<CDeadRow> {};

TEST_P(DeadProxyTest, isNamedAndNotPassedBy)
{
    const CNginxServer server;
    const support::CRefusedPort port;
    const std::string scheme = GetParam().urlScheme;
    settings().addProxiesFromString(stringOf(scheme + "=" + port.url("", GetParam().proxyScheme)));
    const auto error = failureFrom(scheme == "https" ? server.httpsURL() : scheme + "://" + withPort(server.getPort()));
    EXPECT_EQ(error->getCode(), CURLE_COULDNT_CONNECT);
    EXPECT_THAT(error->what(), HasSubstr("Failed to connect to 127.0.0.1 port " + std::to_string(port.getPort())));
    EXPECT_TRUE(norla::isNetworkOrServiceDownError(*error));
    EXPECT_THAT(server.accessLog(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(All, DeadProxyTest,
    testing::ValuesIn(std::vector<CDeadRow>{
        {"http", "http", "http"},
        {"https", "http", "https"},
        {"ftp", "http", "ftp"},
        {"httpBySOCKS", "socks5", "http"},
        {"httpsBySOCKS", "socks5h", "https"},
    }),
    [](const testing::TestParamInfo<CDeadRow>& row) { return row.param.name; });

TEST_F(ProxyTest, thatIsUnknownIsNamed)
{
    settings().addProxiesFromString("http=proxy.invalid:3128");
    const auto error = failureFrom("http://127.0.0.1:9/");
    const std::string message = error->getMessage().toUTF8();
    EXPECT_TRUE(support::libcurlSaysOfUnknownProxy("proxy.invalid").contains(message)) << message;
    EXPECT_TRUE(norla::isNetworkOrServiceDownError(*error));
}

/// A variable of the environment, unset again at the end.
class CVariable {
public:
    CVariable(const char* name, const std::string& value)
        : m_name(name)
    {
        setenv(m_name, value.c_str(), 1);
    }
    CVariable(const CVariable&) = delete;
    CVariable& operator=(const CVariable&) = delete;
    ~CVariable() { unsetenv(m_name); }

private:
    const char* m_name;
};

class EnvironmentTest : public ProxyTest, public testing::WithParamInterface<const char*> {
protected:
    static std::string urlOf(const CNginxServer& server)
    {
        const bool isSecure
            = std::string_view(GetParam()).starts_with("https") || std::string_view(GetParam()).starts_with("HTTPS");
        return isSecure ? server.httpsURL("/digits.txt") : server.url("/digits.txt");
    }
    const CNginxServer m_server;
    const support::CRefusedPort m_dead;
    const CVariable m_variable{GetParam(), m_dead.url()};
};

TEST_P(EnvironmentTest, givesNoProxyToTheSettings)
{
    EXPECT_EQ(bodyFrom(urlOf(m_server)), "0123456789");
}

TEST_P(EnvironmentTest, doesNotReplaceTheProxyOfTheSettings)
{
    const CTinyproxyServer proxy;
    settings().addProxiesFromString(stringOf(proxy.host()));
    EXPECT_EQ(bodyFrom(urlOf(m_server)), "0123456789");
    proxy.waitUntilLogged("Established connection to host");
}

INSTANTIATE_TEST_SUITE_P(All, EnvironmentTest,
    testing::Values("http_proxy", "https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"),
    [](const testing::TestParamInfo<const char*>& row) { return row.param; });

// libcurl keeps looking at the environment for the hosts to be reached directly.
TEST_F(TinyproxyTest, isPassedByForAHostOfNoProxyUnlessThatIsSwitchedOff)
{
    const CVariable variable("no_proxy", "127.0.0.1");
    settings().addProxiesFromString(stringOf(m_proxy.host()));
    bodyFrom(m_server.url("/digits.txt"));
    const auto request = requestFor(m_server.url("/echo"));
    request->setOptionString(CURLOPT_NOPROXY, "");
    request->perform();
    m_proxy.waitUntilLogged("GET " + m_server.url("/echo") + " HTTP/1.1\n");
    EXPECT_THAT(m_proxy.log(), Not(HasSubstr("digits.txt")));
}

} // namespace
