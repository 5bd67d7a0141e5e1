// SFTP transfers of CNetRequest against OpenSSH, with a login by key.
#include "norla/async/CAsyncNetRequestThread.h"
#include "tests/live/liveRequest.h"
#include "tests/support/CSSHServer.h"
#include "tests/support/CScriptedServer.h"
#include "tests/support/CTemporaryFolder.h"
#include "tests/support/errorOf.h"

#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <sstream>

namespace {

using live::bodyOf;

class SFTPTest : public testing::Test {
protected:
    kx::P<norla::CNetRequest> requestFor(const std::string& name)
    {
        auto request = kx::newObj<norla::CNetRequest>();
        prepare(*request, name);
        return request;
    }

    void prepare(norla::CNetRequest& request, const std::string& name)
    {
        request.setURL(kx::String::fromUTF8(m_server.url((m_server.root() / name).string())));
        request.setFullRequestTimeout(kx::CTimeSpan::fromSeconds(60));
        request.setUserName(kx::String::fromUTF8(m_server.userName()));
        request.setOptionString(CURLOPT_SSH_PRIVATE_KEYFILE, kx::String::fromUTF8(m_server.privateKeyFile().string()));
        request.setOptionString(CURLOPT_SSH_PUBLIC_KEYFILE, kx::String::fromUTF8(m_server.publicKeyFile().string()));
        request.setOptionInt(CURLOPT_SSH_AUTH_TYPES, CURLSSH_AUTH_PUBLICKEY);
    }

    /// Makes the request demand a server that stands in such a file.
    void demand(norla::CNetRequest& request, const std::string& knownHosts)
    {
        request.setSSHKnownHostsPath(
            norla::CNetRequest::Path::fromBytes(m_folder.write("known_hosts", knownHosts).string()));
    }

    /// How the transfer has ended; -1 for a success.
    static long long codeOf(const kx::P<kx::CError>& failure) { return failure ? failure->getCode() : -1; }

    static long long performed(norla::CNetRequest& request) { return codeOf(live::failureOf(request)); }

