// The recipes of docs/cookbook.md against real servers.
#include "docs/cookbook/recipes.h"
#include "norla/core/CCURLError.h"
#include "norla/core/CTLSOptions.h"
#include "norla/core/errorKind.h"
#include "norla/files/CFileDownload.h"
#include "norla/files/CFileQueue.h"
#include "norla/mail/CSMTPParams.h"
#include "norla/pool/CTransferPool.h"
#include "tests/live/liveRequest.h"
#include "tests/norla/http/formJudge.h"
#include "tests/support/CApacheServer.h"
#include "tests/support/CNginxServer.h"
#include "tests/support/CProcessRun.h"
#include "tests/support/CSMTPServer.h"
#include "tests/support/CSSHServer.h"
#include "tests/support/CScriptedServer.h"
#include "tests/support/CTemporaryFolder.h"
#include "tests/support/CTestCertificates.h"
#include "tests/support/CTinyproxyServer.h"
#include "tests/support/distinctBytes.h"
#include "tests/support/errorOf.h"
#include "tests/support/files.h"
#include "tests/support/pathOf.h"
#include "tests/support/stringOf.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

namespace {

using live::bodyOf;
using live::requestFor;
using support::CTestCertificates;
using support::pathOf;
using support::stringOf;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

class CookbookTest : public testing::Test {
protected:
    static void SetUpTestSuite() { s_server = std::make_unique<support::CNginxServer>(); }
    static void TearDownTestSuite() { s_server.reset(); }

    static kx::String url(const std::string& path) { return stringOf(s_server->url(path)); }
    static std::string stored(const std::string& name) { return support::readFile(s_server->root() / "store" / name); }
    Path file(const std::string& name) const { return pathOf(m_folder.path() / name); }

    /// Fetches the beginning of a large file of the server's, as a program that is ended then.
    void beginDownload(const std::string& name)
    {
        norla::CFileDownload* running = nullptr;
        norla::CFileDownloadOptions options{.speedLimit = 16 << 20};
        options.onProgress = [&running](const norla::CFileProgress& progress) {
            if (progress.done >= cutAt)
                running->cancel();
        };
        const auto download = kx::newObj<norla::CFileDownload>(url("/" + name), file(name), options);
        running = download.get();
        EXPECT_THROW(download->run(), kx::CError);
        EXPECT_FALSE(std::filesystem::exists(m_folder.path() / name));
    }

