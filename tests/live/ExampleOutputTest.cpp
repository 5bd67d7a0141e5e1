// What the example programs make of what they fetch: whole files, the parts that were asked for, or an error.
#include "examples/COutputSink.h"
#include "examples/CRangeSink.h"
#include "kx/streams/CBufferStream.h"
#include "tests/live/exampleRun.h"
#include "tests/support/CChildProcess.h"
#include "tests/support/CFTPServer.h"
#include "tests/support/CNginxServer.h"
#include "tests/support/CScriptedServer.h"
#include "tests/support/CTemporaryFolder.h"
#include "tests/support/systemError.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using live::contentOf;
using live::run;
using support::CProcessRun;
using testing::HasSubstr;

class ExampleOutputTest : public testing::Test {
protected:
    static void SetUpTestSuite() { s_server = std::make_unique<support::CNginxServer>(); }
    static void TearDownTestSuite() { s_server.reset(); }

    static support::CNginxServer& server() { return *s_server; }

    std::filesystem::path file() const { return m_folder.path() / "file"; }

    size_t fileCount() const
    {
        return static_cast<size_t>(
            std::distance(std::filesystem::directory_iterator(m_folder.path()), std::filesystem::directory_iterator()));
    }

    support::CTemporaryFolder m_folder;

private:
    static inline std::unique_ptr<support::CNginxServer> s_server;
};

TEST_F(ExampleOutputTest, isMissedWhenTheDiskIsFull)
{
    const support::CFTPServer ftp;
    const std::string place = "127.0.0.1:" + std::to_string(ftp.getPort());
    for (const std::vector<std::string>& words :
        {std::vector<std::string>{"hello", server().url("/digits.txt")}, {"fetch", server().url("/digits.txt")},
            {"fetch", "--help"}, {"ftp", place, "ls", "/"}, {"ftp", place, "stat", "/digits.txt"}}) {
        const auto result = live::runRedirected(words, "> /dev/full", {"FTP_USER=user", "FTP_PASSWORD=secret"});
        EXPECT_EQ(result.errors(), words[0] + ": standard output: No space left on device\n");
        EXPECT_EQ(result.exitStatus(), 3);
    }
}

TEST_F(ExampleOutputTest, isMissedWhenFilesMayNotBeThatLarge)
{
    const std::string url = server().url(server().big(1 << 20));
    for (const std::vector<std::string>& words :
        {std::vector<std::string>{"fetch", "--output", file(), url}, {"downloads", m_folder.path(), url}}) {
        std::vector<std::string> command = live::prepared({.arguments = words}).arguments;
        command.insert(command.begin(), {"/bin/sh", "-c", "ulimit -f 64; exec \"$@\"", "sh"});
        const CProcessRun result({.arguments = command, .environment = support::inheritedLibraryPath()});
        EXPECT_THAT(result.errors(), HasSubstr("' cannot be written: File too large.\n"));
        EXPECT_EQ(result.exitStatus(), 3);
        EXPECT_EQ(fileCount(), 0U);
    }
}

TEST_F(ExampleOutputTest, isMissedWhenNobodyReadsIt)
{
    int ends[2] = {};
    support::checked(pipe2(ends, O_CLOEXEC), "pipe2");
    support::CDescriptor(ends[0]).close();
    const support::CDescriptor pipe(ends[1]);
    for (const std::vector<std::string>& words :
        {std::vector<std::string>{"fetch", server().url("/digits.txt")}, {"fetch", "--help"}}) {
        const support::CDescriptor errors(
            support::checked(open(file().c_str(), O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, 0600), "open"));
        const auto settings = live::prepared({.arguments = words});
        support::CChildProcess process({.arguments = settings.arguments,
            .environment = settings.environment,
            .output = pipe.get(),
            .errors = errors.get()});
        ASSERT_TRUE(process.waitForEnd(std::chrono::seconds(10)));
        EXPECT_EQ(contentOf(file()), "fetch: standard output: Broken pipe\n");
        EXPECT_EQ(process.exitStatus(), 3);
    }
}

TEST_F(ExampleOutputTest, isMissedWhenThereIsNone)
{
    const auto result = live::runRedirected({"fetch", server().url("/digits.txt")}, ">&-");
    EXPECT_EQ(result.errors(), "fetch: standard output: Bad file descriptor\n");
    EXPECT_EQ(result.exitStatus(), 3);
}

