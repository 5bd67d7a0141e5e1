// Trees of directories on real FTP servers: where a log-in begins elsewhere than at the root, with names that are not
// UTF-8, and how they are made.
#include "tests/live/FTPSession.h"

#include <gtest/gtest.h>

#include <set>

namespace {

using live::CServerRow;
using live::CSession;
using Security = support::IFTPServer::Security;

std::string nameOf(const testing::TestParamInfo<CServerRow>& row)
{
    return row.param.name;
}

class FTPTreesTest : public CSession, public testing::TestWithParam<CServerRow> {
protected:
    FTPTreesTest()
        : CSession(GetParam())
    {
    }

    kx::P<kx::CError> failureOfCreating(const kx::String& path)
    {
        return support::errorOf([this, &path] { client().createDirs(request(), path); });
    }
};

/// A log-in at these servers begins in /home.
class FTPLoginFolderTest : public FTPTreesTest {};

template <typename TServer>
std::unique_ptr<support::IFTPServer> makeWithLoginFolder(Security security)
{
    return std::make_unique<TServer>(typename TServer::CSettings{.security = security, .loginFolder = "/home"});
}

INSTANTIATE_TEST_SUITE_P(All, FTPLoginFolderTest,
    testing::Values(CServerRow{"ProFTPD", makeWithLoginFolder<support::CProFTPDServer>, Security::None},
        CServerRow{"PureFTPd", makeWithLoginFolder<support::CPureFTPdServer>, Security::None}),
    nameOf);

TEST_P(FTPLoginFolderTest, isWhereAPathInAURLBegins)
{
    write("home/here.txt", "here");
    EXPECT_EQ(download("/here.txt"), "here");
    EXPECT_EQ(list("/").count("here.txt"), 1u);
}

TEST_P(FTPLoginFolderTest, keepsItsOwnTreeWhenOneFromTheRootIsDeleted)
{
    for (const char* const name : {"data/a.txt", "data/sub/b.txt", "data/only.txt", "home/data/a.txt",
             "home/data/sub/b.txt", "home/data/more/c.txt"})
        write(name, "x");
    client().deleteDirWithAllContents(request(), "/data");
    EXPECT_FALSE(exists("data"));
    for (const char* const name : {"home/data/a.txt", "home/data/sub/b.txt", "home/data/more/c.txt"})
        EXPECT_TRUE(exists(name)) << name;
}

TEST_P(FTPLoginFolderTest, doesNotHideATreeFromTheRoot)
{
    write("data/sub/b.txt", "x");
    client().deleteDirWithAllContents(request(), "/data/");
    EXPECT_FALSE(exists("data"));
}

TEST_P(FTPLoginFolderTest, isKnownOnAnOpenConnection)
{
    write("data/sub/b.txt", "x");
    write("home/data/a.txt", "x");
    upload("/new/folder/file.txt", "content", true); // leaves the connection elsewhere
    client().deleteDirWithAllContents(request(), "/data");
    EXPECT_FALSE(exists("data"));
    EXPECT_TRUE(exists("home/data/a.txt"));
    EXPECT_EQ(download("/new/folder/file.txt"), "content");
    EXPECT_TRUE(exists("home/new/folder/file.txt"));
}

TEST_P(FTPLoginFolderTest, mayHaveItsOwnTreeDeleted)
{
    write("home/data/sub/b.txt", "x");
    write("data/a.txt", "x");
    client().deleteDirWithAllContents(request(), "/home/data");
    EXPECT_FALSE(exists("home/data"));
    EXPECT_TRUE(exists("data/a.txt"));
}

TEST_P(FTPLoginFolderTest, isWhereDirectoriesWithoutASlashAreMade)
{
    client().createDirs(request(), "/a/b");
    client().createDirs(request(), "c/d");
    EXPECT_TRUE(exists("a/b"));
    EXPECT_TRUE(exists("home/c/d"));
    upload("/file.txt", "content");
    EXPECT_TRUE(exists("home/file.txt"));
}

class FTPUnreadableNameTest : public FTPTreesTest {
protected:
    FTPUnreadableNameTest() { write("tree/" + latin1Name, "x"); }

