// What is told of transfers with real servers.
#include "norla/async/CAsyncNetRequestThread.h"
#include "norla/core/CTransferInfo.h"
#include "tests/live/FTPSession.h"
#include "tests/live/liveRequest.h"
#include "tests/live/mail.h"
#include "tests/support/CEximServer.h"
#include "tests/support/CNginxServer.h"
#include "tests/support/CSMTPServer.h"
#include "tests/support/CSSHServer.h"
#include "tests/support/CScriptedServer.h"
#include "tests/support/CTemporaryFolder.h"
#include "tests/support/CTestCertificates.h"
#include "tests/support/files.h"

#include <gtest/gtest.h>

#include <chrono>

namespace {

using norla::CTransferInfo;

/// That each moment is not before the one that must come first.
void expectOrder(const CTransferInfo::CTimes& times)
{
    long long last = 0;
    for (const auto& moment : {times.nameLookup, times.connect, times.encryption, times.request}) {
        EXPECT_LE(last, moment ? moment->getMicroseconds() : last);
        last = moment ? moment->getMicroseconds() : last;
    }
    EXPECT_LE(last, times.total.getMicroseconds());
}

TEST(TransferInfoTest, http2OverTLS)
{
    const support::CNginxServer server;
    const auto request = live::requestFor(server.httpsURL("/digits.txt"));
    live::trustTestCertificates(*request);
    request->perform();
    const CTransferInfo info = request->getTransferInfo();
    EXPECT_EQ(info.protocol, "h2");
    EXPECT_EQ(info.scheme, "https");
    EXPECT_EQ(info.remotePort, server.getHTTPSPort());
    ASSERT_TRUE(info.tls);
    EXPECT_TRUE(info.tls->version.startsWith("TLSv1.")) << info.tls->version;
    EXPECT_EQ(info.tls->subjects.at(0), "CN=localhost");
    ASSERT_TRUE(info.times.encryption);
    expectOrder(info.times);
}

TEST(TransferInfoTest, allCertificatesThatTheServerSends)
{
    const auto& certificates = support::CTestCertificates::get();
    const support::CTemporaryFolder folder;
    const auto chain = folder.write(
        "chain.pem", support::readFile(certificates.serverCertificate()) + support::readFile(certificates.caFile()));
    support::CScriptedServer server;
    server.onConnection()
        .startTLS(chain, certificates.serverKey())
        .readHead()
        .send("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
    const auto request = live::requestFor(server.url("/", "https"));
    live::trustTestCertificates(*request);
    request->perform();
    ASSERT_TRUE(request->getTransferInfo().tls);
    EXPECT_EQ(request->getTransferInfo().tls->subjects, (kx::TArray<kx::String>{"CN=localhost", "CN=test authority"}));
}

TEST(TransferInfoTest, chainOfRedirects)
{
    const support::CNginxServer server;
    const auto request = live::requestFor(server.url("/chain/3"));
    request->perform();
    EXPECT_EQ(request->getTransferInfo().redirects, 3);
    EXPECT_EQ(request->getTransferInfo().url.toUTF8(), server.url("/digits.txt"));
}

TEST(TransferInfoTest, resumedTLSSessionNamesTheServer)
{
    const support::CNginxServer server;
    const auto request = live::requestFor(server.httpsURL("/digits.txt"));
    live::trustTestCertificates(*request);
    request->perform();
    request->setOptionInt(CURLOPT_FRESH_CONNECT, 1);
    request->perform();
    EXPECT_FALSE(request->getTransferInfo().isConnectionReused);
    ASSERT_TRUE(request->getTransferInfo().tls);
    EXPECT_EQ(request->getTransferInfo().tls->subjects.at(0), "CN=localhost");
}

/// Notes when libcurl opens sockets.
class CSocketMoments {
public:
    explicit CSocketMoments(norla::CNetRequest& request)
    {
        curl_easy_setopt(request.getEasyHandle(), CURLOPT_SOCKOPTDATA, this);
        curl_easy_setopt(request.getEasyHandle(), CURLOPT_SOCKOPTFUNCTION, &notice);
    }

    /// In microseconds from this object's beginning.
    long long last() const { return std::chrono::duration_cast<std::chrono::microseconds>(m_last - m_start).count(); }
    int count() const { return m_count; }

private:
    static int notice(void* moments, curl_socket_t, curlsocktype) noexcept
    {
        auto& self = *static_cast<CSocketMoments*>(moments);
        self.m_last = std::chrono::steady_clock::now();
        ++self.m_count;
        return CURL_SOCKOPT_OK;
    }

    const std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
    std::chrono::steady_clock::time_point m_last;
    int m_count = 0;
};

class TransferInfoFTPTest : public testing::TestWithParam<live::Security> {};

TEST_P(TransferInfoFTPTest, connectionForDataIsNotCountedIn)
{
    const auto server = live::makeLenient<support::CProFTPDServer>(GetParam());
    const auto request = live::requestFor(server->url("/digits.txt"));
    live::trustTestCertificates(*request);
    request->setUserName(kx::String::fromUTF8(server->userName()));
    request->setUserPassword(kx::String::fromUTF8(server->password()));
    const bool isSecure = GetParam() != live::Security::None;
    request->setFTPUseSSL(isSecure ? CURLUSESSL_ALL : CURLUSESSL_NONE);
    const CSocketMoments sockets(*request);
    request->perform();
    CTransferInfo info = request->getTransferInfo();
    EXPECT_FALSE(info.isConnectionReused);
    EXPECT_EQ(info.protocol, info.scheme);
    EXPECT_EQ(info.bytesDown, 10);
    EXPECT_EQ(info.tls.has_value(), isSecure);
    EXPECT_EQ(info.times.encryption.has_value(), isSecure);
    expectOrder(info.times);
    ASSERT_EQ(sockets.count(), 2); // for commands, and for data
    EXPECT_LT(info.times.connect->getMicroseconds(), sockets.last());
    request->perform();
    info = request->getTransferInfo();
    EXPECT_TRUE(info.isConnectionReused);
    EXPECT_EQ(info.tls.has_value(), isSecure);
}

INSTANTIATE_TEST_SUITE_P(Securities, TransferInfoFTPTest,
    testing::Values(live::Security::None, live::Security::Explicit, live::Security::Implicit),
    [](const auto& each) -> std::string {
        return each.param == live::Security::None    ? "plain"
            : each.param == live::Security::Explicit ? "explicitTLS"
                                                     : "implicitTLS";
    });

TEST(TransferInfoTest, sftp)
{
    const support::CSSHServer server;
    const auto request = live::requestFor(server.url((server.root() / "digits.txt").string()));
    request->setUserName(kx::String::fromUTF8(server.userName()));
    request->setOptionString(CURLOPT_SSH_PRIVATE_KEYFILE, kx::String::fromUTF8(server.privateKeyFile().string()));
    request->setOptionString(CURLOPT_SSH_PUBLIC_KEYFILE, kx::String::fromUTF8(server.publicKeyFile().string()));
    request->setOptionInt(CURLOPT_SSH_AUTH_TYPES, CURLSSH_AUTH_PUBLICKEY);
    request->perform();
    const CTransferInfo info = request->getTransferInfo();
    EXPECT_EQ(info.protocol, "sftp");
    EXPECT_FALSE(info.tls);
    ASSERT_TRUE(info.times.encryption);
    expectOrder(info.times);
}

TEST(TransferInfoTest, mailInTheBackgroundOverStartTLS)
{
    const support::CEximServer server;
    const auto thread = kx::newObj<norla::CAsyncNetRequestThread>();
    thread->start();
    const auto request = kx::newObj<norla::CNetRequest>();
    live::prepareMail(*request, server.getPort(), norla::CSMTPParams::ConnectStartTLS, "Subject: 1\r\n\r\ntext\r\n");
    thread->addRequest(request.get());
    ASSERT_TRUE(request->waitAsyncDone(60'000));
    request->checkAsyncResult();
    const CTransferInfo info = request->getTransferInfo();
    EXPECT_EQ(info.protocol, "smtp");
    ASSERT_TRUE(info.tls);
    EXPECT_EQ(info.tls->subjects.at(0), "CN=localhost");
    expectOrder(info.times);
    EXPECT_GT(info.bytesUp, 0);
}

} // namespace
