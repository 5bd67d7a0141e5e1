// A pool with real servers: all protocols at once, and many transfers over one connection.
#include "norla/pool/CTransferPool.h"
#include "tests/live/CStuckFile.h"
#include "tests/live/liveRequest.h"
#include "tests/live/mail.h"
#include "tests/support/CFTPServer.h"
#include "tests/support/CNginxServer.h"
#include "tests/support/CSMTPServer.h"
#include "tests/support/CSSHServer.h"
#include "tests/support/CTestCertificates.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <fstream>

namespace {

using norla::CNetRequest;
using norla::CTransfer;
using norla::CTransferPool;
using Request = kx::P<CNetRequest>;

constexpr int longest = 60'000; // milliseconds

class PoolLiveTest : public testing::Test {
protected:
    /// Counts the ends.
    CTransfer::Options counting()
    {
        CTransfer::Options options;
        options.onDone = [this](CTransfer&) { ++m_ends; };
        return options;
    }

    kx::P<CTransfer> start(const Request& request) { return m_pool->start(request.get(), counting()); }

    /// Waits for all, which must have succeeded.
    static void expectSuccess(const std::vector<kx::P<CTransfer>>& transfers)
    {
        for (const auto& transfer : transfers) {
            ASSERT_TRUE(transfer->wait(longest));
            const auto error = transfer->getError();
            EXPECT_FALSE(error) << transfer->getRequest().getURL() << ": " << error->getMessage();
        }
    }

    std::atomic<int> m_ends{0};
    kx::P<CTransferPool> m_pool = kx::newObj<CTransferPool>(CTransferPool::Options{.atOnce = 20});
};

class PoolNginxTest : public PoolLiveTest {
protected:
    Request secureRequest(const std::string& path) { return secureRequestFor(m_nginx.httpsURL(path)); }

    static Request secureRequestFor(const std::string& url)
    {
        auto request = live::requestFor(url);
        request->setRootCertBundlePath(
            CNetRequest::Path::fromBytes(support::CTestCertificates::get().caFile().native()));
        request->setOptionInt(CURLOPT_PIPEWAIT, 1); // rather than connections of their own
        return request;
    }

