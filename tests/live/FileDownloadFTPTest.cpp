// CFileDownload from servers of FTP, FTPS and SFTP.
#include "norla/core/CDeadlines.h"
#include "norla/core/errorKind.h"
#include "tests/live/CLiveDownload.h"
#include "tests/live/FTPSession.h"
#include "tests/support/CDescriptor.h"
#include "tests/support/CSSHServer.h"
#include "tests/support/pathOf.h"
#include "tests/support/systemError.h"

#include <gmock/gmock.h>

#include <fcntl.h>
#include <sys/stat.h>

namespace {

using norla::CNetRequest;
using support::pathOf;
using testing::ElementsAre;
using Security = support::IFTPServer::Security;

/// A server of files that runs.
struct CRunningServer {
    std::shared_ptr<const void> server;
    std::filesystem::path root;
    std::function<void(CNetRequest& request, const std::string& name)> prepare;
};

using MakeServer = std::unique_ptr<support::IFTPServer> (*)(Security security);

template <MakeServer make, Security security>
CRunningServer startFTP()
{
    const std::shared_ptr<support::IFTPServer> server = make(security);
    return {.server = server,
        .root = server->root(),
        .prepare = [server = server.get()](CNetRequest& request, const std::string& name) {
            request.setURL(kx::String::fromUTF8(server->url("/" + name)));
            request.setUserName(kx::String::fromUTF8(server->userName()));
            request.setUserPassword(kx::String::fromUTF8(server->password()));
            request.setRootCertBundlePath(pathOf(support::CTestCertificates::get().caFile()));
            if (server->getSecurity() != Security::None)
                request.setOptionInt(CURLOPT_USE_SSL, CURLUSESSL_ALL);
        }};
}

CRunningServer startSFTP()
{
    const auto server = std::make_shared<support::CSSHServer>();
    support::writeFile(server->root() / "known_hosts", server->knownHostsLine() + "\n");
    return {.server = server,
        .root = server->root(),
        .prepare = [server = server.get()](CNetRequest& request, const std::string& name) {
            request.setURL(kx::String::fromUTF8(server->url((server->root() / name).string())));
            request.setUserName(kx::String::fromUTF8(server->userName()));
            request.setOptionString(
                CURLOPT_SSH_PRIVATE_KEYFILE, kx::String::fromUTF8(server->privateKeyFile().string()));
            request.setOptionString(CURLOPT_SSH_PUBLIC_KEYFILE, kx::String::fromUTF8(server->publicKeyFile().string()));
            request.setOptionInt(CURLOPT_SSH_AUTH_TYPES, CURLSSH_AUTH_PUBLICKEY);
            request.setSSHKnownHostsPath(pathOf(server->root() / "known_hosts"));
        }};
}

struct CStartRow {
    const char* name;
    CRunningServer (*start)();
};

void PrintTo(const CStartRow& row, std::ostream* out)
{
    *out << row.name;
}

class FileDownloadFTPTest : public live::CLiveDownload, public testing::WithParamInterface<CStartRow> {
protected:
    FileDownloadFTPTest()
        : m_server(GetParam().start())
    {
        setPrepare([this](CNetRequest& request) { m_server.prepare(request, "file.bin"); });
    }

