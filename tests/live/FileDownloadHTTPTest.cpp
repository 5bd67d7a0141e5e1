// CFileDownload from nginx.
#include "norla/core/errorKind.h"
#include "tests/live/CLiveDownload.h"
#include "tests/support/CNginxServer.h"
#include "tests/support/CTestCertificates.h"

#include <gmock/gmock.h>

#include <chrono>
#include <ostream>
#include <utility>
#include <vector>

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;

/// How nginx is spoken to.
struct CHTTPRow {
    const char* name;
    bool isSecure;
    int version;
    const char* inLog;
};

void PrintTo(const CHTTPRow& row, std::ostream* out)
{
    *out << row.name;
}

class CHTTPDownload : public live::CLiveDownload {
protected:
    explicit CHTTPDownload(CHTTPRow row)
        : m_row(row)
    {
        choose("/file.bin");
    }

    void choose(const std::string& path)
    {
        const std::string url = m_row.isSecure ? m_server.httpsURL(path) : m_server.url(path);
        setPrepare([url, version = m_row.version](norla::CNetRequest& request) {
            request.setURL(kx::String::fromUTF8(url));
            request.setOptionInt(CURLOPT_HTTP_VERSION, version);
            request.setRootCertBundlePath(
                norla::CNetRequest::Path::fromBytes(support::CTestCertificates::get().caFile().native()));
        });
    }

    std::filesystem::path onDisk(const std::string& name = "file.bin") const { return m_server.root() / name; }
    support::CNginxServer& server() { return m_server; }
    const CHTTPRow& row() const { return m_row; }
    const std::string& bytes() const { return m_bytes; }

private:
    support::CNginxServer m_server;
    const CHTTPRow m_row;
    const std::string m_bytes = bytesOf(fileSize);
};

class FileDownloadHTTPTest : public CHTTPDownload, public testing::WithParamInterface<CHTTPRow> {
protected:
    FileDownloadHTTPTest()
        : CHTTPDownload(GetParam())
    {
    }
};

TEST_P(FileDownloadHTTPTest, fetchesAFileWhole)
{
    writeOld(onDisk(), bytes());
    fetch();
    EXPECT_TRUE(file() == bytes());
    EXPECT_THAT(names(), ElementsAre("file"));
    EXPECT_THAT(server().accessLog(), ElementsAre(HasSubstr(std::string(row().inLog) + " 200 range=- ")));
}

TEST_P(FileDownloadHTTPTest, goesOnWhereItWasCutOff)
{
    writeOld(onDisk(), bytes());
    cutOff();
    fetch();
    EXPECT_TRUE(file() == bytes());
    EXPECT_THAT(server().lastAccess(), HasSubstr(std::string(row().inLog) + " 206 range=bytes="));
    EXPECT_TRUE(wasResumed()) << bytesFetched();
}

TEST_P(FileDownloadHTTPTest, fetchesWithSeveralConnections)
{
    const std::string large = bytesOf(20 << 20);
    writeOld(onDisk(), large);
    options().segments = 4;
    options().speedLimit = 32 << 20; // or else the first one is done before the others have begun
    fetch();
    EXPECT_TRUE(file() == large);
    EXPECT_GE(server().accessLog().size(), 4U);
    EXPECT_THAT(server().accessLog(), Contains(HasSubstr(" 206 range=bytes=")));
}

TEST_P(FileDownloadHTTPTest, goesOnWithSeveralConnectionsWhereTheyWereCutOff)
{
    writeOld(onDisk(), bytes());
    options().segments = 4;
    cutOff();
    fetch();
    EXPECT_TRUE(file() == bytes());
}

TEST_P(FileDownloadHTTPTest, startsAnewWhereTheServerGivesNoParts)
{
    writeOld(onDisk("noranges/file.bin"), bytes());
    choose("/noranges/file.bin");
    cutOff();
    fetch();
    EXPECT_TRUE(file() == bytes());
    EXPECT_THAT(server().lastAccess(), HasSubstr(" 200 range=- "));
}

TEST_P(FileDownloadHTTPTest, startsAnewWhereTheFileHasChanged)
{
    writeOld(onDisk(), bytes());
    cutOff();
    const std::string other = bytes().substr(1) + "x";
    support::writeFile(onDisk(), other);
    setAge(onDisk(), std::chrono::hours(1));
    fetch();
    EXPECT_TRUE(file() == other);
}

TEST_P(FileDownloadHTTPTest, startsAnewWhereOtherBytesHaveTheSizeAndTheTimeOfTheOlderOnes)
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

TEST_P(FileDownloadHTTPTest, keepsTheTimeOfTheFile)
{
    writeOld(onDisk(), "the file");
    options().keepModificationTime = true;
    fetch();
    EXPECT_EQ(std::filesystem::last_write_time(target()), std::filesystem::last_write_time(onDisk()));
}

TEST_P(FileDownloadHTTPTest, leavesNothingOfAFileThatIsMissing)
{
    const auto error = failure();
    ASSERT_TRUE(error);
    EXPECT_EQ(norla::getErrorKind(*error), norla::ErrorKind::NotFound);
    EXPECT_TRUE(names().empty());
}

class FileDownloadSpeedTest : public CHTTPDownload {
protected:
    FileDownloadSpeedTest()
        : CHTTPDownload({"HTTP11", false, CURL_HTTP_VERSION_1_1, "HTTP/1.1"})
    {
    }
};

// Each connection begins with what libcurl reads at once, a megabyte and a half. The rate is the one behind these, when
// one that had all of the limit would still be busy with its part of the file: 1.75 times the limit together. libcurl
// makes up for what a busy machine has kept from it.
TEST_F(FileDownloadSpeedTest, severalConnectionsKeepToTheLimitTogether)
{
    using Clock = std::chrono::steady_clock;
    constexpr long long limit = 8 << 20;
    constexpr long long from = 10 << 20;
    constexpr long long to = from + 3 * limit;
    writeOld(onDisk(), "");
    std::filesystem::resize_file(onDisk(), 256 << 20);
    options().segments = 4;
    options().speedLimit = limit;
    std::vector<std::pair<Clock::time_point, long long>> points;
    options().onProgress = [&](const norla::CFileProgress& progress) {
        if (progress.done >= (points.empty() ? from : to))
            points.emplace_back(Clock::now(), progress.done);
        if (points.size() == 2)
            throw kx::CError("seen enough");
    };
    const auto error = failure();
    ASSERT_TRUE(error);
    ASSERT_EQ(points.size(), 2U) << error->what();
    const std::chrono::duration<double> taken = points[1].first - points[0].first;
    EXPECT_LT(static_cast<double>(points[1].second - points[0].second) / taken.count(), 1.5 * limit);
    EXPECT_EQ(server().accessLog().size(), 1U + 4U) << "the first connection was given up";
}

INSTANTIATE_TEST_SUITE_P(Nginx, FileDownloadHTTPTest,
    testing::Values(CHTTPRow{"HTTP11", false, CURL_HTTP_VERSION_1_1, "HTTP/1.1"},
        CHTTPRow{"HTTPS", true, CURL_HTTP_VERSION_1_1, "HTTP/1.1"},
        CHTTPRow{"HTTP2", true, CURL_HTTP_VERSION_2TLS, "HTTP/2.0"}),
    [](const auto& test) { return std::string(test.param.name); });

} // namespace
