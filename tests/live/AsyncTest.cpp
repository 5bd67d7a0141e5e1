// Many transfers at once, of all protocols, with real servers.
#include "norla/async/CAsyncNetRequestManager.h"
#include "norla/async/CAsyncNetRequestThread.h"
#include "tests/live/CStuckFile.h"
#include "tests/live/liveRequest.h"
#include "tests/support/CFTPServer.h"
#include "tests/support/CFullProcess.h"
#include "tests/support/CNginxServer.h"
#include "tests/support/CRefusedPort.h"
#include "tests/support/CSSHServer.h"
#include "tests/support/CScriptedServer.h"
#include "tests/support/CTestCertificates.h"
#include "tests/support/libcurlWords.h"
#include "tests/support/loopback.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <unistd.h>

namespace {

using norla::CNetRequest;

/// Counts the ends that it is told.
class CCountingListener : public kx::CBase, public virtual CNetRequest::IDoneListener {
public:
    void onNetRequestDone(CNetRequest*, const kx::CError*) override { ++m_calls; }

    std::atomic<int> m_calls{0};
};

class CThrowingSink : public kx::CBase, public virtual CNetRequest::IDataSink {
public:
    explicit CThrowingSink(const std::string& text)
        : m_text(kx::String::fromLatin1(text))
    {
    }
    int write(const unsigned char*, int, int, const CNetRequest::HeaderMap&) override { throw kx::CError(m_text); }

private:
    const kx::String m_text;
};

/// A transfer, and how it must end.
struct CExpectedTransfer {
    kx::P<CNetRequest> request;
    std::string result = "success"; ///< what the error's message starts with
    std::string body = {};
    kx::P<CCountingListener> listener = kx::newObj<CCountingListener>();
};

class AsyncTest : public testing::Test {
protected:
    static void SetUpTestSuite() { s_servers = std::make_unique<CServers>(); }
    static void TearDownTestSuite() { s_servers.reset(); }

    AsyncTest() { m_thread->start(); }

    static support::CNginxServer& nginx() { return s_servers->nginx; }
    static support::CFTPServer& ftp() { return s_servers->ftp; }
    static support::CSSHServer& ssh() { return s_servers->ssh; }

    static kx::P<CNetRequest> ftpRequest(const std::string& path)
    {
        auto request = live::requestFor(ftp().url(path));
        request->setUserName("user");
        request->setUserPassword("secret");
        return request;
    }

    static kx::P<CNetRequest> sftpRequest(const std::string& name)
    {
        auto request = live::requestFor(ssh().url((ssh().root() / name).string()));
        request->setUserName(kx::String::fromUTF8(ssh().userName()));
        request->setOptionString(CURLOPT_SSH_PRIVATE_KEYFILE, kx::String::fromUTF8(ssh().privateKeyFile().string()));
        request->setOptionString(CURLOPT_SSH_PUBLIC_KEYFILE, kx::String::fromUTF8(ssh().publicKeyFile().string()));
        request->setOptionInt(CURLOPT_SSH_AUTH_TYPES, CURLSSH_AUTH_PUBLICKEY);
        return request;
    }

    static kx::P<CNetRequest> httpsRequest(const std::string& path)
    {
        auto request = live::requestFor(nginx().httpsURL(path));
        request->setRootCertBundlePath(
            norla::CNetRequest::Path::fromBytes(support::CTestCertificates::get().caFile().native()));
        return request;
    }

    CExpectedTransfer download(int index)
    {
        switch (index % 4) {
        case 0:
            return {live::requestFor(nginx().url("/digits.txt")), "success", "0123456789"};
        case 1:
            return {httpsRequest("/digits.txt"), "success", "0123456789"};
        case 2:
            return {ftpRequest("/digits.txt"), "success", "0123456789"};
        default:
            return {sftpRequest("digits.txt"), "success", "0123456789"};
        }
    }

    CExpectedTransfer failure(int index)
    {
        switch (index % 8) {
        case 0:
            return {live::requestFor(nginx().url("/status/404")),
                "HTTP response code said error (response code: http 404)",
                "<html><body><h1>Not here</h1></body></html>"};
        case 1:
            return {ftpRequest("/missing.txt"), "Remote file not found: The file does not exist"};
        case 2:
            return {sftpRequest("missing.txt"), "Remote file not found"};
        case 3:
            return {
                live::requestFor(nginx().url("/drop")), "Server returned nothing (no headers, no data): Empty reply"};
        case 4:
            m_scripted.onConnection().readHead().reset();
            return {live::requestFor(m_scripted.url()), "Failure when receiving data from the peer"};
        case 5:
            return timeOut();
        case 6:
            return callbackError(index);
        default:
            return {live::requestFor(m_refused.url()), support::libcurlSays("Couldn't connect to server")};
        }
    }

