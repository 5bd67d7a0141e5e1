// The samples of docs/guide.md against real servers.
#include "docs/guide/samples.h"
#include "kx/log/log.h"
#include "norla/core/CCURLError.h"
#include "norla/core/CNetRequest.h"
#include "norla/files/CFileProgress.h"
#include "norla/files/CFileQueue.h"
#include "norla/ftp/CFTPClient.h"
#include "norla/proxy/CProxySettings.h"
#include "norla/s3/CS3Client.h"
#include "norla/s3/CS3Objects.h"
#include "norla/s3/CS3StaticCredentials.h"
#include "tests/live/liveRequest.h"
#include "tests/support/CCephServer.h"
#include "tests/support/CFTPServer.h"
#include "tests/support/CLogRecorder.h"
#include "tests/support/CNginxServer.h"
#include "tests/support/CScriptedServer.h"
#include "tests/support/CSquidServer.h"
#include "tests/support/CTemporaryFolder.h"
#include "tests/support/CTestCertificates.h"
#include "tests/support/files.h"
#include "tests/support/stringOf.h"

#include <gtest/gtest.h>

using support::stringOf;

namespace {

using Texts = kx::TArray<kx::String>;

TEST(GuideTest, postsANote)
{
    const support::CNginxServer server;
    EXPECT_EQ(postNote(stringOf(server.url("/post")), "note"), "text/plain");
    EXPECT_EQ(server.lastAccess(), "POST /post HTTP/1.1 200 range=- length=4 auth=-");
}

TEST(GuideTest, tellsWhyANoteIsRefused)
{
    const support::CNginxServer server;
    EXPECT_EQ(postNote(stringOf(server.url("/status/404")), "note"),
        "HTTP response code said error (response code: http 404)\nNot here");
}

TEST(GuideTest, fetchesAWholeFile)
{
    const support::CNginxServer server;
    const support::CTemporaryFolder folder;
    const auto path = norla::CNetRequest::Path::fromBytes((folder.path() / "file").native());
    const auto ignore = [](const norla::CFileProgress&) {};
    const kx::String digest = "84d89877f0d4041efb6bf91a16f0248f2fd573e6af05c19f96bedb9f882f7882"; // of "0123456789"
    EXPECT_EQ(fetchRelease(stringOf(server.url("/digits.txt")), path, digest, ignore).toUTF8(), "");
    EXPECT_EQ(folder.read("file"), "0123456789");
    EXPECT_NE(fetchRelease(stringOf(server.url("/missing")), path, digest, ignore).toUTF8(), "");
}

TEST(GuideTest, sendsAWholeFile)
{
    const support::CNginxServer server;
    const support::CTemporaryFolder folder;
    const auto path = norla::CNetRequest::Path::fromBytes(folder.write("file", "to be sent").native());
    long long sent = 0;
    const auto note = [&sent](const norla::CFileProgress& progress) { sent = progress.done; };
    EXPECT_EQ(sendFile(stringOf(server.url("/dav/file")), path, note).toUTF8(), "");
    EXPECT_EQ(support::readFile(server.root() / "dav/file"), "to be sent");
    EXPECT_EQ(sent, 10);
    EXPECT_NE(server.lastAccess().find("HEAD /dav/file "), std::string::npos) << server.lastAccess();
    EXPECT_NE(sendFile(stringOf(server.url("/status/404")), path, note).toUTF8(), "");
}

TEST(GuideTest, fetchesManyFilesByAQueue)
{
    const support::CNginxServer server;
    const support::CTemporaryFolder folder;
    support::writeFile(server.root() / "more.txt", "more");
    const Texts urls{
        stringOf(server.url("/digits.txt?1")), stringOf(server.url("/status/404")), stringOf(server.url("/more.txt"))};
    const auto lines = fetchFiles(
        urls, norla::CNetRequest::Path::fromBytes(folder.path().native()), [](const norla::CFileQueueSummary&) {});
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_NE(lines[0].find("404"), kx::String::npos) << lines[0];
    EXPECT_EQ(lines[1], "2 files, 14 bytes");
    EXPECT_EQ(folder.read("digits.txt"), "0123456789");
    EXPECT_EQ(folder.read("more.txt"), "more");
}

TEST(GuideTest, doesWithoutTheTypeOfAnAnswer)
{
    support::CScriptedServer server;
    server.onConnection().readHead().readBytes(4).send("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
    EXPECT_EQ(postNote(stringOf(server.url()), "note"), "");
}

TEST(GuideTest, downloadsIntoAFile)
{
    const support::CNginxServer server;
    const support::CTemporaryFolder folder;
    const std::string file = folder.write("digits", "older content");
    EXPECT_THROW(
        download(stringOf(server.url("/status/404")), norla::CNetRequest::Path::fromBytes(file)), norla::CCURLError);
    EXPECT_EQ(folder.read("digits"), "older content");
    download(stringOf(server.url("/digits.txt")), norla::CNetRequest::Path::fromBytes(file));
    EXPECT_EQ(folder.read("digits"), "0123456789");
}

TEST(GuideTest, downloadsSafely)
{
    const support::CNginxServer server;
    const support::CTemporaryFolder folder;
    const auto& certificates = support::CTestCertificates::get();
    const auto pathOf
        = [](const std::filesystem::path& file) { return norla::CNetRequest::Path::fromBytes(file.string()); };
    const auto file = pathOf(folder.path() / "digits");
    EXPECT_EQ(downloadSafely(stringOf(server.httpsURL("/digits.txt")), file, pathOf(certificates.caFile())), "");
    EXPECT_EQ(folder.read("digits"), "0123456789");
    const std::string refused
        = downloadSafely(stringOf(server.httpsURL("/digits.txt")), file, pathOf(certificates.otherCAFile())).toUTF8();
    EXPECT_TRUE(refused.ends_with(" Please ask your administrator.")) << refused;
}

TEST(GuideTest, triesADownloadAgain)
{
    support::CScriptedServer server;
    server.onConnection().readHead().send("HTTP/1.1 503 Busy\r\nContent-Length: 4\r\n\r\nbusy");
    server.onConnection().readHead().send("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n01234").close();
    server.onConnection().readHead().send("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n0123456789");
    const support::CTemporaryFolder folder;
    const support::CLogRecorder log;
    downloadPatiently(
        stringOf(server.url("/digits.txt")), norla::CNetRequest::Path::fromBytes((folder.path() / "digits").string()));
    EXPECT_EQ(folder.read("digits"), "0123456789");
    EXPECT_EQ(log.lines().size(), 2U);
}

TEST(GuideTest, showsTheProgressOfADownload)
{
    const support::CNginxServer server;
    const support::CTemporaryFolder folder;
    const auto file = norla::CNetRequest::Path::fromBytes((folder.path() / "digits").string());
    std::vector<std::pair<double, double>> reports;
    downloadWithProgress(stringOf(server.url("/digits.txt")), file, [&reports](double received, double size) {
        reports.emplace_back(received, size);
        return true;
    });
    EXPECT_EQ(reports, (std::vector<std::pair<double, double>>{{10, 10}}));
    EXPECT_EQ(folder.read("digits"), "0123456789");
}

TEST(GuideTest, cancelsADownload)
{
    const support::CNginxServer server;
    const support::CTemporaryFolder folder;
    const std::string file = folder.write("digits", "older content");
    const auto cancel = [](double, double) { return false; };
    try {
        downloadWithProgress(stringOf(server.url("/digits.txt")), norla::CNetRequest::Path::fromBytes(file), cancel);
        ADD_FAILURE() << "was not cancelled";
    } catch (const kx::CError& error) {
        EXPECT_EQ(error.getMessage(), "The download was cancelled.");
    }
    EXPECT_EQ(folder.read("digits"), "older content");
}

TEST(GuideTest, reportsNoProgressOfAnError)
{
    const support::CNginxServer server;
    const support::CTemporaryFolder folder;
    const auto file = norla::CNetRequest::Path::fromBytes((folder.path() / "digits").string());
    EXPECT_THROW(downloadWithProgress(stringOf(server.url("/status/404")), file,
                     [](double, double) {
                         ADD_FAILURE() << "reported";
                         return true;
                     }),
        norla::CCURLError);
}

TEST(GuideTest, makesTheURLOfASearch)
{
    EXPECT_EQ(searchURL("https://host/find", u8"caf\u00e9 au lait"), "https://host/find?page=1&q=caf%c3%a9+au+lait");
}

TEST(GuideTest, fetchesTheRestOfAFile)
{
    const support::CNginxServer server;
    const auto request = kx::newObj<norla::CNetRequest>();
    long long size = 0;
    const kx::CTime changed = fetchRest(*request, stringOf(server.url("/digits.txt")), 7, size);
    EXPECT_EQ(live::bodyOf(*request), "789");
    EXPECT_EQ(size, 10);
    EXPECT_GT(changed.getMicroseconds(), 1'600'000'000'000'000);
}

TEST(GuideTest, refusesAWholeFileForItsRest)
{
    const support::CNginxServer server;
    const auto request = kx::newObj<norla::CNetRequest>();
    long long size = 0;
    EXPECT_THROW(fetchRest(*request, stringOf(server.url("/noranges/digits.txt")), 7, size), kx::CError);
}

TEST(GuideTest, doesWithoutTheTimeAndTheSizeOfAFile)
{
    support::CScriptedServer server;
    server.onConnection().readHead().send(
        "HTTP/1.1 206 Partial Content\r\nContent-Range: bytes 7-9/*\r\nContent-Length: 3\r\n\r\n789");
    const auto request = kx::newObj<norla::CNetRequest>();
    long long size = 0;
    EXPECT_FALSE(fetchRest(*request, stringOf(server.url()), 7, size).isSet());
    EXPECT_EQ(size, -1);
}

class GuideProxyTest : public testing::Test {
protected:
    GuideProxyTest()
    {
        const std::string proxy = "http://user:secret@" + m_proxy.host();
        useProxies(stringOf("http=" + proxy + "; ftp=" + proxy), "localhost, intranet");
    }
    ~GuideProxyTest() override { norla::CProxySettings::getUserSettings()->clear(); }

    const support::CSquidServer m_proxy;
};

TEST_F(GuideProxyTest, performsThroughAProxy)
{
    const support::CNginxServer server;
    const auto request = live::requestFor(server.url("/digits.txt"));
    performAsTheUserWants(*request);
    EXPECT_EQ(live::bodyOf(*request), "0123456789");
    m_proxy.waitUntilLogged("request: GET " + server.url("/digits.txt") + " 200 user=user\n");
}

TEST_F(GuideProxyTest, tunnelsFTP)
{
    const support::CFTPServer server;
    {
        const auto request = live::requestFor(server.url("/digits.txt"));
        request->setUserName("user");
        request->setUserPassword("secret");
        performAsTheUserWants(*request);
        EXPECT_EQ(live::bodyOf(*request), "0123456789");
    }
    m_proxy.waitUntilLogged("request: CONNECT 127.0.0.1:" + std::to_string(server.getPort()) + " 200 user=user\n");
}

TEST_F(GuideProxyTest, reachesDirectHostsDirectly)
{
    const support::CNginxServer server;
    const auto request = live::requestFor("http://localhost:" + std::to_string(server.getPort()) + "/digits.txt");
    performAsTheUserWants(*request);
    EXPECT_EQ(live::bodyOf(*request), "0123456789");
    EXPECT_EQ(m_proxy.log().find("request:"), std::string::npos);
}

TEST(GuideTest, storesANoteInS3)
{
    support::CCephServer store;
    store.makeBucket("bucket");
    norla::CS3Client client(
        stringOf(store.accessKeyId()), stringOf(store.secretAccessKey()), false, stringOf(store.host()));
    EXPECT_EQ(storeNote(client, "bucket", "note"), Texts{"notes/today.txt"});
    EXPECT_EQ(problemWith(client, "bucket", "notes/today.txt"), "");
    EXPECT_EQ(problemWith(client, "bucket", "notes/yesterday.txt"), "NoSuchKey");
}

TEST(GuideTest, archivesInAStoreOfToday)
{
    support::CCephServer store;
    store.makeBucket("bucket");
    const auto credentials = kx::newObj<norla::CS3StaticCredentials>(norla::CS3Credentials{
        .accessKeyId = stringOf(store.accessKeyId()), .secretAccessKey = stringOf(store.secretAccessKey())});
    const auto client = openStore(norla::CS3Endpoint::ceph(stringOf(store.host()), false), credentials.get());
    support::CTemporaryFolder folder;
    const std::string content(6 << 20, 'c');
    const auto file = folder.write("file", content).string();
    long long stored = 0;
    EXPECT_EQ(archive(*client, "bucket", "note", norla::CNetRequest::Path::fromBytes(file),
                  [&stored](long long bytes, long long) { stored = bytes; }),
        (Texts{"archive/file", "archive/note.txt"}));
    EXPECT_EQ(stored, static_cast<long long>(content.size()));
    const auto stranger = kx::newObj<norla::CNetRequest>();
    stranger->setURL(linkTo(*client, "bucket", "archive/note.txt"));
    stranger->perform();
    EXPECT_EQ(live::bodyOf(*stranger), "note");
    norla::CS3Objects objects(client.get(), stranger.get());
    EXPECT_EQ(objects.head("bucket", "archive/note.txt").metadata.at("author"), L"Zo\u00EB");
}

TEST(GuideTest, storesAndFetchesWholeFiles)
{
    support::CCephServer store;
    store.makeBucket("bucket");
    const auto credentials = kx::newObj<norla::CS3StaticCredentials>(norla::CS3Credentials{
        .accessKeyId = stringOf(store.accessKeyId()), .secretAccessKey = stringOf(store.secretAccessKey())});
    const auto client = openStore(norla::CS3Endpoint::ceph(stringOf(store.host()), false), credentials.get());
    support::CTemporaryFolder folder;
    const std::string content(17 << 20, 'c');
    const auto file = norla::CNetRequest::Path::fromBytes(folder.write("file", content).string());
    const auto copy = norla::CNetRequest::Path::fromBytes((folder.path() / "copy").string());
    EXPECT_EQ(storeAndFetch(*client, "bucket", "name", file, copy), "");
    EXPECT_TRUE(folder.read("copy") == content);
    EXPECT_NE(storeAndFetch(*client, "nobodys-bucket", "name", file, copy), "");
}

TEST(GuideTest, storesAReportByFTP)
{
    const support::CFTPServer server;
    norla::CFTPClient client(stringOf("127.0.0.1:" + std::to_string(server.getPort())), stringOf(server.userName()),
        stringOf(server.password()), norla::CFTPClient::ConnectUnencrypted);
    EXPECT_EQ(storeReport(client, "report"), Texts{"report.txt"});
    EXPECT_EQ(support::readFile(server.root() / "2026/may/report.txt"), "report");
}

TEST(GuideTest, logsToAFile)
{
    const support::CTemporaryFolder folder;
    const auto file = folder.path() / "norla.log";
    logToFile(file.string());
    kx::logInfo("one");
    kx::logError(kx::CError("The reason."), "two", "");
    kx::setLogHandler({});
    EXPECT_EQ(support::readFile(file), "one\nerror: two: The reason.\n");
}

} // namespace
