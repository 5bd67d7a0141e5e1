// Files that come from a real store, and go there.
#include "norla/core/errorKind.h"
#include "norla/files/CS3FileDownload.h"
#include "norla/files/CS3FileUpload.h"
#include "norla/s3/CS3Objects.h"
#include "norla/s3/CS3UploadEnum.h"
#include "tests/live/S3EndpointSession.h"
#include "tests/support/CChildProcess.h"
#include "tests/support/CTemporaryFolder.h"
#include "tests/support/distinctBytes.h"
#include "tests/support/errorOf.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using norla::CS3FileDownload;
using norla::CS3FileUpload;
using norla::ErrorKind;
using norla::FileState;

constexpr size_t partSize = 5 << 20;

class S3FilesTest : public live::S3EndpointSession {
protected:
    S3FilesTest()
    {
        m_up.threshold = 0;
        m_up.partSize = partSize;
        m_up.atOnce = 2;
    }

    /// Bytes of which no two parts are the same.
    static std::string bytesOf(size_t size) { return support::distinctBytes(size); }

    norla::CNetRequest::Path path(const std::string& name) const
    {
        return norla::CNetRequest::Path::fromBytes((m_folder.path() / name).native());
    }

    kx::P<CS3FileDownload> download()
    {
        return kx::newObj<CS3FileDownload>(&client(), m_bucket, m_key, path("fetched"), m_down);
    }
    void fetch() { download()->run(); }
    std::string fetched() const { return m_folder.read("fetched"); }

    kx::P<CS3FileUpload> upload()
    {
        return kx::newObj<CS3FileUpload>(&client(), path("source"), m_bucket, m_key, m_up);
    }
    void storeFile(const std::string& bytes)
    {
        m_folder.write("source", bytes);
        upload()->run();
    }

    /// What the store has of the object.
    norla::CS3ObjectInfo info() { return norla::CS3Objects(&client(), &request()).head(m_bucket, m_key); }

    /// How often the store has seen a request with that in its path.
    static size_t countOf(const std::string& text)
    {
        const std::string log = store().log();
        size_t count = 0;
        for (size_t at = log.find(text); at != std::string::npos; at = log.find(text, at + 1))
            ++count;
        return count;
    }

    /// Sends the file by a program of its own. @return its exit status; nothing when it does not end
    std::optional<int> runUploader(const std::vector<std::string>& more)
    {
        support::CChildProcess::CSettings settings{
            .arguments = {NORLA_S3_FILE_UPLOADER, store().host(), m_bucket.toUTF8(), m_key.toUTF8(),
                m_folder.path() / "source", std::to_string(partSize)},
            .environment = support::inheritedLibraryPath()};
        settings.arguments.insert(settings.arguments.end(), more.begin(), more.end());
        settings.environment.insert(settings.environment.end(),
            {"AWS_ACCESS_KEY_ID=" + store().accessKeyId(), "AWS_SECRET_ACCESS_KEY=" + store().secretAccessKey()});
        support::CChildProcess program(settings);
        program.waitForEnd(std::chrono::seconds(60));
        return program.exitStatus();
    }

    size_t uploadCount()
    {
        size_t count = 0;
        norla::CS3UploadEnum uploads(&client(), &request(), m_bucket);
        while (uploads.next())
            ++count;
        return count;
    }

    const support::CTemporaryFolder m_folder;
    const kx::String m_key = kx::String::fromUTF8("a b/\xC3\xA4\x01+&");
    norla::CS3FileDownloadOptions m_down;
    norla::CS3FileUploadOptions m_up;
};

TEST_F(S3FilesTest, fetchesAnObjectByOneConnectionAndByFour)
{
    const std::string bytes = bytesOf(6 << 20);
    put(m_key, bytes);
    fetch();
    EXPECT_TRUE(fetched() == bytes);
    m_down.file.segments = 4;
    m_down.file.overwrite = true;
    m_down.file.speedLimit = 32 << 20; // or else the first one is done before the others have begun
    std::filesystem::remove(m_folder.path() / "fetched");
    fetch();
    EXPECT_TRUE(fetched() == bytes);
}

TEST_F(S3FilesTest, fetchesAnEmptyObject)
{
    put(m_key, "");
    fetch();
    EXPECT_EQ(fetched(), "");
}