    CExpectedTransfer timeOut()
    {
        // A server that takes the connection and says nothing.
        CExpectedTransfer transfer{
            live::requestFor("http://127.0.0.1:" + std::to_string(support::portOf(m_silent.get()))),
            "Timeout was reached: Operation timed out"};
        transfer.request->setFullRequestTimeout(kx::CTimeSpan::fromMilliseconds(200));
        return transfer;
    }

    static CExpectedTransfer callbackError(int index)
    {
        const std::string text = "sink " + std::to_string(index) + " failed";
        CExpectedTransfer transfer{live::requestFor(nginx().url("/digits.txt")), text};
        transfer.request->setReceiveDataSink(kx::newObj<CThrowingSink>(text).get());
        return transfer;
    }

    void add(const CExpectedTransfer& transfer)
    {
        transfer.request->setDoneListener(transfer.listener.get());
        m_thread->addRequest(transfer.request.get());
    }

    void runAll(const std::vector<CExpectedTransfer>& transfers)
    {
        for (const CExpectedTransfer& transfer : transfers)
            add(transfer);
        for (const CExpectedTransfer& transfer : transfers)
            expectEnd(transfer);
        m_thread->stop(true); // so that every listener has been told
        for (const CExpectedTransfer& transfer : transfers)
            EXPECT_EQ(transfer.listener->m_calls, 1) << transfer.request->getURL();
    }