TEST_F(ExampleOutputTest, goesStraightToADevice)
{
    const auto result = run({"fetch", "--output", "/dev/full", server().url("/digits.txt")});
    EXPECT_EQ(result.errors(), "fetch: The file '/dev/full' cannot be written: No space left on device.\n");
    EXPECT_EQ(result.exitStatus(), 3);
    struct stat status {};
    ASSERT_EQ(stat("/dev/full", &status), 0);
    EXPECT_TRUE(S_ISCHR(status.st_mode));
}

TEST_F(ExampleOutputTest, leavesAnOlderFileAloneUnlessAllOfItHasCome)
{
    std::ofstream(file()) << "older";
    EXPECT_EQ(run({"fetch", "--output", file(), server().url("/status/404")}).exitStatus(), 1);
    EXPECT_EQ(contentOf(file()), "older");
    EXPECT_EQ(fileCount(), 1U);
    EXPECT_EQ(run({"fetch", "--output", file(), server().url("/digits.txt")}).exitStatus(), 0);
    EXPECT_EQ(contentOf(file()), "0123456789");
}

/// A server that explains its refusal for ever, or nearly so.
size_t keptFrom(const kx::P<norla::CNetRequest>& request, norla::CNetRequest::IDataSink& sink)
{
    const std::vector<unsigned char> block(60000, 'x');
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(sink.write(block.data(), static_cast<int>(block.size()), 500, {}), 60000);
    return request->getDefaultReceiveBuffer()->getSize();
}

TEST_F(ExampleOutputTest, isNotMadeOfAllTheWordsOfARefusal)
{
    const auto request = kx::newObj<norla::CNetRequest>();
    EXPECT_EQ(keptFrom(request, *kx::newObj<COutputSink>(*request)), 65536U);
}

TEST_F(ExampleOutputTest, isNotWaitedForInAPipeThatIsToBeSent)
{
    ASSERT_EQ(mkfifo(file().c_str(), 0600), 0);
    for (const std::vector<std::string>& words : {std::vector<std::string>{"upload", file(), server().url("/dav/x")},
             {"s3", "--endpoint", "localhost", "put", file(), "bucket/key"}}) {
        const auto settings = live::prepared(
            {.arguments = words, .environment = {"S3_ACCESS_KEY_ID=me", "S3_SECRET_ACCESS_KEY=secret"}});
        const CProcessRun result(
            {.arguments = settings.arguments, .environment = settings.environment, .limit = std::chrono::seconds(10)});
        EXPECT_EQ(
            result.errors(), words[0] + ": The file '" + file().native() + "' cannot be sent: it is no regular file\n");
        EXPECT_EQ(result.exitStatus(), 3);
    }
}

TEST_F(ExampleOutputTest, namesTheFolderThatIsNotThere)
{
    const support::CFTPServer ftp;
    const std::string place = "127.0.0.1:" + std::to_string(ftp.getPort());
    for (const std::vector<std::string>& words :
        {std::vector<std::string>{"fetch", "--output", "/nowhere/f", server().url("/digits.txt")},
            {"ftp", place, "get", "/digits.txt", "/nowhere/f"}}) {
        const auto result = run({.arguments = words, .environment = {"FTP_USER=user", "FTP_PASSWORD=secret"}});
        EXPECT_EQ(
            result.errors(), words[0] + ": The file '/nowhere/f' cannot be written: No such file or directory.\n");
        EXPECT_EQ(result.exitStatus(), 3);
    }
}

TEST_F(ExampleOutputTest, namesTheCertificatesThatAreNotThere)
{
    for (const std::vector<std::string>& words :
        {std::vector<std::string>{"fetch", "--ca", "/nowhere/ca", server().httpsURL("/digits.txt")},
            {"fetch", "--key", "/nowhere/ca", server().httpsURL("/digits.txt")},
            {"downloads", "--ca", "/nowhere/ca", m_folder.path(), server().httpsURL("/digits.txt")},
            {"ftp", "--ca", "/nowhere/ca", "h", "ls", "/"}}) {
        const auto result = run(words);
        EXPECT_EQ(result.errors(), words[0] + ": The file '/nowhere/ca' cannot be read: No such file or directory\n");
        EXPECT_EQ(result.exitStatus(), 3);
    }
}