TEST_F(S3FilesTest, fetchesWithASignatureOfVersion2)
{
    put(m_key, "content");
    const auto older = kx::newObj<CS3FileDownload>(&S3Session::client(), m_bucket, m_key, path("fetched"), m_down);
    older->run();
    EXPECT_EQ(fetched(), "content");
}

TEST_F(S3FilesTest, goesOnWithAnObjectWhereItWasCutOff)
{
    const std::string bytes = bytesOf(6 << 20);
    put(m_key, bytes);
    m_down.file.speedLimit = 4 << 20;
    kx::P<CS3FileDownload> first;
    m_down.file.onProgress = [&first](const norla::CFileProgress& progress) {
        if (progress.done > 2 << 20)
            first->cancel();
    };
    first = download();
    const auto error = support::errorOf([&first] { first->run(); });
    ASSERT_TRUE(error);
    EXPECT_EQ(norla::getErrorKind(*error), ErrorKind::Cancelled);
    long long least = -1;
    m_down.file.onProgress = [&least](const norla::CFileProgress& progress) {
        least = least < 0 ? progress.done : std::min(least, progress.done);
    };
    fetch();
    EXPECT_TRUE(fetched() == bytes);
    EXPECT_GT(least, 2 << 20);
}

TEST_F(S3FilesTest, fetchesAnewWhatHasChangedMeanwhile)
{
    put(m_key, bytesOf(6 << 20));
    m_down.file.speedLimit = 4 << 20;
    kx::P<CS3FileDownload> first;
    m_down.file.onProgress = [&first](const norla::CFileProgress& progress) {
        if (progress.done > 2 << 20)
            first->cancel();
    };
    first = download();
    EXPECT_TRUE(support::errorOf([&first] { first->run(); }));
    const std::string other = "other " + bytesOf((6 << 20) - 6);
    put(m_key, other);
    m_down.file.onProgress = {};
    m_down.file.speedLimit = 0;
    fetch();
    EXPECT_TRUE(fetched() == other);
}

