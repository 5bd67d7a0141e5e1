// The example programs, run as a person runs them.
#include "tests/live/exampleRun.h"
#include "tests/support/CFTPServer.h"
#include "tests/support/CNginxServer.h"
#include "tests/support/CRefusedPort.h"
#include "tests/support/CSSHServer.h"
#include "tests/support/CScriptedServer.h"
#include "tests/support/CTemporaryFolder.h"
#include "tests/support/CTestCertificates.h"
#include "tests/support/libcurlWords.h"

#include <curl/curl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <dlfcn.h>

namespace {

using live::contentOf;
using live::run;
using support::CProcessRun;

class ExamplesTest : public testing::Test {
protected:
    static void SetUpTestSuite() { s_server = std::make_unique<support::CNginxServer>(); }
    static void TearDownTestSuite() { s_server.reset(); }

    static support::CNginxServer& server() { return *s_server; }
    support::CTemporaryFolder m_folder;

private:
    static inline std::unique_ptr<support::CNginxServer> s_server;
};

TEST_F(ExamplesTest, helloPrintsTheBody)
{
    const auto result = run({"hello", server().url("/digits.txt")});
    EXPECT_EQ(result.output(), "0123456789");
    EXPECT_EQ(result.exitStatus(), 0);
}

TEST_F(ExamplesTest, helloPrintsTheError)
{
    const auto result = run({"hello", server().url("/status/404")});
    EXPECT_EQ(result.errors(), "hello: HTTP response code said error (response code: http 404)\n");
    EXPECT_EQ(result.exitStatus(), 1);
}

TEST_F(ExamplesTest, helloAsksForTheCharactersOfTheCommandLine)
{
    support::CScriptedServer scripted;
    scripted.onConnection().readHead().send("HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nfound");
    EXPECT_EQ(run({"hello", scripted.url("/\xC3\xBC.txt")}).output(), "found");
    const std::string request = scripted.received(0);
    EXPECT_EQ(request.substr(0, request.find("\r\n")), "GET /%c3%bc.txt HTTP/1.1");
}

struct CBadArgumentRow {
    const char* name;
    std::vector<std::string> command;
    std::string error;
    std::vector<std::string> environment = {};
};

/// Bytes on the command line or in the environment that are not UTF-8, where text is wanted.
class BadArgumentTest : public testing::TestWithParam<CBadArgumentRow> {};

TEST_P(BadArgumentTest, isNamedAndNotShown)
{
    const auto result = live::runLightly(GetParam().command, GetParam().environment);
    EXPECT_EQ(result.errors(), GetParam().error + "\nTry '" + GetParam().command.front() + " --help'.\n");
    EXPECT_EQ(result.exitStatus(), 2);
}

INSTANTIATE_TEST_SUITE_P(All, BadArgumentTest,
    testing::ValuesIn(std::vector<CBadArgumentRow>{
        {"fetchHost", {"fetch", "http://\xFC/"}, "fetch: the host of a URL is not text in UTF-8"},
        {"fetchOption", {"fetch", "--user", "me:\xFC", "http://h/"}, "fetch: the value of --user is not text in UTF-8"},
        {"fetchUnknownOption", {"fetch", "--\xFC", "x", "http://h/"}, "fetch: unknown option '--\\xfc'"},
        {"uploadLogin", {"upload", "/dev/null", "ftp://\xFC:p@h/"}, "upload: the login in a URL is not text in UTF-8"},
        {"downloadsLogin", {"downloads", "/tmp", "ftp://a:%FC@h/a"},
            "downloads: the login in a URL is not text in UTF-8"},
        {"ftpHost", {"ftp", "\xFC", "ls", "/"}, "ftp: HOST is not text in UTF-8"},
        {"ftpCommandPath", {"ftp", "h", "mv", "/a", "/\xFC"}, "ftp: a path on the server is not text in UTF-8"},
        {"ftpPassword", {"ftp", "h", "ls", "/"}, "ftp: the environment variable FTP_PASSWORD is not text in UTF-8",
            {"FTP_PASSWORD=\xFC"}},
        {"mail", {"mail", "--from", "a", "--to", "b", "--subject", "\xFC", "h:25"},
            "mail: the value of --subject is not text in UTF-8"},
        {"mailPassword", {"mail", "--check", "--user", "me", "h:25"},
            "mail: the environment variable MAIL_PASSWORD is not text in UTF-8", {"MAIL_PASSWORD=\xFC"}},
        {"s3Key", {"s3", "rm", "bucket/\xFC"}, "s3: KEY is not text in UTF-8",
            {"S3_ACCESS_KEY_ID=me", "S3_SECRET_ACCESS_KEY=secret"}},
        {"s3Secret", {"s3", "rm", "bucket/key"},
            "s3: the environment variable S3_SECRET_ACCESS_KEY is not text in UTF-8",
            {"S3_ACCESS_KEY_ID=me", "S3_SECRET_ACCESS_KEY=\xFC"}},
    }),
    [](const testing::TestParamInfo<CBadArgumentRow>& row) { return row.param.name; });

TEST_F(ExamplesTest, fetchWritesToAFileWhoseNameIsNotUTF8)
{
    const auto file = m_folder.path() / "gr\xFCn.txt";
    EXPECT_EQ(
        run({"fetch", "--output", file.native(), server().url("/digits.txt")}).errors().substr(0, 9), "10 bytes ");
    EXPECT_EQ(contentOf(file), "0123456789");
}

TEST_F(ExamplesTest, fetchTrustsCertificatesInAFileWhoseNameIsNotUTF8)
{
    const auto file = m_folder.path() / "\xFC.crt";
    std::filesystem::copy_file(support::CTestCertificates::get().caFile(), file);
    const auto result = run({"fetch", "--ca", file.native(), server().httpsURL("/digits.txt")});
    EXPECT_EQ(result.output(), "0123456789") << result.errors();
}

TEST_F(ExamplesTest, uploadSendsAFileWhoseNameIsNotUTF8)
{
    const auto file = m_folder.write("gr\xFCn.txt", "green");
    const auto result = run({"upload", file.native(), server().url("/dav/green.txt")});
    EXPECT_EQ(contentOf(server().root() / "dav/green.txt"), "green") << result.errors();
}

TEST_F(ExamplesTest, uploadNamesAFileThatIsNotThereWhateverItsName)
{
    const auto result = run({"upload", "/nowhere/gr\xFCn.txt", server().url("/dav/green.txt")});
    EXPECT_EQ(result.errors(), "upload: The file '/nowhere/gr\\xfcn.txt' cannot be read: No such file or directory.\n");
    EXPECT_EQ(result.exitStatus(), 3);
}

TEST_F(ExamplesTest, fetchWritesToStandardOutput)
{
    const auto result = run({"fetch", server().url("/digits.txt")});
    EXPECT_EQ(result.output(), "0123456789");
    EXPECT_EQ(result.exitStatus(), 0);
    EXPECT_TRUE(result.errors().starts_with("10 bytes at ")) << result.errors();
}

TEST_F(ExamplesTest, fetchWritesToAFile)
{
    const auto file = m_folder.path() / "digits.txt";
    EXPECT_EQ(run({"fetch", "--output", file.string(), server().url("/digits.txt")}).exitStatus(), 0);
    EXPECT_EQ(contentOf(file), "0123456789");
    EXPECT_FALSE(std::filesystem::exists(file.string() + ".part"));
}

TEST_F(ExamplesTest, fetchShowsItsProgressOnATerminal)
{
    const auto result
        = run({"fetch", "--output", (m_folder.path() / "big").string(), server().url(server().big(1 << 20))},
            CProcessRun::Terminal::Errors);
    EXPECT_NE(result.errors().find("\r[#"), std::string::npos) << result.errors();
    EXPECT_NE(result.errors().find("] 100 %"), std::string::npos) << result.errors();
}

TEST_F(ExamplesTest, fetchShowsNoProgressInAPipe)
{
    const auto result
        = run({"fetch", "--output", (m_folder.path() / "big").string(), server().url(server().big(1 << 20))});
    EXPECT_EQ(result.errors().find('\r'), std::string::npos) << result.errors();
}

TEST_F(ExamplesTest, fetchFetchesARange)
{
    EXPECT_EQ(run({"fetch", "--range", "3-6", server().url("/digits.txt")}).output(), "3456");
    EXPECT_EQ(run({"fetch", "--range", "7-", server().url("/digits.txt")}).output(), "789");
}

TEST_F(ExamplesTest, fetchSendsHeaders)
{
    const auto result = run({"fetch", "--header", "Range: bytes=0-0", server().url("/digits.txt")});
    EXPECT_EQ(result.output(), "0");
}

TEST_F(ExamplesTest, fetchLogsIn)
{
    const auto result = run({"fetch", "--user", "user:secret", server().url("/private/digits.txt")});
    EXPECT_EQ(result.output(), "0123456789");
}

TEST_F(ExamplesTest, fetchTellsThatTheFileIsMissingAndLeavesNoFile)
{
    const auto file = m_folder.path() / "missing.txt";
    const auto result = run({"fetch", "--output", file.string(), server().url("/status/404")});
    EXPECT_EQ(result.exitStatus(), 1);
    EXPECT_EQ(result.errors(),
        "fetch: " + server().url("/status/404")
            + ": HTTP response code said error (response code: http 404)\n  404 Not Found\n  Not here\n");
    EXPECT_TRUE(std::filesystem::is_empty(m_folder.path()));
}

/// @return the file that this process has loaded
std::string ownLibcurl()
{
    Dl_info info{};
    dladdr(reinterpret_cast<const void*>(&curl_version), &info);
    return info.dli_fname;
}

TEST_F(ExamplesTest, useTheLibcurlOfTheTest)
{
    CProcessRun::CSettings settings{.arguments = {"hello"}};
    settings.environment = {"LD_TRACE_LOADED_OBJECTS=1"}; // the loader tells what it would load
    EXPECT_THAT(
        CProcessRun(live::prepared(settings)).output(), testing::HasSubstr("libcurl.so.4 => " + ownLibcurl() + " ("));
}

TEST_F(ExamplesTest, fetchTellsThatNobodyListens)
{
    const support::CRefusedPort port;
    const std::string url = "http://127.0.0.1:" + std::to_string(port.getPort()) + "/";
    const auto result = run({"fetch", url});
    EXPECT_EQ(result.exitStatus(), 1);
    EXPECT_TRUE(result.errors().starts_with(support::libcurlSays("fetch: " + url + ": Couldn't connect to server: ")))
        << result.errors();
    EXPECT_TRUE(result.errors().ends_with("\n  Connection refused\n")) << result.errors();
}

TEST_F(ExamplesTest, fetchSpeaksHTTPS)
{
    const auto authority = support::CTestCertificates::get().caFile().string();
    EXPECT_EQ(run({"fetch", "--ca", authority, server().httpsURL("/digits.txt")}).output(), "0123456789");
}

TEST_F(ExamplesTest, fetchSpeaksFTP)
{
    const support::CFTPServer ftp;
    EXPECT_EQ(run({"fetch", "--user", "user:secret", ftp.url("/digits.txt")}).output(), "0123456789");
}

TEST_F(ExamplesTest, fetchSpeaksFTPS)
{
    const support::CFTPServer ftps(support::CFTPServer::Security::Implicit);
    const auto authority = support::CTestCertificates::get().caFile().string();
    EXPECT_EQ(run({"fetch", "--user", "user:secret", "--ca", authority, ftps.url("/digits.txt", "ftps")}).output(),
        "0123456789");
}

TEST_F(ExamplesTest, fetchSpeaksSFTP)
{
    const support::CSSHServer ssh;
    const auto known = m_folder.write("known_hosts", ssh.knownHostsLine());
    const auto result = run({"fetch", "--user", ssh.userName(), "--key", ssh.privateKeyFile().string(), "--known-hosts",
        known.string(), ssh.url((ssh.root() / "digits.txt").string())});
    EXPECT_EQ(result.output(), "0123456789") << result.errors();
}

TEST_F(ExamplesTest, fetchBelievesNoUnknownSSHServer)
{
    const support::CSSHServer ssh;
    const auto known = m_folder.write("known_hosts", "");
    const auto result = run({"fetch", "--user", ssh.userName(), "--key", ssh.privateKeyFile().string(), "--known-hosts",
        known.string(), ssh.url((ssh.root() / "digits.txt").string())});
    EXPECT_EQ(result.exitStatus(), 1);
    EXPECT_EQ(result.output(), "");
    EXPECT_TRUE(result.errors().ends_with("\n  The file of known hosts has no such key for this server.\n"))
        << result.errors();
    EXPECT_EQ(ssh.log().find("Accepted publickey"), std::string::npos) << ssh.log();
}

TEST_F(ExamplesTest, uploadBelievesNoUnknownSSHServer)
{
    const support::CSSHServer ssh;
    const auto file = m_folder.write("text.txt", "some text");
    const auto result = run({"upload", file.string(), ssh.url((ssh.root() / "uploaded.txt").string())});
    EXPECT_EQ(result.exitStatus(), 1);
    EXPECT_NE(result.errors().find("remote key was not OK"), std::string::npos) << result.errors();
}

TEST_F(ExamplesTest, uploadStoresTheFile)
{
    const auto file = m_folder.write("text.txt", "some text");
    const auto result = run({"upload", file.string(), server().url("/dav/uploaded.txt")});
    EXPECT_EQ(result.exitStatus(), 0) << result.errors();
    EXPECT_TRUE(result.errors().starts_with("9 bytes at ")) << result.errors();
    EXPECT_EQ(contentOf(server().root() / "dav/uploaded.txt"), "some text");
}

TEST_F(ExamplesTest, uploadTellsThatTheFileIsMissing)
{
    const auto result = run({"upload", "/nowhere/text.txt", server().url("/dav/uploaded.txt")});
    EXPECT_EQ(result.exitStatus(), 3);
    EXPECT_EQ(result.errors(), "upload: The file '/nowhere/text.txt' cannot be read: No such file or directory.\n");
}

} // namespace
