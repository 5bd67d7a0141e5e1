#include "norla/core/CNetHeaders.h"
#include "norla/core/errorKind.h"
#include "norla/core/explain.h"
#include "norla/pool/CExecutorQueue.h"
#include "tests/norla/files/CFileDownloadFixture.h"
#include "tests/support/CLogRecorder.h"

#include <gmock/gmock.h>

#include <sys/stat.h>
#include <thread>

namespace {

using norla::ErrorKind;
using norla::FileState;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

class CFileDownloadTest : public CFileDownloadFixture {};

TEST_F(CFileDownloadTest, givesTheWholeFileItsNameAndLeavesNothingElse)
{
    answer(whole("the body"));
    const auto file = download();
    EXPECT_EQ(file->getState(), FileState::Waiting);
    file->run();
    EXPECT_EQ(file->getState(), FileState::Succeeded);
    EXPECT_EQ(this->file(), "the body");
    EXPECT_THAT(names(), ElementsAre("file"));
    EXPECT_THAT(received(0), Not(HasSubstr("Range")));
}

TEST_F(CFileDownloadTest, anEmptyFileIsOneToo)
{
    answer(whole(""));
    download()->run();
    EXPECT_EQ(file(), "");
}

TEST_F(CFileDownloadTest, aBodyOfUnknownSizeEndsWithItsConnection)
{
    answer("HTTP/1.1 200 OK\r\n\r\nthe body");
    download()->run();
    EXPECT_EQ(file(), "the body");
}

TEST_F(CFileDownloadTest, runsOnce)
{
    answer(whole("the body"));
    const auto file = download();
    file->run();
    EXPECT_TRUE(failureOf(*file));
    EXPECT_EQ(file->getState(), FileState::Succeeded);
}

TEST_F(CFileDownloadTest, leavesNothingWhereTheServerHasNoFile)
{
    answer(
        "HTTP/1.1 404 Not Found\r\nConnection: close\r\nContent-Type: text/plain\r\nContent-Length: 7\r\n\r\nno file");
    const auto file = download();
    const auto error = failureOf(*file);
    ASSERT_TRUE(error);
    EXPECT_EQ(norla::getErrorKind(*error), ErrorKind::NotFound);
    EXPECT_THAT(norla::explain(*error).toUTF8(), HasSubstr("no file"));
    EXPECT_EQ(file->getState(), FileState::Failed);
    EXPECT_TRUE(names().empty());
}

TEST_F(CFileDownloadTest, replacesNothingUnlessToldTo)
{
    folder().write("file", "older");
    const auto error = failure();
    ASSERT_TRUE(error);
    EXPECT_EQ(std::string(error->what()), "The file '" + (folder().path() / "file").native() + "' is there already.");
    EXPECT_EQ(server().connectionCount(), 0u);
    EXPECT_THAT(names(), ElementsAre("file"));
    options().overwrite = true;
    answer(whole("newer"));
    download()->run();
    EXPECT_EQ(file(), "newer");
}

TEST_F(CFileDownloadTest, takesADigestThatIsRight)
{
    options().sha256 = "230D8358DC8E8890B4C58DEEB62912EE2F20357AE92A5CC861B98E68FE31ACB5"; // of "body"
    options().md5 = "841a2d689ad86bd1611447453c22c6fc";
    options().expectedSize = 4;
    answer(whole("body"));
    download()->run();
    EXPECT_EQ(file(), "body");
}

TEST_F(CFileDownloadTest, leavesNothingOfBytesWithAnotherDigest)
{
    options().sha256 = "230d8358dc8e8890b4c58deeb62912ee2f20357ae92a5cc861b98e68fe31acb5";
    answer(whole("page"));
    const auto error = failure();
    ASSERT_TRUE(error);
    EXPECT_THAT(error->what(), HasSubstr("is not the one that was expected: its SHA-256 is "));
    EXPECT_TRUE(names().empty());
}

TEST_F(CFileDownloadTest, fetchesNoFileOfAnotherSize)
{
    options().expectedSize = 1000;
    server().onConnection().readHead().send(whole("the body", 1)).readToEnd();
    const auto error = failure();
    ASSERT_TRUE(error);
    EXPECT_EQ(std::string(error->what()),
        "The file '" + (folder().path() / "file").native()
            + "' has 8 bytes at the server, and not the 1000 that were expected.");
}

TEST_F(CFileDownloadTest, setsTimeAndPermissions)
{
    options().keepModificationTime = true;
    options().permissions = 0600;
    answer(whole("body", std::string::npos, "Last-Modified: Sun, 06 Nov 1994 08:49:37 GMT\r\n"));
    download()->run();
    struct stat status {};
    ASSERT_EQ(stat((folder().path() / "file").c_str(), &status), 0);
    EXPECT_EQ(status.st_mtime, 784111777);
    EXPECT_EQ(status.st_mode & 0777, 0600u);
}

TEST_F(CFileDownloadTest, showsNobodyElseWhatHasComeOfAFileWithPermissions)
{
    options().permissions = 0600;
    options().retries.attempts = 1;
    answer(whole(bytesOf(100000), 50000));
    EXPECT_NE(failure(), nullptr);
    struct stat status {};
    ASSERT_EQ(stat((folder().path() / "file.norla-part").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u);
}

TEST_F(CFileDownloadTest, namesTheFileAsTheServerDoes)
{
    answer(whole("body", std::string::npos, "Content-Disposition: attachment; filename=\"../report.pdf\"\r\n"));
    const auto file = download("/folder/some%20name?secret");
    file->run();
    EXPECT_EQ(file->getSuggestedName().toUTF8(), "report.pdf");
}

TEST_F(CFileDownloadTest, namesTheFileAsItsURLDoesOtherwise)
{
    answer(whole("body"));
    const auto file = download("/folder/some%20name?secret");
    file->run();
    EXPECT_EQ(file->getSuggestedName().toUTF8(), "some name");
}

TEST_F(CFileDownloadTest, suggestsANameForAURLAlone)
{
    EXPECT_EQ(norla::CFileDownload::suggestNameFor("https://host/folder/some%20name?a/b").toUTF8(), "some name");
    EXPECT_EQ(norla::CFileDownload::suggestNameFor("https://host/folder/..%2f.name#part").toUTF8(), "name");
    EXPECT_EQ(norla::CFileDownload::suggestNameFor("https://host").toUTF8(), "");
}

TEST_F(CFileDownloadTest, refusesOptionsThatMakeNoSense)
{
    const auto errorOf = [this](const auto& change) -> std::string {
        Options options = this->options();
        change(options);
        try {
            kx::newObj<norla::CFileDownload>("http://localhost/", target(), options);
        } catch (const kx::CError& error) {
            return error.what();
        }
        return "";
    };
    EXPECT_THAT(errorOf([](Options& options) { options.segments = 0; }), HasSubstr("segments is 0"));
    EXPECT_THAT(errorOf([](Options& options) { options.segments = 17; }), HasSubstr("segments is 17"));
    EXPECT_THAT(errorOf([](Options& options) { options.speedLimit = -1; }), HasSubstr("speedLimit is -1"));
    EXPECT_THAT(errorOf([](Options& options) { options.expectedSize = -1; }), HasSubstr("expectedSize"));
    EXPECT_THAT(errorOf([](Options& options) { options.sha256 = "abc"; }), HasSubstr("sha256 is 'abc'"));
    EXPECT_THAT(errorOf([](Options& options) { options.permissions = 644; }), HasSubstr("permissions is 644"));
    EXPECT_EQ(errorOf([](Options& options) { options.permissions = S_IFREG | 0644; }), "");
    EXPECT_THAT(errorOf([](Options& options) { options.md5 = "zz1a2d689ad86bd1611447453c22c6fc"; }), HasSubstr("md5"));
}

TEST_F(CFileDownloadTest, aCancelledOneEndsAtOnceAndKeepsWhatHasCome)
{
    const std::string bytes = bytesOf(100'000);
    server().onConnection().readHead().send(whole(bytes, 50'000)).readToEnd();
    const auto file = download();
    std::thread canceller([&file] {
        while (file->getProgress().done < 50'000)
            std::this_thread::yield();
        file->cancel();
    });
    const auto error = failureOf(*file);
    canceller.join();
    ASSERT_TRUE(error);
    EXPECT_EQ(norla::getErrorKind(*error), ErrorKind::Cancelled);
    EXPECT_EQ(file->getState(), FileState::Cancelled);
    EXPECT_THAT(names(), ElementsAre("file.norla-part", "file.norla-record"));
}

TEST_F(CFileDownloadTest, aCancelledOneLeavesNothingWhereNothingIsToStay)
{
    server().onConnection().readHead().send(whole(bytesOf(100'000), 50'000)).readToEnd();
    options().keepPart = false;
    norla::CFileDownload* running = nullptr;
    options().onProgress = [&running](const norla::CFileProgress& progress) {
        if (progress.done == 50'000)
            running->cancel();
    };
    const auto file = download();
    running = file.get();
    const auto error = failureOf(*file);
    ASSERT_TRUE(error);
    EXPECT_EQ(norla::getErrorKind(*error), ErrorKind::Cancelled);
    EXPECT_TRUE(names().empty());
}

TEST_F(CFileDownloadTest, goesOnBehindAPause)
{
    const std::string bytes = bytesOf(100'000);
    server().onConnection().readHead().send(whole(bytes, 50'000)).readToEnd();
    answer(rest(bytes, 0));
    options().onProgress = [](const norla::CFileProgress&) {};
    const auto file = download();
    std::thread other([&file] {
        while (file->getProgress().done < 50'000)
            std::this_thread::yield();
        file->pause();
        while (file->getState() != FileState::Paused)
            std::this_thread::yield();
        file->resume();
    });
    file->run();
    other.join();
    EXPECT_EQ(this->file(), bytes);
}

TEST_F(CFileDownloadTest, tellsItsProgressUpToTheEnd)
{
    answer(whole("the body"));
    norla::CFileProgress last;
    options().onProgress = [&last](const norla::CFileProgress& progress) { last = progress; };
    download()->run();
    EXPECT_EQ(last.done, 8);
    EXPECT_EQ(last.total, 8);
}

TEST_F(CFileDownloadTest, whatItsListenerThrowsIsItsEnd)
{
    answer(whole("the body"));
    options().onProgress = [](const norla::CFileProgress&) { throw kx::CError("of the listener"); };
    const auto error = failure();
    ASSERT_TRUE(error);
    EXPECT_STREQ(error->what(), "of the listener");
}

TEST_F(CFileDownloadTest, tellsItsProgressWhereTheExecutorSays)
{
    answer(whole("the body"));
    const auto queue = kx::newObj<norla::CExecutorQueue>();
    options().executor = queue.get();
    int count = 0;
    options().onProgress = [&count](const norla::CFileProgress&) { ++count; };
    download()->run();
    EXPECT_EQ(count, 0);
    queue->runPending();
    EXPECT_GT(count, 0);
}

TEST_F(CFileDownloadTest, whatItsListenerThrowsElsewhereIsLoggedWhateverItIs)
{
    answer(whole("the body"));
    const support::CLogRecorder log;
    const auto queue = kx::newObj<norla::CExecutorQueue>();
    options().executor = queue.get();
    options().onProgress = [](const norla::CFileProgress&) { throw 7; };
    download()->run();
    EXPECT_NO_THROW(queue->runPending());
    EXPECT_THAT(
        log.lines(), Contains("error: What is told of a download's progress has thrown: It is no std::exception."));
}

TEST_F(CFileDownloadTest, preparesEachAttemptAnew)
{
    const std::string bytes = bytesOf(1000);
    answer(whole(bytes, 500));
    answer(rest(bytes, 0));
    const auto headers = kx::newObj<norla::CNetHeaders>();
    headers->add("X-Mine", "yes");
    const kx::String url = kx::String::fromUTF8(server().url("/file"));
    int count = 0;
    const auto file = kx::newObj<norla::CFileDownload>(
        [&](norla::CNetRequest& request) {
            request.setURL(url + "?token=" + kx::String::fromUTF8(std::to_string(++count)));
            request.setCustomHTTPHeaders(headers.get());
        },
        target(), options());
    file->run();
    EXPECT_EQ(this->file(), bytes);
    EXPECT_THAT(received(0), HasSubstr("X-Mine: yes\r\n"));
    EXPECT_THAT(received(1), HasSubstr("X-Mine: yes\r\n"));
    EXPECT_THAT(received(1), HasSubstr("If-Range: \"v1\"\r\n"));
    kx::TMap<kx::String, kx::String> mine;
    headers->fillMap(mine);
    EXPECT_EQ(mine.size(), 1u);
}

TEST_F(CFileDownloadTest, theSpeedIsLimited)
{
    options().speedLimit = 5'000'000; // libcurl reads one and a half megabytes at once
    answer(whole(bytesOf(5'000'000)));
    const auto start = std::chrono::steady_clock::now();
    download()->run();
    EXPECT_GT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(500));
}

} // namespace