    support::CNginxServer m_nginx;
};

TEST_F(PoolNginxTest, runsManyTransfersOverOneConnectionOfHTTP2)
{
    constexpr int count = 60;
    std::vector<kx::P<CTransfer>> transfers;
    for (int number = 0; number < count; ++number)
        transfers.push_back(start(secureRequest("/digits.txt")));
    expectSuccess(transfers);
    int connections = 0;
    for (const auto& transfer : transfers) {
        EXPECT_EQ(live::bodyOf(transfer->getRequest()), "0123456789");
        connections += transfer->getRequest().getInfoLong(CURLINFO_NUM_CONNECTS);
    }
    EXPECT_EQ(connections, 1);
}

TEST_F(PoolNginxTest, cancelsOneOfManyOverOneConnection)
{
    expectSuccess({start(secureRequest("/digits.txt"))});
    const auto slow = start(secureRequest("/slow.bin"));
    const auto cancelled = start(secureRequest("/slow.bin"));
    const auto quick = start(secureRequest("/digits.txt"));
    expectSuccess({quick});
    cancelled->cancel();
    EXPECT_TRUE(cancelled->wait(longest));
    EXPECT_EQ(cancelled->getState(), norla::TransferState::Cancelled);
    expectSuccess({slow});
    EXPECT_EQ(live::bodyOf(slow->getRequest()).size(), 200'000U);
}

TEST_F(PoolNginxTest, keepsConnectionsOfHTTP1ForTheTransfersBehind)
{
    int connections = 0;
    for (int number = 0; number < 20; ++number) {
        const auto request = live::requestFor(m_nginx.url("/digits.txt"));
        expectSuccess({start(request)});
        connections += request->getInfoLong(CURLINFO_NUM_CONNECTS);
    }
    EXPECT_EQ(connections, 1);
}

/// At a server that gives up each connection behind a few requests: no transfer fails for that, though none is repeated
/// by a policy.
class PoolImpatientNginxTest : public PoolNginxTest, public testing::WithParamInterface<int> {
protected:
    Request impatientRequest()
    {
        auto request = secureRequestFor(m_nginx.impatientURL("/digits.txt"));
        request->setOptionInt(CURLOPT_HTTP_VERSION, GetParam());
        return request;
    }
};

TEST_P(PoolImpatientNginxTest, runsManyTransfersAtOnce)
{
    constexpr int count = 300;
    std::vector<kx::P<CTransfer>> transfers;
    for (int number = 0; number < count; ++number)
        transfers.push_back(start(impatientRequest()));
    expectSuccess(transfers);
    for (const auto& transfer : transfers)
        EXPECT_EQ(live::bodyOf(transfer->getRequest()), "0123456789");
}

TEST_P(PoolImpatientNginxTest, runsManyTransfersOneBehindTheOther)
{
    int connections = 0;
    for (int number = 0; number < 50; ++number) {
        const auto request = impatientRequest();
        expectSuccess({start(request)});
        EXPECT_EQ(live::bodyOf(*request), "0123456789");
        connections += request->getInfoLong(CURLINFO_NUM_CONNECTS);
    }
    EXPECT_GE(connections, 7);
    EXPECT_LT(connections, 50);
}

INSTANTIATE_TEST_SUITE_P(OfEachVersion, PoolImpatientNginxTest,
    testing::Values(int{CURL_HTTP_VERSION_1_1}, int{CURL_HTTP_VERSION_2TLS}),
    [](const auto& version) { return version.param == CURL_HTTP_VERSION_1_1 ? "HTTP1" : "HTTP2"; });

TEST_F(PoolNginxTest, takesAServerThatClosesAKeptConnectionForNoFailure)
{
    const auto drops = start(live::requestFor(m_nginx.url("/drop")));
    EXPECT_TRUE(drops->wait(longest));
    EXPECT_EQ(drops->getState(), norla::TransferState::Failed);
    expectSuccess({start(live::requestFor(m_nginx.url("/digits.txt")))});
}

class PoolProtocolsTest : public PoolNginxTest {
protected:
    Request ftpRequest()
    {
        auto request = live::requestFor(m_ftp.url("/file"));
        request->setUserName("user");
        request->setUserPassword("secret");
        return request;
    }

    Request sftpRequest(const std::string& file = "file")
    {
        auto request = live::requestFor(m_ssh.url((m_ssh.root() / file).string()));
        request->setUserName(kx::String::fromUTF8(m_ssh.userName()));
        request->setOptionString(CURLOPT_SSH_PRIVATE_KEYFILE, kx::String::fromUTF8(m_ssh.privateKeyFile().string()));
        request->setOptionString(CURLOPT_SSH_PUBLIC_KEYFILE, kx::String::fromUTF8(m_ssh.publicKeyFile().string()));
        request->setOptionInt(CURLOPT_SSH_AUTH_TYPES, CURLSSH_AUTH_PUBLICKEY);
        return request;
    }

    Request mailRequest(int number)
    {
        auto request = live::requestFor("");
        live::prepareMail(*request, m_smtp.getPort(), norla::CSMTPParams::ConnectUnencrypted,
            "Subject: " + std::to_string(number) + "\r\n\r\ntext\r\n");
        return request;
    }

    support::CFTPServer m_ftp{support::CFTPServer::Security::None};
    support::CSSHServer m_ssh;
    support::CSMTPServer m_smtp;
};

TEST_F(PoolProtocolsTest, runsAllProtocolsAtOnce)
{
    constexpr int rounds = 10;
    std::ofstream(m_ftp.root() / "file") << "by ftp";
    std::ofstream(m_ssh.root() / "file") << "by sftp";
    std::vector<kx::P<CTransfer>> transfers;
    std::vector<std::string> bodies;
    const auto add = [&](const Request& request, const std::string& body) {
        transfers.push_back(start(request));
        bodies.push_back(body);
    };
    for (int number = 0; number < rounds; ++number) {
        add(live::requestFor(m_nginx.url("/digits.txt")), "0123456789");
        add(secureRequest("/digits.txt"), "0123456789");
        add(ftpRequest(), "by ftp");
        add(sftpRequest(), "by sftp");
        add(mailRequest(number), "");
    }
    expectSuccess(transfers);
    for (size_t index = 0; index < transfers.size(); ++index)
        EXPECT_EQ(live::bodyOf(transfers[index]->getRequest()), bodies[index]);
    EXPECT_EQ(m_smtp.messages().size(), static_cast<size_t>(rounds));
    m_pool->stop();
    EXPECT_EQ(m_ends, static_cast<int>(transfers.size()));
}

TEST_F(PoolProtocolsTest, stopsAllProtocolsAtOnce)
{
    std::vector<kx::P<CTransfer>> transfers;
    for (int number = 0; number < 5; ++number) {
        transfers.push_back(start(live::requestFor(m_nginx.url("/slow.bin"))));
        transfers.push_back(start(secureRequest("/slow.bin")));
        transfers.push_back(start(ftpRequest()));
        transfers.push_back(start(sftpRequest()));
        transfers.push_back(start(mailRequest(number)));
    }
    m_pool->stop();
    for (const auto& transfer : transfers)
        EXPECT_TRUE(transfer->isDone());
    EXPECT_EQ(m_ends, static_cast<int>(transfers.size()));
}

// libcurl would close the file first, and wait for the answer as long as its other limits allow.
TEST_F(PoolProtocolsTest, cancelsAtOnceWhatAnSFTPServerDoesNotAnswer)
{
    const live::CStuckFile file(m_ssh.root() / "stuck");
    const auto request = sftpRequest("stuck");
    live::CStuckFile::appendMuch(*request);
    const auto transfer = start(request);
    ASSERT_TRUE(file.waitUntilStuck());
    transfer->cancel();
    EXPECT_TRUE(transfer->wait(5'000));
    EXPECT_EQ(transfer->getState(), norla::TransferState::Cancelled);
}

TEST_F(PoolProtocolsTest, stopsAtOnceWhatAnSFTPServerDoesNotAnswer)
{
    const live::CStuckFile file(m_ssh.root() / "stuck");
    const auto request = sftpRequest("stuck");
    live::CStuckFile::appendMuch(*request);
    const auto transfer = start(request);
    ASSERT_TRUE(file.waitUntilStuck());
    const auto begin = std::chrono::steady_clock::now();
    m_pool->stop();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
    EXPECT_EQ(transfer->getState(), norla::TransferState::Cancelled);
}

} // namespace