    static constexpr size_t largeSize = 8 << 20;
    static constexpr long long cutAt = 2 << 20; // bytes of a large file
    static inline std::unique_ptr<support::CNginxServer> s_server;
    const support::CTemporaryFolder m_folder;
};

TEST_F(CookbookTest, getsAText)
{
    EXPECT_EQ(getText(url("/digits.txt")), "0123456789");
}

TEST_F(CookbookTest, downloadsAFile)
{
    downloadFile(url("/digits.txt"), file("digits"));
    EXPECT_EQ(m_folder.read("digits"), "0123456789");
}

TEST_F(CookbookTest, keepsAnOlderFileWhenADownloadFails)
{
    m_folder.write("digits", "older content");
    EXPECT_THROW(downloadFile(url("/status/404"), file("digits")), norla::CCURLError);
    EXPECT_EQ(m_folder.read("digits"), "older content");
}

TEST_F(CookbookTest, showsProgress)
{
    norla::CFileProgress last;
    downloadAndShow(
        url("/digits.txt"), file("digits"), [&last](const norla::CFileProgress& progress) { last = progress; });
    EXPECT_EQ(last.done, 10);
    EXPECT_EQ(last.total, 10);
    EXPECT_EQ(m_folder.read("digits"), "0123456789");
}

TEST_F(CookbookTest, resumesADownload)
{
    const std::string bytes = support::distinctBytes(largeSize);
    support::writeFile(s_server->root() / "resumed.bin", bytes);
    beginDownload("resumed.bin");
    EXPECT_LE(resumeDownload(url("/resumed.bin"), file("resumed.bin")),
        static_cast<long long>(largeSize) - cutAt + (64 << 10)); // which are compared
    EXPECT_TRUE(m_folder.read("resumed.bin") == bytes);
    EXPECT_THAT(s_server->lastAccess(), HasSubstr(" 206 range=bytes="));
}

TEST_F(CookbookTest, fetchesAllOfAFileThatIsAnotherOneNow)
{
    support::writeFile(s_server->root() / "changed.bin", support::distinctBytes(largeSize));
    beginDownload("changed.bin");
    support::writeFile(s_server->root() / "changed.bin", "another file");
    EXPECT_EQ(resumeDownload(url("/changed.bin"), file("changed.bin")), 12);
    EXPECT_EQ(m_folder.read("changed.bin"), "another file");
}

TEST_F(CookbookTest, downloadsManyAndTellsWhatWentWrong)
{
    const auto problems = downloadMany(
        {{url("/digits.txt"), file("one")}, {url("/chain/3"), file("two")}, {url("/status/404"), file("three")}});
    ASSERT_EQ(problems.size(), 1u);
    EXPECT_EQ(problems.begin()->first, url("/status/404"));
    EXPECT_EQ(m_folder.read("one"), "0123456789");
    EXPECT_EQ(m_folder.read("two"), "0123456789");
}

TEST_F(CookbookTest, cancelsATransfer)
{
    const auto pool = kx::newObj<norla::CTransferPool>();
    support::writeFile(s_server->root() / "slow.bin", std::string(200'000, '.'));
    EXPECT_FALSE(performUnlessCancelled(*pool, *requestFor(s_server->url("/slow.bin")), [] { return true; }));
}

TEST_F(CookbookTest, runsATransferThatNobodyCancels)
{
    const auto pool = kx::newObj<norla::CTransferPool>();
    const auto request = requestFor(s_server->url("/digits.txt"));
    EXPECT_TRUE(performUnlessCancelled(*pool, *request, [] { return false; }));
    EXPECT_EQ(bodyOf(*request), "0123456789");
}

TEST_F(CookbookTest, throwsWhatATransferFailsWithThatNobodyCancels)
{
    const auto pool = kx::newObj<norla::CTransferPool>();
    const auto request = requestFor(s_server->url("/status/404"));
    EXPECT_THROW(performUnlessCancelled(*pool, *request, [] { return false; }), norla::CCURLError);
}

TEST_F(CookbookTest, asksForASize)
{
    EXPECT_EQ(askSize(url("/digits.txt")), 10);
    EXPECT_EQ(s_server->lastAccess(), "HEAD /digits.txt HTTP/1.1 200 range=- length=- auth=-");
}

TEST_F(CookbookTest, uploadsAFile)
{
    m_folder.write("note", "to be kept");
    uploadFile(url("/store/uploaded"), file("note"));
    EXPECT_EQ(stored("uploaded"), "to be kept");
}

TEST_F(CookbookTest, uploadsAFileAndVerifiesIt)
{
    m_folder.write("note", "to be kept");
    uploadVerified(url("/dav/note"), file("note"), [](const norla::CFileProgress&) {});
    EXPECT_EQ(support::readFile(s_server->root() / "dav/note"), "to be kept");
    EXPECT_THAT(s_server->lastAccess(), StartsWith("HEAD /dav/note "));
}

TEST_F(CookbookTest, downloadsALargeFileOfWhichTheDigestIsKnown)
{
    testing::internal::CaptureStderr();
    downloadLarge(url("/digits.txt"), file("digits"),
        "84d89877f0d4041efb6bf91a16f0248f2fd573e6af05c19f96bedb9f882f7882"); // of "0123456789"
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("\r10 of 10 bytes, "));
    EXPECT_EQ(m_folder.read("digits"), "0123456789");
}

TEST_F(CookbookTest, keepsNothingThatHasAnotherDigest)
{
    EXPECT_THROW(
        downloadLarge(url("/noranges/digits.txt"), file("digits"), kx::String(std::wstring(64, L'0'))), kx::CError);
    EXPECT_TRUE(std::filesystem::is_empty(m_folder.path()));
}

TEST_F(CookbookTest, downloadsAListOfFiles)
{
    norla::CFileQueueSummary last;
    const auto problems = downloadAll({url("/digits.txt"), url("/gzip/text.txt"), url("/status/404")},
        pathOf(m_folder.path()), [&last](const norla::CFileQueueSummary& summary) { last = summary; });
    ASSERT_EQ(problems.size(), 1u);
    EXPECT_THAT(problems[0].toUTF8(), HasSubstr("404"));
    EXPECT_EQ(last.succeeded, 2);
    EXPECT_EQ(last.failed, 1);
    EXPECT_EQ(last.doneBytes, 10'010);
    EXPECT_EQ(m_folder.read("digits.txt"), "0123456789");
}

TEST_F(CookbookTest, postsAForm)
{
    m_folder.write("cat.jpg", "a picture");
    postForm(url("/store/form"), u8"Größe \"1\"", file("cat.jpg"));
    const std::string body = stored("form");
    const std::string boundary = body.substr(2, body.find('\r') - 2);
    EXPECT_EQ(judgeForm("multipart/form-data; boundary=" + boundary, body),
        (std::vector<std::string>{expectedPart({.name = "title", .body = "Gr\u00f6\u00dfe \"1\""}),
            expectedPart(
                {.name = "picture", .body = "a picture", .fileName = "cat.jpg", .contentType = "image/jpeg"})}));
}

TEST_F(CookbookTest, postsFields)
{
    postFields(url("/store/fields"), {{"name", u8"Zoë"}, {"age", "30"}});
    EXPECT_EQ(stored("fields"), "age=30&name=Zo%c3%ab");
}

TEST_F(CookbookTest, postsJSON)
{
    EXPECT_EQ(postJSON(url("/post"), "{\"a\": 1}"), "POST 8\n");
}

TEST_F(CookbookTest, saysThatItPostsJSON)
{
    support::CScriptedServer server;
    server.onConnection().readHead().readBytes(2).send("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\n[]");
    EXPECT_EQ(postJSON(stringOf(server.url()), "{}"), "[]");
    EXPECT_THAT(server.received(0), HasSubstr("\r\nContent-Type: application/json\r\n"));
}

TEST_F(CookbookTest, logsInWithAToken)
{
    const auto request = requestFor(s_server->url("/token"));
    performWithToken(*request, "abc.def");
    EXPECT_EQ(bodyOf(*request), "known\n");
    EXPECT_THROW(performWithToken(*request, "another"), norla::CCURLError);
}

TEST_F(CookbookTest, logsInWithNameAndPassword)
{
    const auto request = requestFor(s_server->url("/private/digits.txt"));
    performWithLogin(*request, "user", "secret");
    EXPECT_EQ(bodyOf(*request), "0123456789");
    EXPECT_THAT(s_server->lastAccess(), HasSubstr(" auth=user"));
}

TEST_F(CookbookTest, logsInByDigestWhereTheServerKnowsIt)
{
    const support::CApacheServer apache;
    const auto request = requestFor(apache.url("/digest/digits.txt"));
    performWithLogin(*request, "user", "secret");
    EXPECT_EQ(bodyOf(*request), "0123456789");
}

TEST_F(CookbookTest, keepsCookies)
{
    performWithCookies(*requestFor(s_server->url("/cookies")), file("jar"));
    const auto later = requestFor(s_server->url("/cookies"));
    performWithCookies(*later, file("jar"));
    EXPECT_EQ(bodyOf(*later), "visit=yes\n");
}

TEST_F(CookbookTest, unpacksACompressedAnswer)
{
    const auto request = requestFor(s_server->url("/gzip/text.txt"));
    EXPECT_LT(performCompressed(*request), 1000);
    EXPECT_EQ(bodyOf(*request).size(), 10000u);
}

TEST_F(CookbookTest, goesThroughAProxy)
{
    const support::CTinyproxyServer proxy;
    const auto request = requestFor(s_server->url("/digits.txt"));
    performThroughProxy(*request, stringOf("http://" + proxy.host()));
    EXPECT_EQ(bodyOf(*request), "0123456789");
    proxy.waitUntilLogged("GET " + s_server->url("/digits.txt"));
}

TEST_F(CookbookTest, showsACertificate)
{
    const auto& certificates = CTestCertificates::get();
    const auto request = requestFor(s_server->mutualURL("/digits.txt"));
    performWithCertificate(*request, pathOf(certificates.clientCertificate()),
        pathOf(certificates.encryptedClientKey()), "open sesame", pathOf(certificates.caFile()));
    EXPECT_EQ(bodyOf(*request), "0123456789");
}

TEST_F(CookbookTest, trustsOneKeyAlone)
{
    const auto& certificates = CTestCertificates::get();
    // The command that the recipe shows.
    const support::CProcessRun pin({.arguments = {"sh", "-c",
                                        "openssl x509 -in \"$1\" -pubkey -noout | openssl pkey -pubin -outform der"
                                        " | openssl dgst -sha256 -binary | base64",
                                        "sh", certificates.serverCertificate()},
        .package = "openssl"});
    const std::string digest = pin.output().substr(0, pin.output().find('\n'));
    const auto request = requestFor(s_server->httpsURL("/digits.txt"));
    performWithPin(*request, stringOf("sha256//" + digest), pathOf(certificates.caFile()));
    EXPECT_EQ(bodyOf(*request), "0123456789");
}

TEST_F(CookbookTest, trustsNoOtherKey)
{
    const auto error = support::errorOf([] {
        performWithPin(*requestFor(s_server->httpsURL("/digits.txt")),
            stringOf("sha256//" + std::string(43, 'A') + "="), pathOf(CTestCertificates::get().caFile()));
    });
    EXPECT_EQ(error->getCode(), CURLE_SSL_PINNEDPUBKEYNOTMATCH);
}

TEST_F(CookbookTest, performsInTime)
{
    const auto request = requestFor(s_server->url("/digits.txt"));
    performInTime(*request, kx::CTimeSpan::fromSeconds(60));
    EXPECT_EQ(bodyOf(*request), "0123456789");
}

TEST_F(CookbookTest, waitsNoLongerForAServerThatSaysNothing)
{
    support::CScriptedServer server;
    server.onConnection().readHead().stall();
    const auto request = requestFor(server.url());
    const auto error = support::errorOf([&request] { performInTime(*request, kx::CTimeSpan::fromMilliseconds(200)); });
    ASSERT_TRUE(error);
    EXPECT_EQ(norla::getErrorKind(*error), norla::ErrorKind::TotalTimeout) << error->what();
}

TEST_F(CookbookTest, limitsTheSpeed)
{
    constexpr long long size = 8 << 20; // libcurl looks at the limit after a megabyte or two
    const kx::String big = url(s_server->big(size));
    const auto begin = std::chrono::steady_clock::now();
    downloadSlowly(big, file("big"), size);
    EXPECT_GT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(500));
    EXPECT_EQ(std::filesystem::file_size(m_folder.path() / "big"), static_cast<std::uintmax_t>(size));
}

TEST_F(CookbookTest, storesAFileBySFTP)
{
    const support::CSSHServer server;
    m_folder.write("note", "to be kept");
    std::string asked;
    const auto isRight = [&asked, &server](const kx::String& host, const kx::String& fingerprint) {
        asked += host.toUTF8() + "\n";
        return fingerprint == stringOf(server.fingerprint());
    };
    for (int i = 0; i < 2; ++i)
        storeBySFTP(stringOf(server.url((server.root() / "stored").string())), stringOf(server.userName()),
            pathOf(server.privateKeyFile()), file("note"), file("known_hosts"), isRight);
    EXPECT_EQ(support::readFile(server.root() / "stored"), "to be kept");
    EXPECT_EQ(asked, "127.0.0.1\n"); // once
}

TEST_F(CookbookTest, sendsAnAttachment)
{
    const support::CSMTPServer server({.security = support::CSMTPServer::Security::StartTLS});
    norla::CSMTPParams params;
    params.host = "127.0.0.1";
    params.port = server.getPort();
    params.connectType = norla::CSMTPParams::ConnectStartTLS;
    params.tlsOptions = norla::CTLSOptions{.rootsFile = pathOf(CTestCertificates::get().caFile())};
    m_folder.write("r\u00e9sum\u00e9.txt", "0123456789");
    sendAttachment(params, "zoe@example.org", "to@example.invalid", "Here it is.\r\n", file("r\u00e9sum\u00e9.txt"));
    const auto messages = server.messages();
    ASSERT_EQ(messages.size(), 1u);
    const support::CProcessRun judge({.arguments = {"python3", "-c",
                                          "import email, email.policy, sys\n"
                                          "mail = email.message_from_binary_file(sys.stdin.buffer,"
                                          " policy=email.policy.default)\n"
                                          "for part in mail.iter_attachments():\n"
                                          "    print(ascii(part.get_filename()), part.get_content())\n"},
        .package = "python3",
        .input = messages[0].body});
    EXPECT_EQ(judge.output() + judge.errors(), "'r\\xe9sum\\xe9.txt' b'0123456789'\n");
}

TEST_F(CookbookTest, writesDownWhatHappened)
{
    const auto request = requestFor(s_server->httpsURL("/digits.txt"));
    request->setRootCertBundlePath(pathOf(CTestCertificates::get().caFile()));
    request->perform();
    std::ostringstream log;
    writeDown(*request, log);
    EXPECT_THAT(log.str(),
        MatchesRegex("h2 from 127\\.0\\.0\\.1, TLSv1\\.[23], connected after [0-9]+ ms, answered after [0-9]+ ms,"
                     " done after [0-9]+ ms"));
}

TEST_F(CookbookTest, tellsAPersonWhatWentWrong)
{
    EXPECT_EQ(performAndTell(*requestFor(s_server->url("/digits.txt"))), "");
    EXPECT_THAT(
        performAndTell(*requestFor(s_server->url("/token"))).toUTF8(), HasSubstr("\nPlease check name and password."));
    EXPECT_THAT(performAndTell(*requestFor(s_server->url("/status/404"))).toUTF8(), HasSubstr("Not here"));
}

} // namespace