    const std::string latin1Name = "Gr\xfcn.txt";
};

INSTANTIATE_TEST_SUITE_P(All, FTPUnreadableNameTest,
    testing::Values(CServerRow{"ProFTPD", live::makeLenient<support::CProFTPDServer>, Security::None},
        CServerRow{"PureFTPd", live::makePureFTPd, Security::None}),
    nameOf);

TEST_P(FTPUnreadableNameTest, losesAListingUnlessItIsKeptApart)
{
    write("tree/a.txt", "x");
    EXPECT_TRUE(support::errorOf([this] { list("/tree"); }));
    client().setKeepUnreadableLines(true);
    const auto listing = client().listDir(request(), "/tree");
    std::set<kx::String> names;
    for (const auto& entry : listing->getEntries())
        names.insert(entry->getName());
    names.erase(".");
    names.erase("..");
    EXPECT_EQ(names, std::set<kx::String>{"a.txt"});
    ASSERT_EQ(listing->getUnreadableLines().size(), 1u);
    EXPECT_TRUE(listing->getUnreadableLines()[0].ends_with("; " + latin1Name)) << listing->getUnreadableLines()[0];
}

TEST_P(FTPUnreadableNameTest, isNotDeletedWithATree)
{
    for (const char* const name : {"tree/a.txt", "tree/sub/b.txt"})
        write(name, "x");
    EXPECT_TRUE(support::errorOf([this] { client().deleteDirWithAllContents(request(), "/tree"); }));
    EXPECT_TRUE(exists("tree/a.txt"));
    client().setKeepUnreadableLines(true);
    const kx::String message = support::messageOf([this] { client().deleteDirWithAllContents(request(), "/tree"); });
    EXPECT_TRUE(
        message.startsWith("FTP directory '/tree' was not deleted: its listing has a line that cannot be read: '"))
        << message;
    EXPECT_TRUE(message.endsWith("; Gr\\xFCn.txt'.")) << message;
    EXPECT_TRUE(exists("tree/" + latin1Name));
    EXPECT_FALSE(exists("tree/a.txt"));
    EXPECT_FALSE(exists("tree/sub"));
}

class FTPCreateDirsTest : public FTPTreesTest {};

INSTANTIATE_TEST_SUITE_P(All, FTPCreateDirsTest,
    testing::Values(CServerRow{"pyftpdlib", live::makePyftpdlib, Security::None},
        CServerRow{"ProFTPD", live::makeLenient<support::CProFTPDServer>, Security::None},
        CServerRow{"PureFTPd", live::makePureFTPd, Security::None},
        CServerRow{"vsftpd", live::makeLenient<support::CVsftpdServer>, Security::None},
        CServerRow{"pyftpdlibExplicit", live::makePyftpdlib, Security::Explicit},
        CServerRow{"vsftpdImplicit", live::makeLenient<support::CVsftpdServer>, Security::Implicit}),
    nameOf);

TEST_P(FTPCreateDirsTest, makesADirectoryWithItsParentsAndMayFindItThere)
{
    for (int i = 0; i < 2; ++i) {
        client().createDirs(request(), "/a/b/c");
        EXPECT_TRUE(std::filesystem::is_directory(onDisk("a/b/c")));
    }
    client().createDirs(request(), "/a//b/d/");
    client().createDirs(request(), "/");
    client().createDirs(request(), "e/f");
    EXPECT_TRUE(exists("a/b/d"));
    EXPECT_TRUE(exists("e/f"));
}

TEST_P(FTPCreateDirsTest, takesOddNames)
{
    const kx::String path = L"/my dir/100%41/#?;type=a/Gr\u00fcn";
    client().createDirs(request(), path);
    EXPECT_TRUE(std::filesystem::is_directory(onDisk(path.toUTF8().substr(1))));
}

TEST_P(FTPCreateDirsTest, makesAgainWhatWasRemovedMeanwhile)
{
    client().createDirs(request(), "/a/b");
    client().removeDir(request(), "/a/b"); // where the connection stands
    EXPECT_FALSE(exists("a/b"));
    client().createDirs(request(), "/a/b");
    EXPECT_TRUE(exists("a/b"));
}

TEST_P(FTPCreateDirsTest, leavesLaterPathsTheirMeaning)
{
    client().createDirs(request(), "/a/b");
    upload("/file.txt", "content");
    EXPECT_EQ(live::contentOf(onDisk("file.txt")), "content");
    EXPECT_EQ(download("/digits.txt"), "0123456789");
}

TEST_P(FTPCreateDirsTest, saysThatAFileIsInTheWay)
{
    write("a/file", "x");
    const auto error = failureOfCreating("/a/file/b/c");
    ASSERT_TRUE(error);
    EXPECT_TRUE(error->getMessage().startsWith(
        "Quote command returned error: FTP directory '/a/file' can neither be entered (550"))
        << error->what();
    EXPECT_NE(error->getMessage().find(") nor made (550"), kx::String::npos) << error->what();
    EXPECT_EQ(error->getCode(), CURLE_QUOTE_ERROR);
    EXPECT_EQ(live::contentOf(onDisk("a/file")), "x");
    EXPECT_NO_THROW(client().createDirs(request(), "/a/b"));
}

TEST_P(FTPCreateDirsTest, saysWhatTheServerDoesNotTake)
{
    const kx::String tooLong(std::wstring(300, L'x'));
    const auto error = failureOfCreating("/a/" + tooLong + "/b");
    ASSERT_TRUE(error);
    EXPECT_NE(
        error->getMessage().find("FTP directory '/a/" + tooLong + "' can neither be entered (5"), kx::String::npos)
        << error->what();
    EXPECT_TRUE(exists("a"));
}

TEST(FTPPermissionTest, isMissedInTheServersWords)
{
    CSession session({"ProFTPD", live::makeLenient<support::CProFTPDServer>, Security::None});
    std::filesystem::create_directories(session.onDisk("read-only/a"));
    EXPECT_NO_THROW(session.client().createDirs(session.request(), "/read-only/a"));
    EXPECT_EQ(support::messageOf([&] { session.client().createDirs(session.request(), "/read-only/a/b/c"); }),
        "Quote command returned error: FTP directory '/read-only/a/b' can neither be entered (550 /read-only/a/b: No "
        "such file "
        "or directory) nor made (550 /read-only/a/b: Permission denied) (response code: ftp 550)");
}

TEST(FTPDirectoryMessageTest, doesNotHideWhatIsToldAboutAFile)
{
    CSession session({"PureFTPd", live::makePureFTPd, Security::None});
    session.write(".message", "Welcome to\nour\nserver\n");
    session.upload("/a/b/file.txt", "content", true);
    EXPECT_EQ(session.info("/digits.txt")->getSize(), 10); // behind the way back to the root, which the server comments
}

} // namespace
