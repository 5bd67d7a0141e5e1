// The example ftp, run as a person runs it.
#include "tests/live/exampleRun.h"
#include "tests/support/CFTPServer.h"
#include "tests/support/CProFTPDServer.h"
#include "tests/support/CTemporaryFolder.h"
#include "tests/support/CTestCertificates.h"

#include <gtest/gtest.h>

namespace {

using support::CProcessRun;
using Security = support::IFTPServer::Security;

class FTPExampleTest : public testing::TestWithParam<Security> {
protected:
    CProcessRun ftp(const std::vector<std::string>& words, CProcessRun::Terminal terminal = CProcessRun::Terminal::None)
    {
        std::vector<std::string> arguments{"ftp"};
        if (GetParam() == Security::Explicit)
            arguments.push_back("--tls");
        if (GetParam() == Security::Implicit)
            arguments.push_back("--implicit-tls");
        arguments.insert(arguments.end(),
            {"--ca", support::CTestCertificates::get().caFile(), "127.0.0.1:" + std::to_string(m_server.getPort())});
        arguments.insert(arguments.end(), words.begin(), words.end());
        return live::run({.arguments = std::move(arguments),
            .environment = {"FTP_USER=user", "FTP_PASSWORD=" + m_password},
            .terminal = terminal});
    }

    support::CFTPServer m_server{GetParam()};
    support::CTemporaryFolder m_folder;
    std::string m_password = "secret";
};

INSTANTIATE_TEST_SUITE_P(All, FTPExampleTest, testing::Values(Security::None, Security::Explicit, Security::Implicit));

TEST_P(FTPExampleTest, worksOnFiles)
{
    const auto file = m_folder.write("file.txt", "some content").string();
    EXPECT_EQ(ftp({"put", file, "/a/b/file.txt"}).errors(), "");
    EXPECT_EQ(ftp({"mv", "/a/b/file.txt", "/a/my file.txt"}).exitStatus(), 0);
    EXPECT_TRUE(ftp({"ls", "/a"}).output().find("\tmy file.txt\n") != std::string::npos);
    EXPECT_TRUE(ftp({"stat", "/a/my file.txt"}).output().starts_with("file\t12\t"));
    const auto fetched = (m_folder.path() / "fetched").string();
    EXPECT_EQ(ftp({"get", "/a/my%20file.txt", fetched}).exitStatus(), 0);
    EXPECT_EQ(live::contentOf(fetched), "some content");
    EXPECT_EQ(ftp({"rm", "/a/my file.txt"}).exitStatus(), 0);
    EXPECT_EQ(ftp({"mkdir", "/c/d"}).exitStatus(), 0);
    EXPECT_TRUE(std::filesystem::is_directory(m_server.root() / "c/d"));
    EXPECT_EQ(ftp({"rmtree", "/c"}).exitStatus(), 0);
    EXPECT_FALSE(std::filesystem::exists(m_server.root() / "c"));
}

TEST_P(FTPExampleTest, showsItsProgressOnATerminal)
{
    const auto file = m_folder.write("file.txt", std::string(1 << 20, 'x')).string();
    const auto stored = ftp({"put", file, "/file.txt"}, CProcessRun::Terminal::Errors);
    EXPECT_NE(stored.errors().find("] 100 %"), std::string::npos) << stored.errors();
}

TEST_P(FTPExampleTest, explainsFailures)
{
    const auto missing = ftp({"get", "/missing", (m_folder.path() / "fetched").string()});
    EXPECT_EQ(missing.exitStatus(), 1);
    EXPECT_TRUE(missing.errors().starts_with("ftp: /missing: ")) << missing.errors();
    EXPECT_TRUE(std::filesystem::is_empty(m_folder.path()));
    const auto notThere = ftp({"rm", "/missing"});
    EXPECT_EQ(notThere.exitStatus(), 1);
    EXPECT_EQ(notThere.errors(),
        "ftp: /missing: Quote command returned error: QUOT command failed with 550 (response code: ftp 550)\n"
        "  550 No such file or directory.\n");
    m_password = "wrong";
    const auto refused = ftp({"ls", "/"});
    EXPECT_EQ(refused.exitStatus(), 1);
    EXPECT_EQ(refused.errors(),
        "ftp: /: Login denied: Access denied: 530 (response code: ftp 530)\n  530 Authentication failed.\n");
}

TEST_P(FTPExampleTest, makesDirectoriesOfPlainNames)
{
    EXPECT_EQ(ftp({"mkdir", "/my dir/100%41/b"}).errors(), "");
    EXPECT_TRUE(std::filesystem::is_directory(m_server.root() / "my dir/100%41/b"));
    const auto refused = ftp({"mkdir", "/digits.txt/b"});
    EXPECT_EQ(refused.exitStatus(), 1);
    EXPECT_NE(refused.errors().find("FTP directory '/digits.txt' can neither be entered"), std::string::npos)
        << refused.errors();
}

TEST_P(FTPExampleTest, refusesControlCharacters)
{
    for (const std::string path : {"/x\r\nDELE /digits.txt", "/x\nDELE /digits.txt", "/x\x7f"}) {
        const auto refused = ftp({"rm", path});
        EXPECT_EQ(refused.exitStatus(), 2);
        EXPECT_EQ(refused.errors().substr(refused.errors().find(" holds")),
            " holds a line end or another control character\nTry 'ftp --help'.\n");
    }
    EXPECT_TRUE(std::filesystem::exists(m_server.root() / "digits.txt"));
    EXPECT_EQ(m_server.log(), "");
}

TEST_P(FTPExampleTest, doesNotDeleteATreeThatIsNotNamed)
{
    for (const std::string path : {"", "/a/..", "/.", "."}) {
        const auto refused = ftp({"rmtree", path});
        EXPECT_EQ(refused.exitStatus(), 2);
        EXPECT_NE(refused.errors().find("'" + path + "'"), std::string::npos) << refused.errors();
    }
    EXPECT_TRUE(std::filesystem::exists(m_server.root() / "digits.txt"));
    EXPECT_EQ(m_server.log(), "");
}

TEST(FTPExampleListingTest, showsTheOthersBesideAFileWhoseNameIsNotUTF8)
{
    const support::CProFTPDServer server;
    std::ofstream(server.root() / "gr\xFCn") << "";
    std::ofstream(server.root() / "other") << "";
    const auto list = live::run({.arguments = {"ftp", "127.0.0.1:" + std::to_string(server.getPort()), "ls", "/"},
        .environment = {"FTP_USER=user", "FTP_PASSWORD=secret"}});
    EXPECT_NE(list.output().find("\tother\n"), std::string::npos) << list.errors();
    EXPECT_EQ(list.errors().find("ftp: /: These lines of the listing cannot be read:\n  "), 0U) << list.errors();
    EXPECT_TRUE(list.errors().ends_with(" gr\\xfcn\n")) << list.errors();
    EXPECT_EQ(list.exitStatus(), 1);
}

} // namespace