class ExamplePartTest : public ExampleOutputTest {
protected:
    /// Sends the signal when a part of the file is there. @return the exit status, -1 when the program does not end
    int endHalfway(int number, const std::vector<std::string>& words) const
    {
        const auto process = start(words);
        waitForMoreThan(0, *process);
        support::checked(kill(process->getPid(), number), "kill");
        return process->waitForEnd(std::chrono::seconds(10)) ? *process->exitStatus() : -1;
    }

    static std::unique_ptr<support::CChildProcess> start(const std::vector<std::string>& words)
    {
        const auto settings
            = live::prepared({.arguments = words, .environment = {"S3_ACCESS_KEY_ID=a", "S3_SECRET_ACCESS_KEY=b"}});
        return std::make_unique<support::CChildProcess>(
            support::CChildProcess::CSettings{.arguments = settings.arguments, .environment = settings.environment});
    }

    /// Blocks until the part of the file has more bytes than that. @return how many
    std::uintmax_t waitForMoreThan(std::uintmax_t size, support::CChildProcess& process) const
    {
        const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (partSize() <= size) {
            if (process.waitForEnd(std::chrono::milliseconds(5)) || std::chrono::steady_clock::now() > limit)
                throw std::runtime_error("there is no part that grows");
        }
        return partSize();
    }

private:
    std::uintmax_t partSize() const
    {
        std::error_code gone;
        std::uintmax_t size = 0;
        for (const auto& entry : std::filesystem::directory_iterator(m_folder.path())) {
            if (entry.path().extension() == ".part")
                size = entry.file_size(gone);
        }
        return gone ? 0 : size;
    }
};

TEST_F(ExamplePartTest, growsOnUnderASignalThatIsIgnored)
{
    const live::CSignalDisposition ignored(SIGHUP, SIG_IGN); // as nohup does
    const std::string url = server().url("/slow.bin");
    for (const std::vector<std::string>& words :
        {std::vector<std::string>{"fetch", "--output", file(), url}, {"downloads", m_folder.path(), url}}) {
        const auto process = start(words);
        const auto size = waitForMoreThan(0, *process);
        support::checked(kill(process->getPid(), SIGHUP), "kill");
        waitForMoreThan(size, *process);
        process->kill();
        std::filesystem::remove_all(m_folder.path());
        std::filesystem::create_directory(m_folder.path());
    }
}

/// With the number of a signal.
class ExampleSignalTest : public ExamplePartTest, public testing::WithParamInterface<int> {
    const live::CSignalDisposition m_disposition{GetParam(), SIG_DFL};
};

TEST_P(ExampleSignalTest, leavesNoPartOfAFile)
{
    EXPECT_EQ(endHalfway(GetParam(), {"fetch", "--output", file(), server().url("/slow.bin")}), 128 + GetParam());
    EXPECT_EQ(fileCount(), 0U);
}

TEST_P(ExampleSignalTest, leavesNoPartOfAnObject)
{
    support::CScriptedServer store;
    store.onConnection()
        .readHead()
        .send("HTTP/1.1 200 OK\r\nETag: \"1\"\r\nContent-Length: 1000\r\n\r\n" + std::string(500, 'a'))
        .stall();
    EXPECT_EQ(endHalfway(GetParam(),
                  {"s3", "--http", "--endpoint", "127.0.0.1:" + std::to_string(store.getPort()), "get", "bucket/key",
                      file()}),
        128 + GetParam());
    EXPECT_EQ(fileCount(), 0U);
}

INSTANTIATE_TEST_SUITE_P(All, ExampleSignalTest, testing::Values(SIGINT, SIGTERM, SIGHUP),
    [](const testing::TestParamInfo<int>& row) { return std::string(sigabbrev_np(row.param)); });

struct CRangeRow {
    const char* name;
    long long first;
    long long last;
    int status;
    const char* contentRange; ///< null for none
    long long length;         ///< of what is sent
    bool isTaken;
};

class CRangeSinkTest : public testing::TestWithParam<CRangeRow> {};

