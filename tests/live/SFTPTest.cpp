// SFTP transfers of CNetRequest against OpenSSH, with a login by key.
#include "tests/live/liveRequest.h"
#include "tests/support/CSSHServer.h"
#include "tests/support/CTemporaryFolder.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

namespace {

using live::bodyOf;

class SFTPTest : public testing::Test {
protected:
    kx::P<norla::CNetRequest> requestFor(const std::string& name)
    {
        auto request = live::requestFor(m_server.url((m_server.root() / name).string()));
        request->setUserName(kx::String::fromUTF8(m_server.userName()));
        request->setOptionString(CURLOPT_SSH_PRIVATE_KEYFILE, kx::String::fromUTF8(m_server.privateKeyFile().string()));
        request->setOptionString(CURLOPT_SSH_PUBLIC_KEYFILE, kx::String::fromUTF8(m_server.publicKeyFile().string()));
        request->setOptionInt(CURLOPT_SSH_AUTH_TYPES, CURLSSH_AUTH_PUBLICKEY);
        return request;
    }

    support::CSSHServer m_server;
};

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
    EXPECT_EQ(live::failureOf(*request)->getCode(), CURLE_LOGIN_DENIED);
}

TEST_F(SFTPTest, believesAKnownHost)
{
    const support::CTemporaryFolder folder;
    const auto request = requestFor("digits.txt");
    request->setSSHKnownHostsPath(
        norla::CNetRequest::Path::fromBytes(folder.write("known_hosts", m_server.knownHostsLine()).string()));
    request->perform();
    EXPECT_EQ(bodyOf(*request), "0123456789");
}

TEST_F(SFTPTest, believesNoUnknownHost)
{
    const support::CTemporaryFolder folder;
    for (const std::filesystem::path& file : {folder.write("known_hosts", ""), folder.path() / "missing"}) {
        const auto request = requestFor("digits.txt");
        request->setSSHKnownHostsPath(norla::CNetRequest::Path::fromBytes(file.string()));
        EXPECT_EQ(live::failureOf(*request)->getCode(), CURLE_PEER_FAILED_VERIFICATION);
    }
    EXPECT_EQ(m_server.log().find("Accepted publickey"), std::string::npos) << m_server.log();
}

// libcurl would use the connection again without a question.
TEST_F(SFTPTest, believesNoUnknownHostOverAnOldConnectionEither)
{
    const support::CTemporaryFolder folder;
    const auto request = requestFor("digits.txt");
    request->perform();
    request->setSSHKnownHostsPath(norla::CNetRequest::Path::fromBytes(folder.write("known_hosts", "").string()));
    EXPECT_EQ(live::failureOf(*request)->getCode(), CURLE_PEER_FAILED_VERIFICATION);
}

TEST_F(SFTPTest, usesAConnectionAgainThatWasMadeUnderTheSameDemand)
{
    const support::CTemporaryFolder folder;
    const auto request = requestFor("digits.txt");
    request->setSSHKnownHostsPath(
        norla::CNetRequest::Path::fromBytes(folder.write("known_hosts", m_server.knownHostsLine()).string()));
    request->perform();
    request->perform();
    EXPECT_EQ(request->getInfoLong(CURLINFO_NUM_CONNECTS), 0);
}

TEST_F(SFTPTest, tellsThatTheHostKeyHasChanged)
{
    const support::CTemporaryFolder folder;
    // The right kind of key, but another one.
    const support::CSSHServer another;
    std::string line = another.knownHostsLine();
    const std::string anotherPort = ":" + std::to_string(another.getPort());
    const size_t port = line.find(anotherPort);
    if (port != std::string::npos)
        line.replace(port, anotherPort.size(), ":" + std::to_string(m_server.getPort()));
    const auto knownHosts = folder.write("known_hosts", line + "\n");
    const auto request = requestFor("digits.txt");
    request->setSSHKnownHostsPath(norla::CNetRequest::Path::fromBytes(knownHosts.string()));
    EXPECT_EQ(live::failureOf(*request)->getCode(), CURLE_PEER_FAILED_VERIFICATION);
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
