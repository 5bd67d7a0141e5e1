// Servers, disks and callers that do what nobody expects of them.
#include "norla/core/CAcceptEncoding.h"
#include "norla/core/CNetHeaders.h"
#include "norla/core/errorKind.h"
#include "tests/norla/files/CFileDownloadFixture.h"

#include <gmock/gmock.h>

#include <future>
#include <regex>
#include <string>
#include <sys/stat.h>
#include <utility>

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class CFileDownloadFaultTest : public CFileDownloadFixture {
protected:
    /// Leaves all bytes as a part: at the last moment somebody else has the name.
    void leaveWholePart()
    {
        answer(whole(m_bytes));
        options().onProgress = [this](const norla::CFileProgress& progress) {
            if (progress.done == progress.total)
                folder().write("file", "somebody's");
        };
        EXPECT_TRUE(failure());
        options().onProgress = {};
        fs::remove(folder().path() / "file");
        ASSERT_THAT(names(), ElementsAre("file.norla-part", "file.norla-record"));
    }

    const std::string m_bytes = bytesOf(200'000);
};

TEST_F(CFileDownloadFaultTest, withoutAProofNoAttemptCountsAsTheFirstOneAgain)
{
    options().retries.attempts = 2;
    for (int i = 0; i < 5; ++i)
        answer(whole(m_bytes, 100'000, ""));
    EXPECT_TRUE(failure());
    EXPECT_EQ(server().connectionCount(), 2u);
}

TEST_F(CFileDownloadFaultTest, nothingStaysOfAFileOfAnotherSize)
{
    options().expectedSize = 1000;
    server().onConnection().readHead().send(whole(m_bytes, 1)).readToEnd();
    EXPECT_TRUE(failure());
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(CFileDownloadFaultTest, aPartOfAnotherSizeThanIsExpectedHindersNobody)
{
    const std::string other(150'000, 'x');
    options().retries.attempts = 1;
    answer(whole(m_bytes, 100'000));
    EXPECT_TRUE(failure());
    options().expectedSize = 150'000;
    answer(whole(other, std::string::npos, "ETag: \"v2\"\r\n"));
    const auto error = failure();
    EXPECT_FALSE(error) << error->what();
    EXPECT_EQ(file(), other);
}

TEST_F(CFileDownloadFaultTest, aPartThatIsWholeIsComparedWithWhatTheServerHas)
{
    leaveWholePart();
    answer(rest(m_bytes, 199'999 - 65'536));
    download()->run();
    EXPECT_EQ(file(), m_bytes);
    EXPECT_THAT(received(1), HasSubstr("Range: bytes=134463-\r\n"));
}

TEST_F(CFileDownloadFaultTest, aPartThatIsWholeIsNotTakenForWhatTheServerHasNow)
{
    const std::string other(150'000, 'x');
    leaveWholePart();
    answer(whole(other, 10, "ETag: \"v2\"\r\n"));
    answer(whole(other, std::string::npos, "ETag: \"v2\"\r\n"));
    download()->run();
    EXPECT_EQ(file(), other);
}

TEST_F(CFileDownloadFaultTest, givesItsNameToNoFileThatSomebodyHasPutInThePlaceOfThePart)
{
    std::promise<void> replaced;
    server()
        .onConnection()
        .readHead()
        .send(whole(m_bytes, 100'000))
        .waitFor(replaced.get_future().share())
        .send(m_bytes.substr(100'000))
        .close();
    options().onProgress = [&, isDone = false](const norla::CFileProgress& progress) mutable {
        if (progress.done < 100'000 || std::exchange(isDone, true))
            return;
        fs::remove(folder().path() / "file.norla-part");
        folder().write("file.norla-part", "somebody's");
        replaced.set_value();
    };
    EXPECT_TRUE(failure());
    EXPECT_THAT(names(), ElementsAre("file.norla-part"));
    EXPECT_EQ(folder().read("file.norla-part"), "somebody's");
}

TEST_F(CFileDownloadFaultTest, whatTheLastCallOfItsListenerThrowsLeavesThePart)
{
    answer(whole(m_bytes));
    options().onProgress = [](const norla::CFileProgress& progress) {
        if (progress.done == progress.total)
            throw kx::CError("of the listener");
    };
    const auto error = failure();
    ASSERT_TRUE(error);
    EXPECT_STREQ(error->what(), "of the listener");
    EXPECT_THAT(names(), ElementsAre("file.norla-part", "file.norla-record"));
}

TEST_F(CFileDownloadFaultTest, aBodyWithoutEndEndsBehindTheExpectedSize)
{
    options().expectedSize = 1000;
    server()
        .onConnection()
        .readHead()
        .send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n")
        .sendRepeated("10000\r\n" + std::string(0x10000, 'x') + "\r\n", 16)
        .readToEnd();
    const auto error = failure();
    ASSERT_TRUE(error);
    EXPECT_THAT(error->what(), HasSubstr("not the 1000 that were expected"));
    EXPECT_THAT(names(), IsEmpty());
    EXPECT_THAT(server().problems(), IsEmpty());
}

TEST_F(CFileDownloadFaultTest, aRangeOfWhoPreparesIsNotAskedFor)
{
    answer(whole(m_bytes));
    const kx::String url = kx::String::fromUTF8(server().url("/file"));
    const auto file = kx::newObj<norla::CFileDownload>(
        [&](norla::CNetRequest& request) {
            request.setURL(url);
            request.setRange(0, 10);
        },
        target(), options());
    file->run();
    EXPECT_EQ(this->file(), m_bytes);
    EXPECT_THAT(received(0), Not(HasSubstr("Range:")));
}

TEST_F(CFileDownloadFaultTest, aCompressedAnswerOfWhoPreparesIsNotAskedFor)
{
    answer(whole(m_bytes));
    const kx::String url = kx::String::fromUTF8(server().url("/file"));
    const auto file = kx::newObj<norla::CFileDownload>(
        [&](norla::CNetRequest& request) {
            request.setURL(url);
            request.setAcceptEncoding({});
        },
        target(), options());
    file->run();
    EXPECT_THAT(received(0), Not(HasSubstr("Accept-Encoding:")));
}

TEST_F(CFileDownloadFaultTest, headersThatAreLeftOutStayLeftOutInLaterAttempts)
{
    answer(whole(m_bytes, 100'000));
    answer(rest(m_bytes, 100'000 - 65'536));
    const kx::String url = kx::String::fromUTF8(server().url("/file"));
    const auto headers = kx::newObj<norla::CNetHeaders>();
    headers->add("Accept", "");
    headers->addEmpty("X-Empty");
    const auto file = kx::newObj<norla::CFileDownload>(
        [&](norla::CNetRequest& request) {
            request.setURL(url);
            request.setCustomHTTPHeaders(headers.get());
        },
        target(), options());
    file->run();
    EXPECT_THAT(received(0), Not(HasSubstr("Accept:")));
    EXPECT_THAT(received(1), Not(HasSubstr("Accept:")));
    EXPECT_THAT(received(1), HasSubstr("\r\nX-Empty:"));
}

TEST_F(CFileDownloadFaultTest, aRestOfUnknownSizeProvesNoEnd)
{
    const std::string head = "HTTP/1.1 200 OK\r\nETag: \"v1\"\r\nTransfer-Encoding: chunked\r\n\r\n";
    const auto part = [this](size_t start, size_t end) {
        return "HTTP/1.1 206 Partial Content\r\nConnection: close\r\nETag: \"v1\"\r\nContent-Length: "
            + std::to_string(end - start) + "\r\nContent-Range: bytes " + std::to_string(start) + "-"
            + std::to_string(end - 1) + "/*\r\n\r\n" + m_bytes.substr(start, end - start);
    };
    answer(head + "186a0\r\n" + m_bytes.substr(0, 100'000) + "\r\n");
    answer(part(100'000 - 65'536, 150'000));
    answer(part(150'000 - 65'536, 200'000));
    answer(part(200'000 - 65'536, 200'000));
    const auto error = failure();
    EXPECT_FALSE(error) << error->what();
    EXPECT_EQ(file(), m_bytes);
}

TEST_F(CFileDownloadFaultTest, aSizeThatNobodyCanCountIsAnError)
{
    for (const char* size : {"9223372036854775808", "99999999999999999999999", "-1", "7, 8"}) {
        answer("HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: " + std::string(size) + "\r\n\r\nthe body");
        options().retries = norla::CRetryPolicy::none();
        EXPECT_TRUE(failure()) << size;
        EXPECT_THAT(names(), IsEmpty()) << size;
    }
}

TEST_F(CFileDownloadFaultTest, aSizeMayBeThereTwice)
{
    answer("HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: 8\r\nContent-Length: 8\r\n\r\nthe body");
    download()->run();
    EXPECT_EQ(file(), "the body");
}

TEST_F(CFileDownloadFaultTest, aSizeThatIsALieOfTheLargestIsAnError)
{
    answer("HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: 9223372036854775807\r\n\r\nthe body");
    options().retries = norla::CRetryPolicy::none();
    options().segments = 16;
    EXPECT_TRUE(failure());
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(CFileDownloadFaultTest, aNameThatNoFileCanHaveIsAnErrorBeforeAnythingIsFetched)
{
    const auto path = norla::CFileDownload::Path::fromBytes((folder().path() / std::string(256, 'n')).native());
    const auto file = kx::newObj<norla::CFileDownload>(kx::String::fromUTF8(server().url("/")), path, options());
    const auto error = failureOf(*file);
    ASSERT_TRUE(error);
    EXPECT_THAT(error->what(), HasSubstr("File name too long"));
    EXPECT_EQ(server().connectionCount(), 0u);
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(CFileDownloadFaultTest, aFolderIsNotReplacedAndNothingIsFetchedForIt)
{
    fs::create_directory(folder().path() / "file");
    options().overwrite = true;
    const auto error = failure();
    ASSERT_TRUE(error);
    EXPECT_THAT(error->what(), HasSubstr("Is a directory"));
    EXPECT_EQ(server().connectionCount(), 0u);
    EXPECT_THAT(names(), ElementsAre("file"));
}

TEST_F(CFileDownloadFaultTest, noPipeOrDeviceIsReplaced)
{
    const std::string name = (folder().path() / "file").native();
    ASSERT_EQ(mkfifo(name.c_str(), 0600), 0);
    options().overwrite = true;
    const auto error = failure();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->what(), "The file '" + name + "' cannot be written: what has that name is no file.");
    EXPECT_EQ(server().connectionCount(), 0u);
    EXPECT_THAT(names(), ElementsAre("file"));
    EXPECT_TRUE(fs::is_fifo(name));
}

TEST_F(CFileDownloadFaultTest, isFetchedFromServersAlone)
{
    folder().write("secret", "of this machine");
    for (const char* const scheme : {"file", "FILE", "dict"}) {
        const kx::String url
            = kx::String::fromUTF8(std::string(scheme) + "://" + (folder().path() / "secret").native());
        const auto error = failureOf(*kx::newObj<norla::CFileDownload>(url, target(), options()));
        ASSERT_TRUE(error) << scheme;
        EXPECT_EQ(norla::getErrorKind(*error), norla::ErrorKind::InvalidArgument);
        EXPECT_THAT(error->what(), HasSubstr("over HTTP, FTP or SFTP, and not over '"));
    }
    EXPECT_THAT(names(), ElementsAre("secret"));
}

TEST_F(CFileDownloadFaultTest, isTriedAgainWhereNobodyKnewTheServer)
{
    const std::string nobody = "http://" + std::string(64, 'x') + ".invalid/file"; // refused without a question
    int count = 0;
    const auto prepare = [&](norla::CNetRequest& request) {
        request.setURL(kx::String::fromUTF8(++count < 4 ? nobody : server().url("/file")));
    };
    options().retries.attempts = 5;
    answer(whole(m_bytes));
    kx::newObj<norla::CFileDownload>(prepare, target(), options())->run();
    EXPECT_EQ(file(), m_bytes);
}

TEST_F(CFileDownloadFaultTest, whatAKilledProcessHasLeftOfARecordGoesToo)
{
    folder().write("file.norla-record.new", "half of a rec");
    answer(whole(m_bytes));
    download()->run();
    EXPECT_THAT(names(), ElementsAre("file"));
}

TEST_F(CFileDownloadFaultTest, aConnectionThatEndsAtAnyByteOfTheAnswerIsNoWholeFile)
{
    const std::string bytes = "some bytes";
    const std::string all = whole(bytes, std::string::npos, "ETag: \"v1\"\r\nAccept-Ranges: bytes\r\n");
    options().retries = norla::CRetryPolicy::none();
    options().keepPart = false;
    for (size_t size = 0; size < all.size(); ++size) {
        server().onConnection().readHead().send(all.substr(0, size)).close();
        EXPECT_TRUE(failure()) << size;
        EXPECT_THAT(names(), IsEmpty()) << size;
    }
    answer(all);
    EXPECT_FALSE(failure());
    EXPECT_EQ(file(), bytes);
}

TEST_F(CFileDownloadFaultTest, aConnectionThatEndsAtAnyByteOfTheRestLosesNothing)
{
    const std::string bytes = bytesOf(100);
    options().retries = norla::CRetryPolicy::none();
    const std::string all = rest(bytes, 0, "ETag: \"v1\"\r\n");
    answer(whole(bytes, 40));
    EXPECT_TRUE(failure());
    const size_t head = all.find("\r\n\r\n") + 4;
    for (size_t size = 0; size < head + 40; ++size) {
        server().onConnection().readHead().send(all.substr(0, size)).close();
        EXPECT_TRUE(failure()) << size;
        EXPECT_THAT(names(), ElementsAre("file.norla-part", "file.norla-record")) << size;
        EXPECT_EQ(folder().read("file.norla-part").substr(0, 40), bytes.substr(0, 40)) << size;
    }
    answer(all);
    const auto error = failure();
    EXPECT_FALSE(error) << error->what();
    EXPECT_EQ(file(), bytes);
}

TEST_F(CFileDownloadFaultTest, aPoolThatStopsEndsIt)
{
    options().segments = 4;
    server().onConnection().readHead().send(whole(m_bytes, 100'000)).readToEnd();
    options().onProgress = [this](const norla::CFileProgress& progress) {
        if (progress.done == 100'000)
            options().pool->stop();
    };
    EXPECT_TRUE(failure());
    EXPECT_THAT(names(), ElementsAre("file.norla-part", "file.norla-record"));
    EXPECT_TRUE(failure());
}

TEST_F(CFileDownloadFaultTest, anAnswerThatIsNeitherIsAnError)
{
    options().retries = norla::CRetryPolicy::none();
    options().keepPart = false;
    const std::string part = rest(m_bytes, 0);
    const std::string head = "HTTP/1.1 ";
    const std::string tail = "\r\nConnection: close\r\nETag: \"v1\"\r\nContent-Length: 4\r\n\r\nbody";
    for (const std::string& answered : std::vector<std::string>{part, head + "204 No" + tail, head + "304 No" + tail,
             head + "201 Created" + tail, head + "206 Part" + tail, head + "300 Many" + tail, head + "302 No" + tail,
             head + "999 No" + tail, "body", "", "\r\n\r\n", "HTTP/1.1 200 OK\r\nETag: \"v1\"\r\n"}) {
        answer(answered);
        EXPECT_TRUE(failure()) << answered.substr(0, 40);
        EXPECT_THAT(names(), IsEmpty());
    }
}

TEST_F(CFileDownloadFaultTest, partsThatAreNotThoseThatWereAskedForLoseNothing)
{
    options().retries = norla::CRetryPolicy::none();
    answer(whole(m_bytes, 100'000));
    EXPECT_TRUE(failure());
    for (const char* range : {"", "Content-Range: bytes 34464-199999/\r\n", "Content-Range: bytes 34464-199999\r\n",
             "Content-Range: bytes 34464-199998/200000\r\n", "Content-Range: bytes 34464-200000/200000\r\n",
             "Content-Range: bytes */200000\r\n", "Content-Range: lines 34464-199999/200000\r\n",
             "Content-Range: bytes 34464-9223372036854775808/9223372036854775809\r\n",
             "Content-Range: bytes 34464-9223372036854775806/9223372036854775807\r\n",
             "Content-Range: bytes 199999-34464/200000\r\n", "Content-Range: bytes -1-199999/200000\r\n",
             "Content-Type: multipart/byteranges; boundary=x\r\n"}) {
        answer("HTTP/1.1 206 Partial Content\r\nConnection: close\r\nETag: \"v1\"\r\nContent-Length: 165536\r\n"
            + std::string(range) + "\r\n" + m_bytes.substr(34'464));
        EXPECT_TRUE(failure()) << range;
        EXPECT_THAT(names(), ElementsAre("file.norla-part", "file.norla-record")) << range;
    }
    answer(rest(m_bytes, 34'464));
    download()->run();
    EXPECT_EQ(file(), m_bytes);
}

TEST_F(CFileDownloadFaultTest, aConnectionThatHadTheLimitOfSpeedForItselfIsGivenUpForSeveral)
{
    const std::string bytes = bytesOf(4 << 20);
    options().segments = 2;
    options().speedLimit = 100 << 20;
    const std::string ranges = "ETag: \"v1\"\r\nAccept-Ranges: bytes\r\n";
    server().onConnection().readHead().send(whole(bytes, 500'000, ranges)).readToEnd();
    server().onConnection().readHead().send(rest(bytes, 500'000 - 65'536).substr(0, 100'000)).readToEnd();
    server().onConnection().readHead().stall();
    norla::CFileDownload* running = nullptr;
    options().onProgress = [&](const norla::CFileProgress&) {
        if (server().received(2).ends_with("\r\n\r\n"))
            running->cancel();
    };
    const auto file = download();
    running = file.get();
    EXPECT_TRUE(failureOf(*file));
    EXPECT_THAT(server().received(1), HasSubstr("\r\nRange: bytes=434464-4194303\r\n"));
    EXPECT_THAT(server().received(2), testing::ContainsRegex("\r\nRange: bytes=2[0-9]*-4194303\r\n"));
}

TEST_F(CFileDownloadFaultTest, aConnectionThatHadTheLimitOfSpeedForItselfBringsALittleRestItself)
{
    const std::string bytes = bytesOf(2 << 20);
    std::promise<void> seen;
    options().segments = 2;
    options().speedLimit = 100 << 20;
    const std::string all = whole(bytes, std::string::npos, "ETag: \"v1\"\r\nAccept-Ranges: bytes\r\n");
    server()
        .onConnection()
        .readHead()
        .send(all.substr(0, 500'000))
        .waitFor(seen.get_future().share())
        .send(all.substr(500'000))
        .close();
    options().onProgress = [&, count = 0](const norla::CFileProgress& progress) mutable {
        if (progress.done > 0 && ++count == 3) // behind the first time another connection may be opened
            seen.set_value();
    };
    download()->run();
    EXPECT_EQ(file(), bytes);
    EXPECT_EQ(server().connectionCount(), 1u);
}

TEST_F(CFileDownloadFaultTest, aConnectionThatGoesOnKeepsToItsHalf)
{
    const std::string bytes = bytesOf(4 << 20);
    std::promise<void> halved;
    options().segments = 2;
    server()
        .onConnection()
        .readHead()
        .send(whole(bytes, 500'000, "ETag: \"v1\"\r\nAccept-Ranges: bytes\r\n"))
        .waitFor(halved.get_future().share())
        .closeHard();
    server().onConnection().readHead().stall();
    server().onConnection().readHead().stall();
    norla::CFileDownload* running = nullptr;
    options().onProgress = [&, isHalved = false](const norla::CFileProgress&) mutable {
        if (server().received(1).ends_with("\r\n\r\n") && !std::exchange(isHalved, true))
            halved.set_value();
        if (server().received(2).ends_with("\r\n\r\n"))
            running->cancel();
    };
    const auto file = download();
    running = file.get();
    EXPECT_TRUE(failureOf(*file));
    const auto asked = [this](size_t connection) {
        std::smatch found;
        const std::string head = server().received(connection);
        EXPECT_TRUE(std::regex_search(head, found, std::regex("Range: bytes=([0-9]+)-([0-9]*)\r\n")));
        return std::pair(found.str(1), found.str(2));
    };
    EXPECT_EQ(asked(2).second, std::to_string(std::stoll(asked(1).first) - 1));
}

} // namespace