TEST_P(CRangeSinkTest, takesWhatWasAskedForOnly)
{
    const auto request = kx::newObj<norla::CNetRequest>();
    const auto buffer = kx::newObj<kx::CBufferStream>(kx::newObj<norla::CNetRequest::Buffer>());
    const auto sink = kx::newObj<CRangeSink>(
        kx::newObj<norla::CNetRequest::CStreamDataSink>(buffer.get()).get(), GetParam().first, GetParam().last);
    norla::CNetRequest::HeaderMap headers;
    if (GetParam().contentRange)
        headers["content-range"] = kx::String::fromLatin1(GetParam().contentRange);
    const std::string bytes(static_cast<size_t>(GetParam().length), 'x');
    const auto take = [&] {
        if (!bytes.empty())
            sink->write(reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()),
                GetParam().status, headers);
        sink->requireEnd();
    };
    if (GetParam().isTaken)
        EXPECT_NO_THROW(take());
    else
        EXPECT_THROW(take(), kx::CError);
    EXPECT_TRUE(GetParam().isTaken || GetParam().length < 4 || buffer->getLength() == 0);
}

INSTANTIATE_TEST_SUITE_P(All, CRangeSinkTest,
    testing::ValuesIn(std::vector<CRangeRow>{
        {"asAsked", 3, 6, 206, "bytes 3-6/10", 4, true},
        {"asAskedOfUnknownSize", 3, 6, 206, "bytes 3-6/*", 4, true},
        {"upToTheEnd", 6, -1, 206, "bytes 6-9/10", 4, true},
        {"upToTheEndOfUnknownSize", 6, -1, 206, "bytes 6-9/*", 4, true},
        {"shorterWhereThereIsNoMore", 6, 100, 206, "bytes 6-9/10", 4, true},
        {"shorterWhereThereIsMore", 3, 100, 206, "bytes 3-6/10", 4, false},
        {"shorterUpToTheEnd", 3, -1, 206, "bytes 3-6/10", 4, false},
        {"longer", 3, 5, 206, "bytes 3-6/10", 4, false},
        {"other", 3, 6, 206, "bytes 2-5/10", 4, false},
        {"fromBefore", 3, 6, 206, "bytes 2-6/10", 4, false},
        {"otherUnit", 3, 6, 206, "lines 3-6/10", 4, false},
        {"backwards", 3, -1, 206, "bytes 3-2/*", 4, false},
        {"everything", 0, 3, 200, nullptr, 4, false},
        {"everythingWithARange", 0, 3, 200, "bytes 0-3/4", 4, false},
        {"withoutARange", 0, 3, 206, nullptr, 4, false},
        {"nothing", 3, 6, 206, "bytes 3-6/10", 0, false},
        {"lessThanNamed", 3, 6, 206, "bytes 3-6/10", 3, false},
        {"moreThanNamed", 3, 6, 206, "bytes 3-6/10", 5, false},
    }),
    [](const testing::TestParamInfo<CRangeRow>& row) { return row.param.name; });

TEST(CRangeSinkEndTest, anEndThatNobodyCanCountIsAnotherRange)
{
    const auto buffer = kx::newObj<kx::CBufferStream>(kx::newObj<norla::CNetRequest::Buffer>());
    const auto sink
        = kx::newObj<CRangeSink>(kx::newObj<norla::CNetRequest::CStreamDataSink>(buffer.get()).get(), 0, -1);
    norla::CNetRequest::HeaderMap headers;
    headers["content-range"] = "bytes 0-9223372036854775807/*";
    constexpr unsigned char byte = 'x';
    try {
        sink->write(&byte, 1, 206, headers);
        FAIL();
    } catch (const kx::CError& error) {
        EXPECT_THAT(error.what(), HasSubstr("gave something else"));
    }
}

TEST_F(ExampleOutputTest, isNotTakenForARangeThatTheServerIgnores)
{
    const auto file = run({"fetch", "--range", "3-6", "--output", this->file(), server().url("/noranges/digits.txt")});
    EXPECT_EQ(file.exitStatus(), 1);
    EXPECT_EQ(file.errors(),
        "fetch: " + server().url("/noranges/digits.txt")
            + ": The server was asked for the bytes 3-6 and gave something else: status 200, Content-Range ''.\n");
    EXPECT_EQ(fileCount(), 0U);
    EXPECT_EQ(run({"fetch", "--range", "3-6", server().url("/noranges/digits.txt")}).output(), "");
}

TEST_F(ExampleOutputTest, isTheRangeOfAnFTPServer)
{
    const support::CFTPServer ftp;
    const auto result = run({.arguments = {"fetch", "--user", "user", "--range", "3-6", ftp.url("/digits.txt")},
        .environment = {"FETCH_PASSWORD=secret"}});
    EXPECT_EQ(result.output(), "3456") << result.errors();
}