    std::filesystem::path onDisk() const { return m_server.root / "file.bin"; }
    const std::string& bytes() const { return m_bytes; }

private:
    const CRunningServer m_server;
    const std::string m_bytes = bytesOf(fileSize);
};

TEST_P(FileDownloadFTPTest, fetchesAFileWhole)
{
    writeOld(onDisk(), bytes());
    fetch();
    EXPECT_TRUE(file() == bytes());
    EXPECT_THAT(names(), ElementsAre("file"));
}

TEST_P(FileDownloadFTPTest, goesOnWhereItWasCutOff)
{
    writeOld(onDisk(), bytes());
    cutOff();
    fetch();
    EXPECT_TRUE(file() == bytes());
    EXPECT_TRUE(wasResumed()) << bytesFetched();
}

TEST_P(FileDownloadFTPTest, startsAnewWhereTheFileHasAnotherTime)
{
    writeOld(onDisk(), bytes());
    cutOff();
    setAge(onDisk(), std::chrono::hours(1));
    fetch();
    EXPECT_TRUE(file() == bytes());
    EXPECT_FALSE(wasResumed());
}

TEST_P(FileDownloadFTPTest, startsAnewWhereTheFileHasAnotherSize)
{
    writeOld(onDisk(), bytes());
    const auto time = std::filesystem::last_write_time(onDisk());
    cutOff();
    support::writeFile(onDisk(), bytes() + "x");
    std::filesystem::last_write_time(onDisk(), time);
    fetch();
    EXPECT_TRUE(file() == bytes() + "x");
    EXPECT_FALSE(wasResumed());
}

TEST_P(FileDownloadFTPTest, startsAnewWhereOtherBytesHaveTheSizeAndTheTimeOfTheOlderOnes)
{
    writeOld(onDisk(), bytes());
    const auto time = std::filesystem::last_write_time(onDisk());
    cutOff();
    const std::string other = bytes().substr(1) + "x";
    support::writeFile(onDisk(), other);
    std::filesystem::last_write_time(onDisk(), time);
    fetch();
    EXPECT_TRUE(file() == other);
}

TEST_P(FileDownloadFTPTest, startsAnewWhereTheFileHasBecomeShorterThanThePart)
{
    writeOld(onDisk(), bytes());
    cutOff();
    writeOld(onDisk(), "short");
    fetch();
    EXPECT_EQ(file(), "short");
}

TEST_P(FileDownloadFTPTest, anEmptyFileIsOneToo)
{
    writeOld(onDisk(), "");
    fetch();
    EXPECT_EQ(file(), "");
}

TEST_P(FileDownloadFTPTest, keepsTheTimeOfTheFile)
{
    writeOld(onDisk(), "the file");
    options().keepModificationTime = true;
    fetch();
    EXPECT_EQ(std::filesystem::last_write_time(target()), std::filesystem::last_write_time(onDisk()));
}

TEST_P(FileDownloadFTPTest, leavesNothingOfAFileThatIsMissing)
{
    const auto error = failure();
    ASSERT_TRUE(error);
    EXPECT_EQ(norla::getErrorKind(*error), norla::ErrorKind::NotFound) << error->what();
    EXPECT_TRUE(names().empty());
}

class FileDownloadSFTPTest : public live::CLiveDownload {};

// The server waits for somebody who would write into the pipe, and answers nothing meanwhile.
TEST_F(FileDownloadSFTPTest, aServerThatFallsSilentInACommandIsNotWaitedForWithoutEnd)
{
    const CRunningServer server = startSFTP();
    const std::filesystem::path pipe = server.root / "pipe";
    support::checked(mkfifo(pipe.c_str(), S_IRUSR | S_IWUSR), "mkfifo");
    int preparations = 0;
    setPrepare([&](CNetRequest& request) {
        ++preparations;
        server.prepare(request, "pipe");
        request.setDeadlines(
            {.connect = kx::CTimeSpan::fromSeconds(2), .inactivity = kx::CTimeSpan::fromSeconds(1), .total = {}});
    });
    options().retries.attempts = 2;
    options().retries.firstPause = kx::CTimeSpan::fromMilliseconds(1);
    const auto error = failure();
    const support::CDescriptor writer(open(pipe.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC)); // whom they wait for
    ASSERT_TRUE(error);
    EXPECT_EQ(norla::getErrorKind(*error), norla::ErrorKind::InactivityTimeout) << error->what();
    EXPECT_THAT(error->what(), testing::EndsWith(" has not answered for 3 seconds."));
    EXPECT_EQ(preparations, 1 + 2) << "it is asked for the URL, and then for two attempts";
    EXPECT_TRUE(names().empty());
}

std::unique_ptr<support::IFTPServer> makeVsftpd(Security security)
{
    return live::makeLenient<support::CVsftpdServer>(security);
}

std::unique_ptr<support::IFTPServer> makeProFTPD(Security security)
{
    return live::makeLenient<support::CProFTPDServer>(security);
}

INSTANTIATE_TEST_SUITE_P(Servers, FileDownloadFTPTest,
    testing::Values(CStartRow{"ProFTPD", startFTP<makeProFTPD, Security::None>},
        CStartRow{"PureFTPd", startFTP<live::makePureFTPd, Security::None>},
        CStartRow{"Vsftpd", startFTP<makeVsftpd, Security::None>},
        CStartRow{"ProFTPDWithTLS", startFTP<makeProFTPD, Security::Explicit>},
        CStartRow{"PureFTPdWithTLS", startFTP<live::makePureFTPd, Security::Explicit>},
        CStartRow{"VsftpdWithTLS", startFTP<makeVsftpd, Security::Explicit>},
        CStartRow{"ProFTPDOverFTPS", startFTP<makeProFTPD, Security::Implicit>},
        CStartRow{"VsftpdOverFTPS", startFTP<makeVsftpd, Security::Implicit>}, CStartRow{"SFTP", startSFTP}),
    [](const auto& test) { return std::string(test.param.name); });

} // namespace