TEST_F(S3FilesTest, saysThatThereIsNoObject)
{
    const auto error = support::errorOf([this] { fetch(); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getProps().get("s3-code"), "NoSuchKey");
    EXPECT_EQ(norla::getErrorKind(*error), ErrorKind::NotFound);
}

TEST_F(S3FilesTest, saysThatTheSecretIsWrong)
{
    put(m_key, "content");
    const auto stranger = clientOf(store().accessKeyId(), "wrong");
    const auto error = support::errorOf(
        [&] { kx::newObj<CS3FileDownload>(stranger.get(), m_bucket, m_key, path("fetched"), m_down)->run(); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getProps().get("s3-code"), "SignatureDoesNotMatch");
}

TEST_F(S3FilesTest, storesAFileByOnePUT)
{
    m_up.threshold = 1 << 20;
    m_up.object.contentType = "text/x-own";
    m_up.object.metadata = {{"author", kx::String::fromUTF8("Zo\xC3\xAB")}};
    storeFile("content");
    EXPECT_EQ(get(m_key), "content");
    EXPECT_EQ(info().contentType, "text/x-own");
    EXPECT_EQ(info().metadata.at("author"), kx::String::fromUTF8("Zo\xC3\xAB"));
}

TEST_F(S3FilesTest, storesAnEmptyFileInBothWays)
{
    storeFile("");
    EXPECT_EQ(info().size, 0);
    m_up.threshold = 1 << 20;
    m_up.overwrite = true;
    storeFile("");
    EXPECT_EQ(info().size, 0);
}

TEST_F(S3FilesTest, storesAFileOfOnePartExactly)
{
    const std::string bytes = bytesOf(partSize);
    storeFile(bytes);
    EXPECT_TRUE(get(m_key) == bytes);
    EXPECT_TRUE(info().eTag.endsWith("-1\""));
}

TEST_F(S3FilesTest, storesAndFetchesAFileOfSeveralParts)
{
    const std::string bytes = bytesOf(2 * partSize + 7);
    m_up.object.metadata = {{"a", "b"}};
    storeFile(bytes);
    EXPECT_TRUE(info().eTag.endsWith("-3\""));
    EXPECT_EQ(info().metadata.at("a"), "b");
    fetch();
    EXPECT_TRUE(fetched() == bytes);
    EXPECT_EQ(uploadCount(), 0U);
}

TEST_F(S3FilesTest, replacesNothingUnlessItMay)
{
    storeFile("older");
    const auto error = support::errorOf([this] { storeFile("newer"); });
    ASSERT_TRUE(error);
    EXPECT_TRUE(error->getMessage().endsWith(" already."));
    EXPECT_EQ(get(m_key), "older");
    m_up.overwrite = true;
    storeFile("newer");
    EXPECT_EQ(get(m_key), "newer");
}

TEST_F(S3FilesTest, goesOnWithAFileWhereAnotherWasCutOff)
{
    const std::string bytes = bytesOf(3 * partSize + 7);
    m_folder.write("source", bytes);
    m_up.atOnce = 1;
    kx::P<CS3FileUpload> first;
    m_up.onProgress = [&first](const norla::CFileProgress& progress) {
        if (progress.done >= 2 * static_cast<long long>(partSize))
            first->cancel();
    };
    first = upload();
    EXPECT_TRUE(support::errorOf([&first] { first->run(); }));
    EXPECT_EQ(first->getState(), FileState::Cancelled);
    const std::string id = first->getUploadId().toUTF8();
    ASSERT_NE(id, "");
    m_up.onProgress = {};
    upload()->run();
    EXPECT_TRUE(get(m_key) == bytes);
    store().waitUntilLogged("partNumber=4&uploadId=" + id);
    EXPECT_EQ(countOf("partNumber=1&uploadId=" + id), 1U);
    EXPECT_EQ(countOf("partNumber=2&uploadId=" + id), 1U);
    EXPECT_EQ(uploadCount(), 0U);
}

TEST_F(S3FilesTest, goesOnWithAFileWhoseProgramWasKilled)
{
    const std::string bytes = bytesOf(4 * partSize + 7);
    m_folder.write("source", bytes);
    EXPECT_EQ(runUploader({std::to_string(2 * partSize)}), 128 + SIGKILL);
    norla::CS3UploadEnum uploads(&client(), &request(), m_bucket);
    ASSERT_TRUE(uploads.next());
    const std::string id = uploads.getCurrent()->uploadId.toUTF8();
    EXPECT_EQ(runUploader({}), 0);
    EXPECT_TRUE(get(m_key) == bytes);
    store().waitUntilLogged("partNumber=5&uploadId=" + id);
    EXPECT_EQ(countOf("partNumber=1&uploadId=" + id), 1U);
    EXPECT_EQ(countOf("partNumber=2&uploadId=" + id), 1U);
    EXPECT_EQ(uploadCount(), 0U);
}

TEST_F(S3FilesTest, goesOnWithNoPartsOfAnotherFile)
{
    m_folder.write("source", bytesOf(2 * partSize));
    kx::P<CS3FileUpload> first;
    m_up.onProgress = [&first](const norla::CFileProgress& progress) {
        if (progress.done >= static_cast<long long>(partSize))
            first->cancel();
    };
    first = upload();
    EXPECT_TRUE(support::errorOf([&first] { first->run(); }));
    m_up.onProgress = {};
    const std::string other = "other " + bytesOf(2 * partSize - 6);
    storeFile(other);
    EXPECT_TRUE(get(m_key) == other);
    EXPECT_EQ(uploadCount(), 1U);
}

TEST_F(S3FilesTest, leavesNothingWhereItIsNotToStay)
{
    m_folder.write("source", bytesOf(2 * partSize));
    m_up.keepPart = false;
    kx::P<CS3FileUpload> first;
    m_up.onProgress = [&first](const norla::CFileProgress&) { first->cancel(); };
    first = upload();
    EXPECT_TRUE(support::errorOf([&first] { first->run(); }));
    EXPECT_EQ(uploadCount(), 0U);
    EXPECT_EQ(first->getUploadId(), "");
}

TEST_F(S3FilesTest, goesOnWithAFileBehindAPause)
{
    const std::string bytes = bytesOf(3 * partSize + 7);
    m_folder.write("source", bytes);
    m_up.atOnce = 1;
    bool isPaused = false;
    kx::P<CS3FileUpload> file;
    m_up.onProgress = [&](const norla::CFileProgress& progress) {
        if (progress.done >= static_cast<long long>(partSize) && !std::exchange(isPaused, true))
            file->pause();
    };
    file = upload();
    std::thread other([&file] {
        while (file->getState() != FileState::Paused && file->getState() != FileState::Failed)
            std::this_thread::yield();
        file->resume();
    });
    file->run();
    other.join();
    EXPECT_TRUE(isPaused);
    EXPECT_TRUE(get(m_key) == bytes);
}

} // namespace