/// With a URL that is not served.
class UnservedSchemeTest : public testing::TestWithParam<std::string> {};

TEST_P(UnservedSchemeTest, isRefusedBeforeAnybodyIsAsked)
{
    const support::CScriptedServer server;
    const std::string url = server.url("/_1", GetParam());
    const std::string scheme = url.substr(0, url.find(':'));
    const support::CTemporaryFolder folder;
    for (const std::vector<std::string>& words : {std::vector<std::string>{"fetch", url},
             {"upload", folder.write("f", ""), url}, {"downloads", folder.path(), url}}) {
        const auto result = live::runLightly(words);
        EXPECT_EQ(result.errors(),
            words[0] + ": the scheme '" + scheme + "' is not served, only http, https, ftp, ftps and sftp\nTry '"
                + words[0] + " --help'.\n");
        EXPECT_EQ(result.exitStatus(), 2);
    }
    EXPECT_EQ(server.connectionCount(), 0U);
}

INSTANTIATE_TEST_SUITE_P(All, UnservedSchemeTest,
    testing::Values("gopher", "dict", "telnet", "file", "ldap", "imap", "smtp", "tftp", "scp"),
    [](const testing::TestParamInfo<std::string>& row) { return row.param; });

TEST_F(ExampleOutputTest, wantsAScheme)
{
    const auto result = run({"fetch", "example.org/file"});
    EXPECT_EQ(
        result.errors(), "fetch: no URL with a scheme, such as https://: 'example.org/file'\nTry 'fetch --help'.\n");
    EXPECT_EQ(result.exitStatus(), 2);
}

TEST_F(ExampleOutputTest, wantsAHost)
{
    const auto result = run({"fetch", "http:///file"}); // libcurl would ask the host "file"
    EXPECT_EQ(result.errors(), "fetch: no host in the URL 'http:///file'\nTry 'fetch --help'.\n");
    EXPECT_EQ(result.exitStatus(), 2);
}

TEST_F(ExampleOutputTest, isJudgedTheSameUnderASchemeInCapitals)
{
    const std::string url = "HTTP" + server().url("/status/404").substr(4);
    EXPECT_EQ(run({"downloads", m_folder.path(), url}).exitStatus(), 1);
    EXPECT_EQ(fileCount(), 0U);
}

TEST_F(ExampleOutputTest, isNotRedirectedToWhatIsNoHTTP)
{
    const support::CFTPServer ftp;
    for (const std::string& target : {ftp.url("/digits.txt"), std::string("file:///etc/hostname")}) {
        support::CScriptedServer redirecting;
        redirecting.onConnection().readHead().send("HTTP/1.1 302 Found\r\nConnection: close\r\nContent-Length: 0\r\n"
                                                   "Location: "
            + target + "\r\n\r\n");
        const auto result = run({"fetch", redirecting.url("/a")});
        EXPECT_EQ(result.exitStatus(), 1);
        EXPECT_EQ(result.output(), "");
        EXPECT_THAT(result.errors(), HasSubstr("Unsupported protocol"));
    }
    EXPECT_EQ(ftp.log(), "");
}

TEST_F(ExampleOutputTest, isAskedForByBytesThatNeedNotBeUTF8)
{
    support::CScriptedServer scripted;
    scripted.onConnection().readHead().send("HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nfound");
    EXPECT_EQ(run({"fetch", scripted.url("/gr\xFC\xC3\xBC?\xE9")}).output(), "found");
    const std::string request = scripted.received(0);
    EXPECT_EQ(request.substr(0, request.find("\r\n")), "GET /gr%fc%c3%bc?%e9 HTTP/1.1");
}

TEST_F(ExampleOutputTest, isFetchedFromAnFTPServerByBytesThatNeedNotBeUTF8)
{
    const support::CFTPServer ftp;
    const auto result = run({.arguments = {"ftp", "127.0.0.1:" + std::to_string(ftp.getPort()), "put",
                                 m_folder.write("gr\xFC", "green"), "/gr\xC3\xBCn"},
        .environment = {"FTP_USER=user", "FTP_PASSWORD=secret"}});
    EXPECT_EQ(contentOf(ftp.root() / "gr\xC3\xBCn"), "green") << result.errors();
}

} // namespace