    static long long performedBy(norla::CAsyncNetRequestThread& thread, norla::CNetRequest& request)
    {
        thread.addRequest(&request);
        EXPECT_TRUE(request.waitAsyncDone(60'000));
        return codeOf(support::errorOf([&request] { request.checkAsyncResult(); }));
    }

    support::CSSHServer m_server;
    const support::CTemporaryFolder m_folder;
};

constexpr long long success = -1;

TEST_F(SFTPTest, downloadsAFile)
{
    const auto request = requestFor("digits.txt");
    request->perform();
    EXPECT_EQ(bodyOf(*request), "0123456789");
}

TEST_F(SFTPTest, downloadsARange)
{
    const auto request = requestFor("digits.txt");
    request->setRange(3, 4);
    request->perform();
    EXPECT_EQ(bodyOf(*request), "3456");
}

TEST_F(SFTPTest, uploadsAFile)
{
    const auto request = requestFor("text.txt");
    request->setSendDataAsUTF8("text");
    request->setUpload(true);
    request->perform();
    std::ifstream in(m_server.root() / "text.txt", std::ios::binary);
    EXPECT_EQ((std::ostringstream() << in.rdbuf()).str(), "text");
}

TEST_F(SFTPTest, tellsThatAFileIsMissing)
{
    const auto request = requestFor("missing.txt");
    const auto error = live::failureOf(*request);
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getCode(), CURLE_REMOTE_FILE_NOT_FOUND);
    EXPECT_TRUE(error->getMessage().startsWith("Remote file not found: ")) << error->getMessage();
    EXPECT_EQ(error->getProps().get("responseCodeDomain"), "ftp");
}

TEST_F(SFTPTest, tellsThatTheLoginIsDenied)
{
    const auto request = requestFor("digits.txt");
    request->setOptionString(CURLOPT_SSH_PRIVATE_KEYFILE, "/nowhere/key");
    request->setOptionString(CURLOPT_SSH_PUBLIC_KEYFILE, "/nowhere/key.pub");
    EXPECT_EQ(performed(*request), CURLE_LOGIN_DENIED);
}

TEST_F(SFTPTest, believesAKnownHost)
{
    const auto request = requestFor("digits.txt");
    demand(*request, m_server.knownHostsLine());
    request->perform();
    EXPECT_EQ(bodyOf(*request), "0123456789");
}

TEST_F(SFTPTest, believesNoUnknownHost)
{
    for (const std::filesystem::path& file : {m_folder.write("known_hosts", ""), m_folder.path() / "missing"}) {
        const auto request = requestFor("digits.txt");
        request->setSSHKnownHostsPath(norla::CNetRequest::Path::fromBytes(file.string()));
        EXPECT_EQ(performed(*request), CURLE_PEER_FAILED_VERIFICATION);
    }
    EXPECT_EQ(m_server.log().find("Accepted publickey"), std::string::npos) << m_server.log();
}

// libcurl would use the connection again without a question.
TEST_F(SFTPTest, believesNoUnknownHostOverAnOldConnectionEither)
{
    const auto request = requestFor("digits.txt");
    request->perform();
    demand(*request, "");
    EXPECT_EQ(performed(*request), CURLE_PEER_FAILED_VERIFICATION);
}

TEST_F(SFTPTest, believesNoUnknownHostOverAnOldConnectionInTheBackgroundEither)
{
    const auto thread = kx::newObj<norla::CAsyncNetRequestThread>();
    thread->start();
    const auto first = requestFor("digits.txt");
    EXPECT_EQ(performedBy(*thread, *first), success);
    const auto second = requestFor("digits.txt");
    demand(*second, "");
    EXPECT_EQ(performedBy(*thread, *second), CURLE_PEER_FAILED_VERIFICATION);
}

TEST_F(SFTPTest, usesAConnectionAgainInTheBackgroundWhereNothingIsDemanded)
{
    const auto thread = kx::newObj<norla::CAsyncNetRequestThread>();
    thread->start();
    const auto first = requestFor("digits.txt");
    EXPECT_EQ(performedBy(*thread, *first), success);
    const auto second = requestFor("digits.txt");
    EXPECT_EQ(performedBy(*thread, *second), success);
    EXPECT_EQ(second->getInfoLong(CURLINFO_NUM_CONNECTS), 0);
}

TEST_F(SFTPTest, believesNoOtherFingerprintOverAnOldConnection)
{
    for (const auto& [option, fingerprint] :
        std::map<CURLoption, std::string>{{CURLOPT_SSH_HOST_PUBLIC_KEY_MD5, std::string(32, '0')},
            {CURLOPT_SSH_HOST_PUBLIC_KEY_SHA256, "47DEQpj8HBSa+/TImW+5JCeuQeRkm5NMpJWZG3hSuFU"}}) {
        const auto request = requestFor("digits.txt");
        request->perform();
        request->setOptionString(option, kx::String::fromUTF8(fingerprint));
        EXPECT_EQ(performed(*request), CURLE_PEER_FAILED_VERIFICATION) << option;
    }
}

TEST_F(SFTPTest, usesAConnectionAgainThatWasMadeUnderTheSameDemand)
{
    const auto request = requestFor("digits.txt");
    demand(*request, m_server.knownHostsLine());
    request->perform();
    request->perform();
    EXPECT_EQ(request->getInfoLong(CURLINFO_NUM_CONNECTS), 0);
}

TEST_F(SFTPTest, usesNoConnectionAgainWhereOneWasMadeUnderAnotherDemand)
{
    const auto request = requestFor("digits.txt");
    request->perform();
    demand(*request, m_server.knownHostsLine());
    for (int i = 0; i < 2; ++i) {
        request->perform();
        EXPECT_EQ(request->getInfoLong(CURLINFO_NUM_CONNECTS), 1);
    }
}

TEST_F(SFTPTest, demandsNothingAfterAReset)
{
    const auto request = requestFor("digits.txt");
    demand(*request, m_server.knownHostsLine());
    request->perform();
    request->reset();
    prepare(*request, "digits.txt");
    request->setOptionInt(CURLOPT_FRESH_CONNECT, 1);
    request->perform(); // over a connection whose server has proved nothing
    request->setOptionInt(CURLOPT_FRESH_CONNECT, 0);
    demand(*request, ""); // by the same path
    EXPECT_EQ(performed(*request), CURLE_PEER_FAILED_VERIFICATION);
}

TEST_F(SFTPTest, leavesConnectionsOfOtherProtocolsAlone)
{
    support::CScriptedServer server;
    const std::string answer = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n";
    server.onConnection().readHead().send(answer).readHead().send(answer);
    const auto request = requestFor("digits.txt");
    request->perform();
    demand(*request, m_server.knownHostsLine());
    request->perform();
    request->setURL(kx::String::fromUTF8(server.url()));
    request->perform();
    request->perform();
    EXPECT_EQ(request->getInfoLong(CURLINFO_NUM_CONNECTS), 0);
}

TEST_F(SFTPTest, tellsThatTheHostKeyHasChanged)
{
    // The right kind of key, but another one.
    const support::CSSHServer another;
    std::string line = another.knownHostsLine();
    const std::string anotherPort = ":" + std::to_string(another.getPort());
    const size_t port = line.find(anotherPort);
    if (port != std::string::npos)
        line.replace(port, anotherPort.size(), ":" + std::to_string(m_server.getPort()));
    const auto knownHosts = m_folder.write("known_hosts", line + "\n");
    const auto request = requestFor("digits.txt");
    request->setSSHKnownHostsPath(norla::CNetRequest::Path::fromBytes(knownHosts.string()));
    EXPECT_EQ(performed(*request), CURLE_PEER_FAILED_VERIFICATION);
}

TEST_F(SFTPTest, isUsableAfterAFailure)
{
    const auto request = requestFor("missing.txt");
    EXPECT_NE(live::failureOf(*request), nullptr);
    request->setURL(kx::String::fromUTF8(m_server.url((m_server.root() / "digits.txt").string())));
    request->perform();
    EXPECT_EQ(bodyOf(*request), "0123456789");
}

} // namespace
