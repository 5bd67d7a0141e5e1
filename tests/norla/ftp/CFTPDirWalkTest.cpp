// What the making of directories sends, command by command.
#include "kx/base/CInvalidArgError.h"
#include "tests/norla/ftp/scriptedFTP.h"

#include <string>

namespace {

using ftp::CFTPClientServedTest;
using norla::CFTPClient;
using support::CScript;

class CFTPClientWalkTest : public CFTPClientServedTest {
protected:
    void make(const kx::String& path) { client().createDirs(request(), path); }
};

TEST_F(CFTPClientWalkTest, makesAllAndThenGoesThere)
{
    serve({}, {"550 exists", "550 exists", "257 made", "250 there"});
    make("/a/b/c");
    EXPECT_EQ(commands(), "MKD /a\r\nMKD /a/b\r\nMKD /a/b/c\r\nCWD /a/b/c\r\nQUIT\r\n");
}

TEST_F(CFTPClientWalkTest, takesNamesAsTheyAre)
{
    serve({}, {"257 made", "257 made", "250 there"});
    make("/my dir/100%25#?;type=a");
    EXPECT_EQ(commands(), "MKD /my dir\r\nMKD /my dir/100%25#?;type=a\r\nCWD /my dir/100%25#?;type=a\r\nQUIT\r\n");
}

TEST_F(CFTPClientWalkTest, takesNamesOutsideASCII)
{
    serve({}, {"257 made", "250 there"});
    make(L"/Gr\u00fcn");
    EXPECT_EQ(commands(), "MKD /Gr\xc3\xbcn\r\nCWD /Gr\xc3\xbcn\r\nQUIT\r\n");
}

TEST_F(CFTPClientWalkTest, leavesOutEmptyParts)
{
    serve({}, {"257 made", "257 made", "250 there"});
    make("//a///b//");
    EXPECT_EQ(commands(), "MKD /a\r\nMKD /a/b\r\nCWD /a/b\r\nQUIT\r\n");
}

TEST_F(CFTPClientWalkTest, leavesDotsToTheServer)
{
    serve({}, {"550 exists", "550 exists", "257 made", "250 there"});
    make("/a/../b");
    EXPECT_EQ(commands(), "MKD /a\r\nMKD /a/..\r\nMKD /a/../b\r\nCWD /a/../b\r\nQUIT\r\n");
}

TEST_F(CFTPClientWalkTest, goesFromTheLoginsDirectoryWithoutASlash)
{
    for (const std::string place : {"257 \"/home/u\"", "257 /home/u", "550 not told"}) {
        support::CScriptedServer server;
        login(server.onConnection(), place).readUntil("CWD /b\r\n").send("250 there\r\n").readUntil("QUIT\r\n").close();
        CScript& making = login(server.onConnection(), place);
        making.readUntil("MKD a\r\n").send("257 made\r\n").readUntil("MKD a/b\r\n").send("257 made\r\n");
        making.readUntil("QUIT\r\n").close();
        CScript& entering = login(server.onConnection(), place);
        entering.readUntil("CWD a/b\r\n").send("250 there\r\n").readUntil("QUIT\r\n").close();
        const auto walked = clientFor(server.getPort());
        walked->beginPrepareRequest(request(), "//b/", false); // leaves a connection that stands elsewhere
        request().setFTPFileMethod(CURLFTPMETHOD_SINGLECWD);
        request().setOptionInt(CURLOPT_NOBODY, 1);
        request().perform();
        EXPECT_NO_THROW(walked->createDirs(request(), "a/b")) << place;
        m_request = kx::newObj<norla::CNetRequest>(); // says QUIT
        server.join();
        EXPECT_TRUE(server.received(1).ends_with("PWD\r\nMKD a\r\nMKD a/b\r\nQUIT\r\n")) << server.received(1);
        EXPECT_TRUE(server.received(2).ends_with("PWD\r\nCWD a/b\r\nQUIT\r\n")) << server.received(2);
    }
}

TEST_F(CFTPClientWalkTest, makesNothingForTheRoot)
{
    serve({}, {"250 there"});
    make("/");
    EXPECT_EQ(commands(), "CWD /\r\nQUIT\r\n");
}

TEST_F(CFTPClientWalkTest, leavesLaterPathsTheirMeaning)
{
    m_place = "257 \"/home/u\"";
    auto& control = login(m_control.onConnection(), m_place);
    for (const char* const reply : {"257 made", "250 there", "250 home"})
        control.readUntil("\r\n").send(std::string(reply) + "\r\n");
    serveListing(control, "", true);
    control.readUntil("QUIT\r\n").close();
    make("/a");
    client().listDir(request(), "/b");
    EXPECT_EQ(commands(), "MKD /a\r\nCWD /a\r\nCWD /home/u\r\nMLSD b\r\nQUIT\r\n");
}

TEST_F(CFTPClientWalkTest, looksAgainWhetherADirectoryIsThere)
{
    serve({}, {"257 made", "250 there", "250 home", "550 exists", "250 there"});
    make("/a");
    make("/a"); // libcurl goes nowhere when it believes to be there
    EXPECT_EQ(commands(), "MKD /a\r\nCWD /a\r\nCWD /\r\nMKD /a\r\nCWD /a\r\nQUIT\r\n");
}

TEST_F(CFTPClientWalkTest, saysWhereTheWayEndsInTheServersWords)
{
    serve({},
        {"550 exists", "550 not yours", "550 no parent", "550 no way", // tries them all
            "250 there", "550 not there", "250 home", "550-Not allowed,\r\n550 /a/b: not yours"});
    const auto error = support::errorOf([this] { make("/a/b/c"); });
    ASSERT_TRUE(error);
    EXPECT_TRUE(dynamic_cast<const norla::CCURLError*>(error.get()));
    EXPECT_EQ(error->getMessage(),
        "Quote command returned error: FTP directory '/a/b' can neither be entered (550 not there) nor made (550 /a/b: "
        "not "
        "yours) (response code: ftp 550)");
    EXPECT_EQ(error->getDomain(), "curl");
    EXPECT_EQ(error->getCode(), CURLE_QUOTE_ERROR);
    EXPECT_EQ(error->getProps().get("responseCode"), "550");
    EXPECT_EQ(error->getProps().get("responseCodeDomain"), "ftp");
}

TEST_F(CFTPClientWalkTest, goesOnWhenADirectoryCanBeMadeAfterAll)
{
    serve({},
        {"550 busy", "550 no parent", "550 no way", // tries them all
            "550 no way", "250 home", "257 made", "550 no way", "250 home", "257 made", "250 there"});
    make("/a/b");
    EXPECT_TRUE(
        commands().ends_with("CWD /a\r\nCWD /\r\nMKD /a\r\nCWD /a/b\r\nCWD /\r\nMKD /a/b\r\nCWD /a/b\r\nQUIT\r\n"))
        << commands();
}

TEST_F(CFTPClientWalkTest, doesNotBelieveThatADirectoryIsMadeWhichCannotBeEntered)
{
    serve({}, {"257 made", "550 not there", "550 not there", "250 home", "257 made", "550 still not there"});
    EXPECT_EQ(support::messageOf([this] { make("/a"); }),
        "Quote command returned error: FTP directory '/a' can neither be entered (550 still not there) nor made (257 "
        "made) (response code: ftp 550)");
}

TEST_F(CFTPClientWalkTest, namesTheDirectoryWhenTheLoginsOwnCannotBeEntered)
{
    serve({}, {"550 no", "550 not there", "550 not there", "550 nor home"});
    const auto error = support::errorOf([this] { make("/a"); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getCode(), CURLE_QUOTE_ERROR);
    EXPECT_NE(error->getMessage().find("'/a' can neither be entered (550 not there) nor made (550 nor home)"),
        kx::String::npos)
        << error->what();
}

TEST_F(CFTPClientWalkTest, doesNotGoOnWithoutAConnection)
{
    login(m_control.onConnection()).readUntil("MKD /a\r\n").send("257 made\r\n").readUntil("CWD /a\r\n").reset();
    EXPECT_TRUE(support::errorOf([this] { make("/a"); }));
    EXPECT_EQ(m_control.connectionCount(), 1u);
}

TEST_F(CFTPClientWalkTest, isNotLedAstrayByOverrides)
{
    for (const auto type : {CFTPClient::CWDSteps, CFTPClient::CWDDirect, CFTPClient::CWDNone}) {
        support::CScriptedServer server;
        auto& control = login(server.onConnection());
        for (const char* const reply : {"257 made", "257 made", "250 there"})
            control.readUntil("\r\n").send(std::string(reply) + "\r\n");
        control.readUntil("QUIT\r\n").close();
        const auto overridden = clientFor(server.getPort());
        overridden->setOverrideCWDType(type);
        overridden->createDirs(request(), "/a/b");
        EXPECT_NE(server.received(0).find("CWD /a/b\r\n"), std::string::npos) << server.received(0);
    }
}

TEST_F(CFTPClientWalkTest, refusesBadPathsBeforeAnythingIsSent)
{
    for (const kx::String& path : {kx::String(), kx::String("/a\r\nDELE /b"), kx::String("/a\tb"),
             kx::String(L"/a\x7f"), kx::String(std::wstring(L"/a\0b", 4))}) {
        const auto error = support::errorOf([&] { make(path); });
        ASSERT_TRUE(error) << path;
        EXPECT_TRUE(dynamic_cast<const kx::CInvalidArgError*>(error.get())) << error->what();
    }
    EXPECT_EQ(m_control.connectionCount(), 0u);
}

} // namespace