    static void expectEnd(const CExpectedTransfer& transfer)
    {
        ASSERT_TRUE(transfer.request->waitAsyncDone(30'000)) << transfer.request->getURL();
        const std::string result = resultOf(*transfer.request);
        EXPECT_TRUE(result.starts_with(transfer.result)) << transfer.request->getURL() << ": " << result;
        EXPECT_EQ(live::bodyOf(*transfer.request), transfer.body) << transfer.request->getURL();
    }

    static std::string resultOf(CNetRequest& request)
    {
        try {
            request.checkAsyncResult();
        } catch (const kx::CError& error) {
            return error.getMessage().toUTF8();
        }
        return "success";
    }

    static std::string contentOf(const std::filesystem::path& file)
    {
        std::ifstream in(file, std::ios::binary);
        return (std::ostringstream() << in.rdbuf()).str();
    }

    kx::P<norla::CAsyncNetRequestThread> m_thread = kx::newObj<norla::CAsyncNetRequestThread>(nullptr);

private:
    struct CServers {
        support::CNginxServer nginx;
        support::CFTPServer ftp;
        support::CSSHServer ssh;
    };
    static inline std::unique_ptr<CServers> s_servers;

    support::CScriptedServer m_scripted;
    support::CRefusedPort m_refused;
    support::CDescriptor m_silent = support::listenOnLoopback();
};

TEST_F(AsyncTest, downloadsOneOfEachProtocol)
{
    for (int i = 0; i < 4; ++i) {
        const CExpectedTransfer transfer = download(i);
        add(transfer);
        expectEnd(transfer);
    }
}

TEST_F(AsyncTest, runsTwoAtOnce)
{
    runAll({download(0), failure(0)});
}

TEST_F(AsyncTest, runsSixtyFourAtOnceAndGivesEachItsOwnResult)
{
    std::vector<CExpectedTransfer> transfers;
    for (int i = 0; i < 32; ++i) {
        transfers.push_back(download(i));
        transfers.push_back(failure(i));
    }
    runAll(transfers);
}

TEST_F(AsyncTest, uploadsByAllProtocolsAtOnce)
{
    std::vector<CExpectedTransfer> transfers;
    const auto addUpload = [&transfers](const kx::P<CNetRequest>& request, const std::string& text) {
        request->setSendDataAsUTF8(kx::String::fromUTF8(text));
        request->setUpload(true);
        transfers.push_back({request});
    };
    for (int i = 0; i < 4; ++i) {
        const std::string number = std::to_string(i);
        addUpload(live::requestFor(nginx().url("/dav/http" + number)), "http " + number);
        addUpload(httpsRequest("/dav/https" + number), "https " + number);
        addUpload(ftpRequest("/ftp" + number), "ftp " + number);
        addUpload(sftpRequest("sftp" + number), "sftp " + number);
    }
    runAll(transfers);
    for (int i = 0; i < 4; ++i) {
        const std::string number = std::to_string(i);
        EXPECT_EQ(contentOf(nginx().root() / ("dav/http" + number)), "http " + number);
        EXPECT_EQ(contentOf(nginx().root() / ("dav/https" + number)), "https " + number);
        EXPECT_EQ(contentOf(ftp().root() / ("ftp" + number)), "ftp " + number);
        EXPECT_EQ(contentOf(ssh().root() / ("sftp" + number)), "sftp " + number);
    }
}

TEST_F(AsyncTest, reusesARequestForOneProtocolAfterTheOther)
{
    const auto request = kx::newObj<CNetRequest>();
    for (int i = 0; i < 20; ++i) {
        request->reset();
        request->setURL(kx::String::fromUTF8(i % 2 == 0 ? nginx().url("/digits.txt") : ftp().url("/digits.txt")));
        if (i % 2 == 1) {
            request->setUserName("user");
            request->setUserPassword("secret");
        }
        m_thread->addRequest(request.get());
        ASSERT_TRUE(request->waitAsyncDone(30'000));
        EXPECT_EQ(resultOf(*request), "success");
        EXPECT_EQ(live::bodyOf(*request), "0123456789");
    }
}

TEST_F(AsyncTest, reusesConnections)
{
    const auto request = live::requestFor(nginx().url("/digits.txt"));
    std::vector<int> connections;
    for (int i = 0; i < 5; ++i) {
        m_thread->addRequest(request.get());
        ASSERT_TRUE(request->waitAsyncDone(30'000));
        connections.push_back(request->getInfoLong(CURLINFO_NUM_CONNECTS));
        request->reset();
        request->setURL(kx::String::fromUTF8(nginx().url("/digits.txt")));
    }
    EXPECT_EQ(connections, (std::vector<int>{1, 0, 0, 0, 0}));
}

TEST_F(AsyncTest, withdrawsADownloadInItsBody)
{
    const CExpectedTransfer transfer{live::requestFor(nginx().url("/slow.bin"))};
    class CFirstBlockSink : public kx::CBase, public virtual CNetRequest::IDataSink {
    public:
        int write(const unsigned char*, int size, int, const CNetRequest::HeaderMap&) override
        {
            m_started.set();
            return size;
        }
        kx::CSignal m_started;
    };
    const auto sink = kx::newObj<CFirstBlockSink>();
    transfer.request->setReceiveDataSink(sink.get());
    add(transfer);
    ASSERT_TRUE(sink->m_started.wait(30'000));
    EXPECT_TRUE(m_thread->removeRequest(transfer.request.get()));
    m_thread->stop(true);
    EXPECT_FALSE(transfer.request->isAsyncDone());
    EXPECT_EQ(transfer.listener->m_calls, 0);
}

TEST_F(AsyncTest, withdrawsWhatIsOnlyConnecting)
{
    const CExpectedTransfer transfer = timeOut();
    transfer.request->setFullRequestTimeout(kx::CTimeSpan::fromSeconds(60));
    add(transfer);
    EXPECT_TRUE(m_thread->removeRequest(transfer.request.get()));
    EXPECT_FALSE(transfer.request->isAsyncDone());
}

TEST_F(AsyncTest, withdrawsAtOnceWhatAnSFTPServerDoesNotAnswer)
{
    const live::CStuckFile file(ssh().root() / "stuck");
    const CExpectedTransfer transfer{sftpRequest("stuck")};
    live::CStuckFile::appendMuch(*transfer.request);
    add(transfer);
    ASSERT_TRUE(file.waitUntilStuck());
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_TRUE(m_thread->removeRequest(transfer.request.get()));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
}

TEST_F(AsyncTest, goesOnAfterAWithdrawal)
{
    const CExpectedTransfer slow{live::requestFor(nginx().url("/slow.bin"))};
    add(slow);
    EXPECT_TRUE(m_thread->removeRequest(slow.request.get()));
    runAll({download(0), download(1), download(2), download(3)});
}

TEST_F(AsyncTest, finishesTransfersOfAllProtocolsInAProcessFullOfDescriptors)
{
    const support::CFullProcess full;
    std::vector<CExpectedTransfer> transfers;
    for (int i = 0; i < 16; ++i)
        transfers.push_back(download(i));
    transfers.push_back(failure(0));
    transfers.push_back(timeOut());
    runAll(transfers);
}

TEST_F(AsyncTest, keepsItsSpeedInAProcessFullOfDescriptors)
{
    const support::CFullProcess full;
    const auto request = live::requestFor(nginx().url(nginx().big(2U << 30)));
    request->setReceiveDataSink(nullptr);
    m_thread->addRequest(request.get());
    // With a nap of a tenth of a second in each pass this would take about half a minute.
    ASSERT_TRUE(request->waitAsyncDone(60'000));
    EXPECT_EQ(resultOf(*request), "success");
    EXPECT_EQ(request->getDownloadedBytes(), 2U << 30);
}

} // namespace
