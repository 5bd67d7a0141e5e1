// FTP and FTPS transfers of CNetRequest against pyftpdlib.
#include "norla/core/CNetStringList.h"
#include "tests/live/liveRequest.h"
#include "tests/support/CFTPServer.h"
#include "tests/support/CTestCertificates.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <sstream>

namespace {

using live::bodyOf;
using live::messageOf;

class FTPTest : public testing::Test {
protected:
    explicit FTPTest(support::CFTPServer::Security security = support::CFTPServer::Security::None)
        : m_server(security)
    {
    }

    kx::P<norla::CNetRequest> requestFor(const std::string& path, const char* scheme = "ftp")
    {
        auto request = live::requestFor(m_server.url(path, scheme));
        request->setUserName("user");
        request->setUserPassword("secret");
        request->setRootCertBundlePath(
            norla::CNetRequest::Path::fromBytes(support::CTestCertificates::get().caFile().native()));
        return request;
    }

    std::string contentOf(const std::string& name) const
    {
        std::ifstream in(m_server.root() / name, std::ios::binary);
        return (std::ostringstream() << in.rdbuf()).str();
    }

    bool sawCommand(const std::string& command) const
    {
        const auto commands = m_server.commands();
        return std::find(commands.begin(), commands.end(), command) != commands.end();
    }

    support::CFTPServer m_server;
};

TEST_F(FTPTest, downloadsAFile)
{
    const auto request = requestFor("/digits.txt");
    request->perform();
    EXPECT_EQ(bodyOf(*request), "0123456789");
    EXPECT_EQ(request->getResponseCode(), 226);
    EXPECT_TRUE(sawCommand("RETR digits.txt"));
}

TEST_F(FTPTest, downloadsARange)
{
    const auto request = requestFor("/digits.txt");
    request->setRange(3, 4);
    request->perform();
    EXPECT_EQ(bodyOf(*request), "3456");
    EXPECT_TRUE(sawCommand("REST 3"));
}

TEST_F(FTPTest, uploadsIntoAFolderThatItMakes)
{
    const auto request = requestFor("/new/folder/text.txt");
    request->setFTPCreateMissingDirs(CURLFTP_CREATE_DIR_RETRY);
    request->setSendDataAsUTF8("text");
    request->setUpload(true);
    request->perform();
    EXPECT_EQ(contentOf("new/folder/text.txt"), "text");
}

TEST_F(FTPTest, sendsCommandsBeforeAndAfterTheTransfer)
{
    const auto before = kx::newObj<norla::CNetStringList>();
    before->add("MKD made");
    const auto after = kx::newObj<norla::CNetStringList>();
    after->add("RMD made");
    const auto request = requestFor("/digits.txt");
    request->setFTPCustomPreCommands(before.get());
    request->setFTPCustomPostCommands(after.get());
    request->perform();
    EXPECT_TRUE(sawCommand("MKD made"));
    EXPECT_TRUE(sawCommand("RMD made"));
}

TEST_F(FTPTest, listsWithTheCommandItIsGiven)
{
    const auto request = requestFor("/");
    request->setFTPListOverrideCommand("MLSD");
    request->perform();
    EXPECT_NE(bodyOf(*request).find("type=file"), std::string::npos) << bodyOf(*request);
    EXPECT_NE(bodyOf(*request).find("; digits.txt\n"), std::string::npos) << bodyOf(*request);
}

TEST_F(FTPTest, collectsTheServersReplies)
{
    const auto request = requestFor("/digits.txt");
    request->perform();
    std::vector<std::string> codes;
    for (const auto line = request->getResponseInfo()->createIterator(); line->next();)
        codes.push_back(line->getCurrent().toUTF8().substr(0, 3));
    EXPECT_EQ(codes.front(), "220");
    EXPECT_EQ(codes.back(), "226");
}

TEST_F(FTPTest, tellsThatAFileIsMissing)
{
    const auto request = requestFor("/missing.txt");
    const auto error = live::failureOf(*request);
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getMessage(), "Remote file not found: The file does not exist (response code: ftp 550)");
    EXPECT_EQ(error->getProps().get("responseCodeDomain"), "ftp");
}

TEST_F(FTPTest, tellsThatThePasswordIsWrongWithoutShowingIt)
{
    const auto request = requestFor("/digits.txt");
    request->setUserPassword("wr0ng");
    const auto error = live::failureOf(*request);
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getMessage(), "Login denied: Access denied: 530 (response code: ftp 530)");
    EXPECT_EQ(error->getMessage().find("wr0ng"), kx::String::npos);
}

TEST_F(FTPTest, isUsableAfterAFailure)
{
    const auto request = requestFor("/missing.txt");
    EXPECT_NE(live::failureOf(*request), nullptr);
    request->setURL(kx::String::fromUTF8(m_server.url("/digits.txt")));
    request->perform();
    EXPECT_EQ(bodyOf(*request), "0123456789");
}

class ExplicitFTPSTest : public FTPTest {
protected:
    ExplicitFTPSTest()
        : FTPTest(support::CFTPServer::Security::Explicit)
    {
    }
};

TEST_F(ExplicitFTPSTest, downloadsAFile)
{
    const auto request = requestFor("/digits.txt");
    request->setFTPUseSSL(CURLUSESSL_ALL);
    request->perform();
    EXPECT_EQ(bodyOf(*request), "0123456789");
    EXPECT_TRUE(sawCommand("AUTH SSL") || sawCommand("AUTH TLS"));
    EXPECT_TRUE(sawCommand("PROT P"));
}

TEST_F(ExplicitFTPSTest, uploadsAFile)
{
    const auto request = requestFor("/text.txt");
    request->setFTPUseSSL(CURLUSESSL_ALL);
    request->setSendDataAsUTF8("text");
    request->setUpload(true);
    request->perform();
    EXPECT_EQ(contentOf("text.txt"), "text");
}

TEST_F(FTPTest, failsWhenTLSIsDemandedOfAServerWithoutIt)
{
    const auto request = requestFor("/digits.txt");
    request->setFTPUseSSL(CURLUSESSL_ALL);
    EXPECT_EQ(live::failureOf(*request)->getCode(), CURLE_USE_SSL_FAILED);
}

class ImplicitFTPSTest : public FTPTest {
protected:
    ImplicitFTPSTest()
        : FTPTest(support::CFTPServer::Security::Implicit)
    {
    }
};

TEST_F(ImplicitFTPSTest, downloadsAFile)
{
    const auto request = requestFor("/digits.txt", "ftps");
    request->perform();
    EXPECT_EQ(bodyOf(*request), "0123456789");
}

TEST_F(ImplicitFTPSTest, tellsThatTheCertificatesAuthorityIsUnknown)
{
    const auto request = requestFor("/digits.txt", "ftps");
    request->setRootCertBundlePath(
        norla::CNetRequest::Path::fromBytes(support::CTestCertificates::get().otherCAFile().native()));
    EXPECT_EQ(messageOf(*request),
        "SSL peer certificate or SSH remote key was not OK: SSL certificate problem: unable to get local issuer "
        "certificate");
}

} // namespace
