// What a tree's listings make the client do, command by command.
#include "kx/base/CInvalidArgError.h"
#include "tests/norla/ftp/scriptedFTP.h"
#include "tests/support/CLogRecorder.h"
#include "tests/support/CRefusedPort.h"

#include <string>

namespace {

using ftp::CFTPClientServedTest;
using support::CScript;

/// What a tree's listing makes the client do.
class CFTPClientTreeTest : public CFTPClientServedTest {};

TEST_F(CFTPClientTreeTest, isOneListingAndOneRemovalForAnEmptyDirectory)
{
    serve({"type=cdir; .\r\ntype=pdir; ..\r\n"}, {"250 gone"});
    client().deleteDirWithAllContents(request(), "/top");
    EXPECT_EQ(commands(), "MLSD top\r\nRMD /top\r\nQUIT\r\n");
}

TEST_F(CFTPClientTreeTest, neverLeavesItsTree)
{
    serve({"type=dir; .\r\ntype=dir; ..\r\ntype=dir; \r\ntype=file; ../../victim\r\ntype=dir; /\r\ntype=file; "
           "..\\x\r\ntype=dir; "
           "a\\b\r\ntype=file; a\r\n"},
        {"250 gone", "250 gone"});
    client().deleteDirWithAllContents(request(), "/top");
    EXPECT_EQ(commands(), "MLSD top\r\nDELE /top/a\r\nRMD /top\r\nQUIT\r\n");
}

TEST_F(CFTPClientTreeTest, isLeftAtTheFirstFailureAndPassesOverLinks)
{
    serve({"type=file; a\r\ntype=OS.unix=slink:/x; l\r\ntype=file; b\r\ntype=file; c\r\n"}, {"250 gone", "550 no"});
    const auto error = support::errorOf([this] { client().deleteDirWithAllContents(request(), "/top/"); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getCode(), CURLE_QUOTE_ERROR);
    EXPECT_TRUE(commands().starts_with("MLSD top\r\nDELE /top//a\r\nDELE /top//b\r\n")) << commands();
    EXPECT_EQ(m_control.received(0).find("RMD"), std::string::npos);
}

TEST_F(CFTPClientTreeTest, isUntouchedWhenItsListingCannotBeRead)
{
    serve({"type=file; a\r\nbroken\r\n"}, {});
    EXPECT_EQ(support::messageOf([this] { client().deleteDirWithAllContents(request(), "/top"); }),
        "Invalid FTP dir entry: 'broken'");
    EXPECT_EQ(commands(), "MLSD top\r\nQUIT\r\n");
}

TEST_F(CFTPClientTreeTest, isLeftWhenItDoesNotEnd)
{
    const std::string name(250, 'd');
    constexpr int levels = 17; // until the path goes on for more than 4096 characters
    serve(std::vector(levels, "type=dir; " + name + "\r\n"), {});
    EXPECT_EQ(support::messageOf([this] { client().deleteDirWithAllContents(request(), "/top"); }),
        "FTP directory is nested deeper than 4096 characters: '/top/" + kx::String::fromUTF8(name.substr(0, 95))
            + "...'.");
}

TEST_F(CFTPClientTreeTest, mayHaveALongPathOfItsOwn)
{
    const std::string top(5000, 't');
    serve({"type=dir; a\r\n", ""}, {"250 gone", "250 gone"});
    client().deleteDirWithAllContents(request(), "/" + kx::String::fromUTF8(top));
    EXPECT_TRUE(commands() // too long to be shown
        == "MLSD " + top + "\r\nMLSD " + top + "/a\r\nRMD /" + top + "/a\r\nRMD /" + top + "\r\nQUIT\r\n");
}

class CFTPClientOddNameTest : public CFTPClientTreeTest, public testing::WithParamInterface<const char*> {};

TEST_P(CFTPClientOddNameTest, meansTheSameInListingsAsInCommands)
{
    const std::string name = GetParam();
    serve({"type=dir; " + name + "\r\n", "type=file; f\r\n"}, {"250 gone", "250 gone", "250 gone"});
    client().deleteDirWithAllContents(request(), "/top");
    EXPECT_EQ(commands(),
        "MLSD top\r\nMLSD /top/" + name + "\r\nDELE /top/" + name + "/f\r\nRMD /top/" + name
            + "\r\nRMD /top\r\nQUIT\r\n");
}

TEST_P(CFTPClientOddNameTest, mayBeTheTrees)
{
    const std::string name = GetParam();
    serve({"type=dir; a\r\n", ""}, {"250 there", "250 gone", "250 gone"}); // libcurl goes home before commands
    client().deleteDirWithAllContents(request(), "/" + kx::String::fromUTF8(name));
    EXPECT_EQ(commands(),
        "MLSD /" + name + "\r\nMLSD /" + name + "/a\r\nCWD /\r\nRMD /" + name + "/a\r\nRMD /" + name + "\r\nQUIT\r\n");
}

INSTANTIATE_TEST_SUITE_P(All, CFTPClientOddNameTest,
    testing::Values("#", "a?b", "a%41b", "100%", "a%23b", "%2e%2e", "%2f", "my dir", "a;type=i", "Gr\xc3\xbcn",
        "%0d%0aDELE%20x", " a", "it's", R"("a")", R"(a""b)", "[a]*", "a&b=c+d"));

/// Whether an answer to PWD says that a path in a URL and one in a command mean the same.
struct CPlaceRow {
    const char* title;
    const char* reply;
    bool isRoot;
};

class CFTPClientPlaceTest : public CFTPClientTreeTest, public testing::WithParamInterface<CPlaceRow> {};

TEST_P(CFTPClientPlaceTest, decidesWhetherATreeIsListedAgainFromTheRoot)
{
    m_place = GetParam().reply;
    if (GetParam().isRoot) {
        serve({"type=dir; sub\r\ntype=file; a\r\n", ""}, {"250 gone", "250 gone", "250 gone"});
        client().deleteDirWithAllContents(request(), "/top");
        EXPECT_EQ(commands(), "MLSD top\r\nMLSD top/sub\r\nRMD /top/sub\r\nDELE /top/a\r\nRMD /top\r\nQUIT\r\n");
        return;
    }
    serve({"type=file; of another tree\r\n", "type=dir; sub\r\ntype=file; a\r\n", ""},
        {"250 gone", "250 gone", "250 gone"});
    client().deleteDirWithAllContents(request(), "/top");
    EXPECT_EQ(
        commands(), "MLSD top\r\nMLSD /top\r\nMLSD /top/sub\r\nRMD /top/sub\r\nDELE /top/a\r\nRMD /top\r\nQUIT\r\n");
}

INSTANTIATE_TEST_SUITE_P(All, CFTPClientPlaceTest,
    testing::Values(CPlaceRow{"root", "257 \"/\"", true}, CPlaceRow{"rootAndMore", "257 \"/\" is \"it\"", true},
        CPlaceRow{"rootBehindMore", "257 you are in \"/\"", true}, CPlaceRow{"home", "257 \"/home/u\"", false},
        CPlaceRow{"quoteMark", "257 \"/\"\"\"", false}, CPlaceRow{"quoteMarkWithin", "257 \"/\"\"/\"", false},
        CPlaceRow{"noQuoteMarks", "257 /", false}, CPlaceRow{"endless", "257 \"/", false},
        CPlaceRow{"refused", "550 not told", false}, CPlaceRow{"notUTF8", "257 \"/\xff\"", false}),
    [](const auto& row) { return row.param.title; });

TEST_F(CFTPClientTreeTest, isListedFromTheRootOnAConnectionThatWasThereBefore)
{
    for (const char* const place : {"257 \"/\"", "257 \"/home/u\""}) {
        support::CScriptedServer server;
        CScript& control = login(server.onConnection(), place);
        control.readUntil("DELE /x\r\n").send("250 gone\r\n");
        serveListings(control, {"type=file; maybe of another tree\r\n", ""});
        control.readUntil("RMD /top\r\n").send("250 gone\r\n").readUntil("QUIT\r\n").close();
        const auto reused = clientFor(server.getPort());
        reused->deleteFile(request(), "/x");
        reused->deleteDirWithAllContents(request(), "/top");
        EXPECT_EQ(server.connectionCount(), 1u);
        EXPECT_NE(server.received(0).find("MLSD /top\r\n"), std::string::npos) << server.received(0);
    }
}

TEST_F(CFTPClientTreeTest, isNotTakenForAnotherServers)
{
    support::CScriptedServer another; // its answer is the last that libcurl has understood
    login(another.onConnection()).readUntil("DELE /x\r\n").send("250 gone\r\n").readUntil("QUIT\r\n").close();
    clientFor(another.getPort())->deleteFile(request(), "/x");
    m_place = "550 not told";
    serve({"type=file; of another tree\r\n", ""}, {"250 gone"});
    client().deleteDirWithAllContents(request(), "/top");
    EXPECT_EQ(commands(), "MLSD top\r\nMLSD /top\r\nRMD /top\r\nQUIT\r\n");
}

TEST_F(CFTPClientTreeTest, isDeletedWhereTheOtherTreeCannotBeListed)
{
    m_place = "257 \"/home/u\"";
    for (const std::string other : {refused, "broken\r\n", "type=file; \xff\r\n"}) {
        support::CScriptedServer server;
        CScript& control = login(server.onConnection(), m_place);
        serveListings(control, {other, ""});
        control.readUntil("RMD /top\r\n").send("250 gone\r\n").readUntil("QUIT\r\n").close();
        EXPECT_NO_THROW(clientFor(server.getPort())->deleteDirWithAllContents(request(), "/top")) << other;
    }
}

TEST_F(CFTPClientTreeTest, isDeletedWhereTheOtherTreeCannotBeEntered)
{
    client().setOverrideCWDType(norla::CFTPClient::CWDDirect);
    m_place = "257 \"/home/u\"";
    CScript& control = login(m_control.onConnection(), m_place);
    control.readUntil("CWD top\r\n").send("550 no such directory\r\n");
    control.readUntil("CWD /top\r\n").send("250 there\r\n");
    serveListing(control, "", true);
    control.readUntil("CWD /home/u\r\n").send("250 there\r\n");
    control.readUntil("RMD /top\r\n").send("250 gone\r\n").readUntil("QUIT\r\n").close();
    client().deleteDirWithAllContents(request(), "/top");
    EXPECT_EQ(commands(), "CWD top\r\nCWD /top\r\nMLSD\r\nCWD /home/u\r\nRMD /top\r\nQUIT\r\n");
}

TEST_F(CFTPClientTreeTest, isAskedForOnceWhereTheLoginIsTheRootAndItCannotBeListed)
{
    serve({refused}, {});
    const auto error = support::errorOf([this] { client().deleteDirWithAllContents(request(), "/top"); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getCode(), CURLE_FTP_COULDNT_RETR_FILE);
    EXPECT_EQ(commands(), "MLSD top\r\nQUIT\r\n");
}

TEST_F(CFTPClientTreeTest, isUntouchedWhereItCannotBeListedFromTheRoot)
{
    m_place = "257 \"/home/u\"";
    serve({"type=file; of another tree\r\n", refused}, {});
    const auto error = support::errorOf([this] { client().deleteDirWithAllContents(request(), "/top"); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getCode(), CURLE_FTP_COULDNT_RETR_FILE);
    EXPECT_EQ(commands(), "MLSD top\r\nMLSD /top\r\nQUIT\r\n");
}

TEST_F(CFTPClientTreeTest, isNotAskedForAgainWhenTheConnectionIsLost)
{
    login(m_control.onConnection(), "257 \"/home/u\"").readUntil("EPSV\r\n").reset();
    EXPECT_TRUE(support::errorOf([this] { client().deleteDirWithAllContents(request(), "/top"); }));
    EXPECT_EQ(m_control.connectionCount(), 1u);
}

TEST_F(CFTPClientTreeTest, isListedOnceWhenItsPathNamesTheRootInURLsToo)
{
    m_place = "257 \"/home/u\"";
    serve({"type=file; a\r\n"}, {"250 there", "250 gone", "250 gone"}); // libcurl goes home before commands
    client().deleteDirWithAllContents(request(), "//top");
    EXPECT_EQ(commands(), "MLSD /top\r\nCWD /home/u\r\nDELE //top/a\r\nRMD //top\r\nQUIT\r\n");
}

TEST_F(CFTPClientTreeTest, mayBeTheRootWhichCannotBeRemoved)
{
    m_place = "257 \"/home/u\"";
    serve({"type=file; of another tree\r\n", "type=dir; d\r\n", ""}, {"250 gone", "550 no"});
    const auto error = support::errorOf([this] { client().deleteDirWithAllContents(request(), "/"); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getCode(), CURLE_QUOTE_ERROR);
    EXPECT_TRUE(commands().starts_with("MLSD\r\nMLSD /\r\nMLSD //d\r\nRMD //d\r\nRMD /\r\n")) << commands();
}

/// A tree whose control connection is lost while it is deleted. The next one begins in another directory, and says so
/// or not.
class CFTPClientLostConnectionTest : public CFTPClientTreeTest, public testing::WithParamInterface<const char*> {
protected:
    CScript& firstConnection() { return login(m_control.onConnection()); }
    CScript& nextConnection() { return login(m_control.onConnection(), GetParam()); }

    /// Goes on with commands that all succeed, and ends the script.
    static void succeed(CScript& control, int commands)
    {
        for (int i = 0; i < commands; ++i)
            control.readUntil("\r\n").send("250 done\r\n");
        control.readUntil("QUIT\r\n").close();
    }

    static bool isHomeKnown() { return std::string(GetParam()).starts_with("257"); }

    void deleteTree()
    {
        client().deleteDirWithAllContents(request(), "/top");
        EXPECT_EQ(m_control.connectionCount(), 2u);
    }
};

TEST_P(CFTPClientLostConnectionTest, isListedFromTheRootWhenItsListingComesOverANewConnection)
{
    CScript& first = firstConnection();
    serveListing(first, "type=file; a\r\ntype=dir; sub\r\n", true);
    first.readUntil("DELE /top/a\r\n").sendAndClose("250 gone\r\n");
    CScript& next = nextConnection();
    serveListing(next, "type=file; of another tree\r\n", true);
    serveListing(next, "type=file; b\r\n");
    succeed(next, 3);
    deleteTree();
    EXPECT_EQ(commands(1), "MLSD top/sub\r\nMLSD /top/sub\r\nDELE /top/sub/b\r\nRMD /top/sub\r\nRMD /top\r\nQUIT\r\n");
}

TEST_P(CFTPClientLostConnectionTest, isListedFromTheRootWhenTheNewConnectionsOtherTreeIsNotThere)
{
    CScript& first = firstConnection();
    serveListing(first, "type=file; a\r\ntype=dir; sub\r\n", true);
    first.readUntil("DELE /top/a\r\n").sendAndClose("250 gone\r\n");
    CScript& next = nextConnection();
    serveListing(next, refused, true);
    serveListing(next, "");
    succeed(next, 2);
    deleteTree();
    EXPECT_EQ(commands(1), "MLSD top/sub\r\nMLSD /top/sub\r\nRMD /top/sub\r\nRMD /top\r\nQUIT\r\n");
}

TEST_P(CFTPClientLostConnectionTest, isListedFromTheRootAfterAFileWasDeletedOverANewConnection)
{
    serveLastListing(firstConnection(), "type=file; a\r\ntype=dir; sub\r\n", true);
    CScript& next = nextConnection();
    next.readUntil("DELE /top/a\r\n").send("250 gone\r\n");
    serveListing(next, "", true);
    succeed(next, 2);
    deleteTree();
    EXPECT_EQ(commands(1), "DELE /top/a\r\nMLSD /top/sub\r\nRMD /top/sub\r\nRMD /top\r\nQUIT\r\n");
}

TEST_P(CFTPClientLostConnectionTest, isListedFromTheRootAfterADirectoryWasRemovedOverANewConnection)
{
    CScript& first = firstConnection();
    serveListing(first, "type=dir; a\r\ntype=dir; b\r\n", true);
    serveLastListing(first, "");
    CScript& next = nextConnection();
    next.readUntil("RMD /top/a\r\n").send("250 gone\r\n");
    serveListing(next, "", true);
    succeed(next, 2);
    deleteTree();
    EXPECT_EQ(commands(1), "RMD /top/a\r\nMLSD /top/b\r\nRMD /top/b\r\nRMD /top\r\nQUIT\r\n");
}

TEST_P(CFTPClientLostConnectionTest, isListedFromTheRootAfterAnOddNameWasListedOverANewConnection)
{
    CScript& first = firstConnection();
    serveListing(first, "type=file; a\r\ntype=dir; my dir\r\ntype=dir; sub\r\n", true);
    first.readUntil("DELE /top/a\r\n").sendAndClose("250 gone\r\n");
    CScript& next = nextConnection();
    serveListing(next, "", true);
    if (isHomeKnown()) // libcurl goes there before commands
        next.readUntil("CWD /home/u\r\n").send("250 there\r\n");
    next.readUntil("RMD /top/my dir\r\n").send("250 gone\r\n");
    serveListing(next, "");
    succeed(next, 2);
    deleteTree();
    EXPECT_EQ(commands(1),
        "MLSD /top/my dir\r\n" + std::string(isHomeKnown() ? "CWD /home/u\r\n" : "")
            + "RMD /top/my dir\r\nMLSD /top/sub\r\nRMD /top/sub\r\nRMD /top\r\nQUIT\r\n");
}

INSTANTIATE_TEST_SUITE_P(All, CFTPClientLostConnectionTest, testing::Values("257 \"/home/u\"", "550 not told"),
    [](const auto& row) { return std::string(row.param).starts_with("257") ? "home" : "untold"; });

class CFTPClientBadTreeTest : public CFTPClientTreeTest, public testing::WithParamInterface<const char*> {};

TEST_P(CFTPClientBadTreeTest, isRefusedBeforeAnythingIsSent)
{
    const kx::String path = kx::String::fromLatin1(GetParam());
    const auto error = support::errorOf([&] { client().deleteDirWithAllContents(request(), path); });
    ASSERT_TRUE(error);
    EXPECT_TRUE(dynamic_cast<const kx::CInvalidArgError*>(error.get()));
    EXPECT_NE(error->getMessage().find("'" + path + "'"), kx::String::npos) << error->what();
    EXPECT_EQ(m_control.connectionCount(), 0u);
}

INSTANTIATE_TEST_SUITE_P(All, CFTPClientBadTreeTest,
    testing::Values("", ".", "..", "top", "a/b", "/.", "/..", "/a/..", "/a/../", "/a/./b", "/../a", "//..", "/a//.//"));

TEST_F(CFTPClientTreeTest, mayHaveDotsInItsNames)
{
    serve({"type=file; ...\r\n"}, {"250 gone", "250 gone"});
    client().deleteDirWithAllContents(request(), "/.a/b..");
    EXPECT_EQ(commands(), "MLSD .a/b..\r\nDELE /.a/b../...\r\nRMD /.a/b..\r\nQUIT\r\n");
}

TEST_F(CFTPClientTreeTest, isDeletedButForWhatCannotBeReadWhenThatIsKept)
{
    CScript& control = login(m_control.onConnection());
    serveListing(control, "type=dir; bad\r\ntype=dir; good\r\ntype=file; a\r\nbroken\r\n", true);
    serveListing(control, "type=file; Gr\xfcn\r\ntype=file;size=x; b\r\ntype=file; c\r\n");
    control.readUntil("DELE").readUntil("\r\n").send("250 gone\r\n");
    serveListing(control, "");
    for (int i = 0; i < 2; ++i)
        control.readUntil("\r\n").send("250 gone\r\n");
    control.readUntil("QUIT\r\n").close();
    client().setKeepUnreadableLines(true);
    const auto error = support::errorOf([this] { client().deleteDirWithAllContents(request(), "/top"); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getMessage(),
        "FTP directory '/top' was not deleted: its listing has a line that cannot be read: 'broken'.");
    EXPECT_EQ(error->getDomain(), "");
    EXPECT_EQ(error->getCode(), -1);
    EXPECT_EQ(commands(),
        "MLSD top\r\nMLSD top/bad\r\nDELE /top/bad/c\r\nMLSD top/good\r\nRMD /top/good\r\nDELE /top/a\r\nQUIT\r\n");
}

TEST_F(CFTPClientTreeTest, keepsTheDirectoriesAroundWhatCannotBeRead)
{
    client().setKeepUnreadableLines(true);
    serve({"type=dir; a\r\n", "type=dir; b\r\n", "type=file; Gr\xfcn\t\r\nbroken\r\n"}, {});
    EXPECT_EQ(support::messageOf([this] { client().deleteDirWithAllContents(request(), "/top"); }),
        "FTP directory '/top/a/b' was not deleted: its listing has a line that cannot be read: "
        "'type=file; Gr\\xFCn\\x09'.");
    EXPECT_EQ(commands(), "MLSD top\r\nMLSD top/a\r\nMLSD top/a/b\r\nQUIT\r\n");
}

TEST_F(CFTPClientTreeTest, logsNothing)
{
    const support::CLogRecorder log;
    serve({"type=file; a\r\n"}, {"250 gone", "250 gone"});
    client().deleteDirWithAllContents(request(), "/top");
    EXPECT_EQ(log.lines(), std::vector<std::string>());
}

} // namespace
