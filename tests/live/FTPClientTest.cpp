// The FTP client against four servers with different habits. docs/ftp-servers.md tells where they differ.
#include "kx/text/numbers.h"
#include "kx/time/CTime.h"
#include "tests/live/FTPSession.h"
#include "tests/support/libcurlWords.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <set>
#include <string_view>

namespace {

using live::clientFor;
using live::contentOf;
using live::CServerRow;
using live::CSession;
using live::makeLenient;
using live::makePureFTPd;
using live::makePyftpdlib;
using live::makeStrict;
using norla::CFTPClient;
using norla::CFTPDirEntry;
using Security = support::IFTPServer::Security;

class FTPClientTest : public CSession, public testing::TestWithParam<CServerRow> {
protected:
    FTPClientTest()
        : CSession(GetParam())
    {
    }

    using Names = std::set<kx::String>;

    Names namesIn(const kx::String& path)
    {
        Names names;
        for (const auto& [name, entry] : list(path))
            names.insert(name);
        return names;
    }
};

INSTANTIATE_TEST_SUITE_P(All, FTPClientTest,
    testing::Values(CServerRow{"pyftpdlib", makePyftpdlib, Security::None},
        CServerRow{"pyftpdlibExplicit", makePyftpdlib, Security::Explicit},
        CServerRow{"pyftpdlibImplicit", makePyftpdlib, Security::Implicit},
        CServerRow{"ProFTPD", makeLenient<support::CProFTPDServer>, Security::None},
        CServerRow{"ProFTPDExplicit", makeLenient<support::CProFTPDServer>, Security::Explicit},
        CServerRow{"ProFTPDImplicit", makeLenient<support::CProFTPDServer>, Security::Implicit},
        CServerRow{"PureFTPd", makePureFTPd, Security::None},
        CServerRow{"PureFTPdExplicit", makePureFTPd, Security::Explicit}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_P(FTPClientTest, uploadsAFile)
{
    upload("/new.txt", "content");
    EXPECT_EQ(contentOf(onDisk("new.txt")), "content");
}

TEST_P(FTPClientTest, replacesAFile)
{
    upload("/new.txt", "first content");
    upload("/new.txt", "second");
    EXPECT_EQ(contentOf(onDisk("new.txt")), "second");
}

TEST_P(FTPClientTest, uploadsIntoDirectoriesThatItMakes)
{
    upload("/a/b/c/new.txt", "content", true);
    EXPECT_EQ(contentOf(onDisk("a/b/c/new.txt")), "content");
}

TEST_P(FTPClientTest, doesNotUploadIntoAMissingDirectory)
{
    const auto error = support::errorOf([this] { upload("/missing/new.txt", "content"); });
    ASSERT_TRUE(error);
    EXPECT_FALSE(exists("missing"));
    EXPECT_TRUE(error->getProps().has("responseCode"));
    EXPECT_EQ(error->getProps().get("responseCodeDomain"), "ftp");
}

TEST_P(FTPClientTest, uploadsInEveryWayToADirectory)
{
    for (const auto type : {CFTPClient::CWDSteps, CFTPClient::CWDDirect, CFTPClient::CWDNone}) {
        const std::string name = CFTPClient::cwdTypeToString(type).toUTF8();
        std::filesystem::create_directories(onDisk("deep/er"));
        client().setOverrideCWDType(type);
        upload(kx::String::fromLatin1("/deep/er/" + name), name);
        EXPECT_EQ(download(kx::String::fromLatin1("/deep/er/" + name)), name);
    }
}

TEST_P(FTPClientTest, downloadsWholeAndInRanges)
{
    EXPECT_EQ(download("/digits.txt"), "0123456789");
    EXPECT_EQ(download("/digits.txt", 3, 4), "3456");
    EXPECT_EQ(download("/digits.txt", 0, 1), "0");
    EXPECT_EQ(download("/digits.txt", 7, -1), "789");
}

TEST_P(FTPClientTest, failsToDownloadAMissingFile)
{
    const auto error = support::errorOf([this] { download("/missing.txt"); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getDomain(), "curl");
    EXPECT_EQ(error->getProps().get("responseCode"), "550");
    client().prepareDownloadRequest(request(), "/digits.txt", 0, -1);
    // A newer libcurl keeps the control connection after this. Under TLS pyftpdlib then tells too late that the data
    // connection was dropped: the next transfer may take that for the reply to its own command.
    if (support::isLibcurlSince(8, 14) && std::string_view(GetParam().name).starts_with("pyftpdlib"))
        request().setOptionInt(CURLOPT_FRESH_CONNECT, 1);
    request().perform(); // usable afterwards
    EXPECT_EQ(live::bodyOf(request()), "0123456789");
}

TEST_P(FTPClientTest, keepsEmptyFiles)
{
    upload("/empty.txt", "");
    EXPECT_TRUE(exists("empty.txt"));
    EXPECT_EQ(download("/empty.txt"), "");
    EXPECT_EQ(info("/empty.txt")->getSize(), 0);
}

TEST_P(FTPClientTest, keepsFilesOf100MB)
{
    std::string content(100'000'000, '\0');
    for (size_t i = 0; i < content.size(); ++i)
        content[i] = static_cast<char>(i * 2654435761U >> 13);
    upload("/large.bin", content);
    EXPECT_TRUE(download("/large.bin") == content);
}

TEST_P(FTPClientTest, listsFilesAndDirectories)
{
    write("folder/file.txt", "12345");
    std::filesystem::create_directories(onDisk("folder/inner"));
    const auto entries = list("/folder");
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries.at("file.txt")->getType(), CFTPDirEntry::TypeFile);
    EXPECT_EQ(entries.at("file.txt")->getSize(), 5);
    EXPECT_EQ(entries.at("inner")->getType(), CFTPDirEntry::TypeDir);
    const long long age
        = kx::CTime::now().getMicroseconds() - entries.at("file.txt")->getModificationTime().getMicroseconds();
    EXPECT_LT(std::abs(age), 600'000'000) << "the time is not UTC, or a clock is off";
}

TEST_P(FTPClientTest, listsAnEmptyDirectory)
{
    std::filesystem::create_directories(onDisk("empty"));
    EXPECT_EQ(namesIn("/empty"), Names());
    EXPECT_EQ(namesIn("/empty/"), Names());
}

TEST_P(FTPClientTest, listsFiveThousandEntries)
{
    Names expected;
    for (int i = 0; i < 5000; ++i) {
        write("many/" + std::to_string(i), "");
        expected.insert(kx::toString(i));
    }
    EXPECT_EQ(namesIn("/many"), expected);
}

TEST_P(FTPClientTest, listsOddNames)
{
    const Names expected{" leading", "a;b", "c=d", "type=dir; x", "trailing ", "two  blanks", "%41", "#", "'\"",
        "Gr\xfc\xdf"
        "e",
        kx::String(L"\u6f22\U0001f600"), kx::String(std::wstring(255, L'x'))};
    for (const kx::String& name : expected)
        write("odd/" + name.toUTF8(), "x");
    EXPECT_EQ(namesIn("/odd"), expected);
}

TEST_P(FTPClientTest, failsToListAMissingDirectory)
{
    const auto error = support::errorOf([this] { list("/missing"); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getDomain(), "curl");
}

TEST_P(FTPClientTest, tellsAboutAFile)
{
    const auto entry = info("/digits.txt");
    EXPECT_EQ(entry->getType(), CFTPDirEntry::TypeFile);
    EXPECT_EQ(entry->getSize(), 10);
    EXPECT_TRUE(entry->getName().endsWith("digits.txt")) << entry->getName();
    EXPECT_TRUE(entry->getModificationTime().isSet());
}

TEST_P(FTPClientTest, tellsAboutADirectory)
{
    std::filesystem::create_directories(onDisk("my folder"));
    EXPECT_EQ(info("/my folder")->getType(), CFTPDirEntry::TypeDir);
}

TEST_P(FTPClientTest, tellsThatAPathIsMissing)
{
    for (const bool verify : {true, false}) {
        const auto error = support::errorOf([this, verify] {
            if (verify) {
                client().prepareVerifyExistsRequest(request(), "/missing");
                request().perform();
            } else {
                info("/missing");
            }
        });
        ASSERT_TRUE(error);
        EXPECT_EQ(error->getCode(), CURLE_QUOTE_ERROR);
        EXPECT_EQ(error->getProps().get("responseCode"), "550");
    }
}

TEST_P(FTPClientTest, verifiesThatAPathExists)
{
    client().prepareVerifyExistsRequest(request(), "/digits.txt");
    EXPECT_NO_THROW(request().perform());
}

TEST_P(FTPClientTest, renamesAFile)
{
    write("old name.txt", "content");
    moveFile("/old name.txt", "/new name.txt");
    EXPECT_FALSE(exists("old name.txt"));
    EXPECT_EQ(contentOf(onDisk("new name.txt")), "content");
}

TEST_P(FTPClientTest, movesAFileIntoDirectoriesThatItMakes)
{
    write("old.txt", "content");
    moveFile("/old.txt", "/x/y/new.txt", true);
    EXPECT_FALSE(exists("old.txt"));
    EXPECT_EQ(contentOf(onDisk("x/y/new.txt")), "content");
}

TEST_P(FTPClientTest, renamesADirectory)
{
    write("old/file.txt", "content");
    moveDir("/old", "/new");
    EXPECT_FALSE(exists("old"));
    EXPECT_EQ(contentOf(onDisk("new/file.txt")), "content");
}

TEST_P(FTPClientTest, failsToRenameWhatIsMissing)
{
    EXPECT_EQ(support::errorOf([this] { moveFile("/missing", "/new"); })->getCode(), CURLE_QUOTE_ERROR);
    EXPECT_EQ(support::errorOf([this] { moveDir("/missing", "/new"); })->getCode(), CURLE_QUOTE_ERROR);
}

TEST_P(FTPClientTest, makesADirectory)
{
    client().createDir(request(), "/my folder", false);
    EXPECT_TRUE(std::filesystem::is_directory(onDisk("my folder")));
}

TEST_P(FTPClientTest, doesNotMakeADirectoryTwiceOrInAMissingOne)
{
    client().createDir(request(), "/folder", false);
    EXPECT_EQ(
        support::errorOf([this] { client().createDir(request(), "/folder", false); })->getCode(), CURLE_QUOTE_ERROR);
    EXPECT_EQ(
        support::errorOf([this] { client().createDir(request(), "/no/folder", false); })->getCode(), CURLE_QUOTE_ERROR);
}

TEST_P(FTPClientTest, makesADirectoryWithItsParentsAndMayFindItThere)
{
    client().createDir(request(), "/a/b/c", true);
    EXPECT_TRUE(std::filesystem::is_directory(onDisk("a/b/c")));
    EXPECT_NO_THROW(client().createDir(request(), "/a/b/c", true));
}

TEST_P(FTPClientTest, deletesAFile)
{
    write("my file.txt", "x");
    client().deleteFile(request(), "/my file.txt");
    EXPECT_FALSE(exists("my file.txt"));
    EXPECT_EQ(
        support::errorOf([this] { client().deleteFile(request(), "/my file.txt"); })->getCode(), CURLE_QUOTE_ERROR);
}

TEST_P(FTPClientTest, removesAnEmptyDirectoryAlone)
{
    std::filesystem::create_directories(onDisk("empty"));
    write("full/file.txt", "x");
    client().removeDir(request(), "/empty");
    EXPECT_FALSE(exists("empty"));
    EXPECT_EQ(support::errorOf([this] { client().removeDir(request(), "/full"); })->getCode(), CURLE_QUOTE_ERROR);
    EXPECT_TRUE(exists("full/file.txt"));
}

TEST_P(FTPClientTest, deletesATree)
{
    for (const char* const name :
        {"tree/a.txt", "tree/b c.txt", "tree/one/d.txt", "tree/one/two/e.txt", "tree/three/f.txt"})
        write(name, "x");
    std::filesystem::create_directories(onDisk("tree/empty"));
    write("tree2/kept.txt", "x");
    client().deleteDirWithAllContents(request(), "/tree");
    EXPECT_FALSE(exists("tree"));
    EXPECT_TRUE(exists("tree2/kept.txt"));
}

TEST_P(FTPClientTest, refusesABlankInAURLAndTakesItEscaped)
{
    write("my folder/a b.txt", "content");
    const auto error = support::errorOf([this] { list("/my folder"); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getCode(), CURLE_URL_MALFORMAT);
    EXPECT_EQ(namesIn("/my%20folder"), Names{"a b.txt"});
    EXPECT_EQ(download("/my%20folder/a%20b.txt"), "content");
    client().deleteFile(request(), "/my folder/a b.txt");
    client().removeDir(request(), "/my folder");
    EXPECT_FALSE(exists("my folder"));
}

TEST_P(FTPClientTest, saysThatThePasswordIsWrong)
{
    const auto wrong = clientFor(server(), "wrong-password");
    const auto error = support::errorOf([&] { wrong->deleteFile(request(), "/digits.txt"); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getCode(), CURLE_LOGIN_DENIED);
    EXPECT_TRUE(error->getMessage().startsWith("Login denied")) << error->what();
    EXPECT_EQ(error->getMessage().find("wrong-password"), kx::String::npos);
    EXPECT_EQ(download("/digits.txt"), "0123456789");
}

TEST_P(FTPClientTest, trustsTheRightCertificatesAlone)
{
    if (GetParam().security == Security::None)
        client().setRootCertBundlePath("/nowhere.pem"); // is never read
    else
        client().setRootCertBundlePath(
            norla::CNetRequest::Path::fromBytes(support::CTestCertificates::get().otherCAFile().native()));
    const auto error = support::errorOf([this] { download("/digits.txt"); });
    if (GetParam().security == Security::None) {
        EXPECT_FALSE(error);
        return;
    }
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getCode(), CURLE_PEER_FAILED_VERIFICATION);
    EXPECT_TRUE(error->getMessage().startsWith("SSL peer certificate or SSH remote key was not OK")) << error->what();
}

class FTPListlessServerTest : public CSession, public testing::TestWithParam<CServerRow> {
protected:
    FTPListlessServerTest()
        : CSession(GetParam())
    {
    }
};

INSTANTIATE_TEST_SUITE_P(All, FTPListlessServerTest,
    testing::Values(CServerRow{"vsftpd", makeLenient<support::CVsftpdServer>, Security::None},
        CServerRow{"vsftpdExplicit", makeLenient<support::CVsftpdServer>, Security::Explicit},
        CServerRow{"vsftpdImplicit", makeLenient<support::CVsftpdServer>, Security::Implicit}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_P(FTPListlessServerTest, cannotBeListedAndSaysSo)
{
    const auto error = support::errorOf([this] { list("/"); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getCode(), CURLE_FTP_COULDNT_RETR_FILE);
    EXPECT_EQ(error->getProps().get("responseCode"), "500");
    EXPECT_EQ(error->getMessage().toUTF8(),
        support::libcurlSays(
            "FTP: couldn't retrieve (RETR failed) the specified file: RETR response: 500 (response code: ftp 500)"));
}

TEST_P(FTPListlessServerTest, tellsNothingAboutAPathAndSaysSo)
{
    const auto error = support::errorOf([this] { info("/digits.txt"); });
    ASSERT_TRUE(error);
    EXPECT_EQ(
        error->getMessage(), "Quote command returned error: QUOT command failed with 500 (response code: ftp 500)");
}

TEST_P(FTPListlessServerTest, doesEverythingElse)
{
    upload("/a/b/new.txt", "content", true);
    EXPECT_EQ(download("/a/b/new.txt", 3, -1), "tent");
    moveFile("/a/b/new.txt", "/moved.txt");
    EXPECT_EQ(contentOf(onDisk("moved.txt")), "content");
    client().createDir(request(), "/folder", false);
    client().removeDir(request(), "/folder");
    client().deleteFile(request(), "/moved.txt");
    EXPECT_FALSE(exists("moved.txt"));
}

/// Servers that take a TLS data connection only with the session of its control connection, as ProFTPD and vsftpd do
/// unless told otherwise.
class FTPSessionReuseTest : public CSession, public testing::TestWithParam<CServerRow> {
protected:
    FTPSessionReuseTest()
        : CSession(GetParam())
    {
    }
};

INSTANTIATE_TEST_SUITE_P(All, FTPSessionReuseTest,
    testing::Values(CServerRow{"ProFTPDExplicit", makeStrict<support::CProFTPDServer>, Security::Explicit},
        CServerRow{"ProFTPDImplicit", makeStrict<support::CProFTPDServer>, Security::Implicit},
        CServerRow{"vsftpdExplicit", makeStrict<support::CVsftpdServer>, Security::Explicit},
        CServerRow{"vsftpdImplicit", makeStrict<support::CVsftpdServer>, Security::Implicit}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_P(FTPSessionReuseTest, worksForTheFirstTransferOfAConnection)
{
    upload("/new.txt", "content");
    EXPECT_EQ(contentOf(onDisk("new.txt")), "content");
}

TEST_P(FTPSessionReuseTest, worksForAllTransfersWithTLS12)
{
    const auto perform = [this] {
        request().setOptionInt(CURLOPT_SSLVERSION, CURL_SSLVERSION_MAX_TLSv1_2);
        request().perform();
    };
    for (const std::string content : {"first", "second", "third"}) {
        client().prepareUploadRequest(request(), "/new.txt", content.data(), static_cast<int>(content.size()), false);
        perform();
        client().prepareDownloadRequest(request(), "/new.txt", 0, -1);
        perform();
        EXPECT_EQ(live::bodyOf(request()), content);
    }
}

TEST_P(FTPSessionReuseTest, worksForAllTransfersWithAConnectionEach)
{
    const auto perform = [this] {
        request().setOptionInt(CURLOPT_FORBID_REUSE, 1);
        request().perform();
    };
    for (const std::string content : {"first", "second", "third"}) {
        client().prepareUploadRequest(request(), "/new.txt", content.data(), static_cast<int>(content.size()), false);
        perform();
        client().prepareDownloadRequest(request(), "/new.txt", 0, -1);
        perform();
        EXPECT_EQ(live::bodyOf(request()), content);
    }
}

} // namespace
