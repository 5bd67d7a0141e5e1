// What is on the disk, and in which order, when the power fails or the disk does. A program of its own, with functions
// of the C library's of its own.
#include "tests/norla/files/CDiskCalls.h"
#include "tests/norla/files/CFileDownloadFixture.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <future>
#include <thread>

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

class FileSyncTest : public CFileDownloadFixture {
protected:
    /// Ends with a failure, and what has come.
    void cutOff()
    {
        options().retries = norla::CRetryPolicy::none();
        answer(whole(m_bytes, 100'000));
        EXPECT_TRUE(failure());
    }

    static int fail() { return EIO; }

    CDiskCalls& calls() { return m_calls; }

    const std::string m_bytes = bytesOf(200'000);

private:
    CDiskCalls m_calls;
};

TEST_F(FileSyncTest, theRecordComesBehindTheBytesOfWhichItTells)
{
    cutOff();
    EXPECT_THAT(calls().takeCalls(),
        ElementsAre("fdatasync file.norla-part", "fdatasync file.norla-record.new",
            "renameat file.norla-record.new file.norla-record"));
}

TEST_F(FileSyncTest, theRecordTellsOfNoBytesThatCameWhileTheOthersWereWritten)
{
    std::promise<void> syncing;
    server()
        .onConnection()
        .readHead()
        .send(whole(m_bytes, 50'000))
        .waitFor(syncing.get_future().share())
        .send(m_bytes.substr(50'000, 50'000))
        .readToEnd();
    calls().onNext("fdatasync file.norla-part", [&] {
        syncing.set_value();
        while (fs::file_size(folder().path() / "file.norla-part") < 100'000)
            std::this_thread::yield();
        return 0;
    });
    norla::CFileDownload* running = nullptr;
    std::string record;
    options().onProgress = [&](const norla::CFileProgress&) {
        if (!record.empty() || !fs::exists(folder().path() / "file.norla-record"))
            return;
        record = folder().read("file.norla-record");
        running->cancel();
    };
    const auto file = download();
    running = file.get();
    EXPECT_TRUE(failureOf(*file));
    EXPECT_THAT(record, HasSubstr("\nbytes 0-50000\n"));
}

TEST_F(FileSyncTest, theNameComesBehindTheBytesAndAheadOfItsFolder)
{
    cutOff();
    calls().takeCalls();
    answer(rest(m_bytes, 34'464));
    download()->run();
    EXPECT_THAT(calls().takeCalls(),
        ElementsAre(
            "fsync file.norla-part", "renameat2 file.norla-part file", "fsync folder", "unlinkat file.norla-record"));
}

TEST_F(FileSyncTest, noByteIsThrownAwayBeforeTheRecordIsGoneForGood)
{
    cutOff();
    std::error_code unnamed; // then the size is none
    std::uintmax_t size = 0;
    calls().onNext("fsync folder", [&] {
        size = fs::file_size(folder().path() / "file.norla-part", unnamed);
        return 0;
    });
    options().resume = false;
    answer(whole(m_bytes));
    download()->run();
    EXPECT_EQ(size, 100'000u);
}

TEST_F(FileSyncTest, noRecordTellsOfBytesThatTheDiskHasRefused)
{
    calls().onNext("fdatasync file.norla-part", fail);
    cutOff();
    EXPECT_THAT(names(), ElementsAre("file.norla-part"));
    answer(whole(m_bytes));
    download()->run();
    EXPECT_THAT(received(1), Not(HasSubstr("Range")));
    EXPECT_EQ(file(), m_bytes);
}

TEST_F(FileSyncTest, bytesThatTheDiskHasRefusedOnceAreNeverClaimed)
{
    server().onConnection().readHead().send(whole(m_bytes, 100'000)).readToEnd();
    calls().onNext("fdatasync file.norla-part", fail); // the next one succeeds: the system tells once
    norla::CFileDownload* running = nullptr;
    options().onProgress = [&](const norla::CFileProgress& progress) {
        if (progress.done == 100'000)
            running->pause();
    };
    calls().onNext("renameat file.norla-record.new file.norla-record", [&running] {
        running->cancel(); // or else it would pause for ever
        return 0;
    });
    const auto file = download();
    running = file.get();
    const auto error = failureOf(*file);
    ASSERT_TRUE(error);
    EXPECT_THAT(error->what(), HasSubstr("Input/output error"));
    EXPECT_THAT(names(), ElementsAre("file.norla-part"));
}

TEST_F(FileSyncTest, anOlderRecordTellsOfItsOwnBytesAlone)
{
    cutOff();
    const std::string record = folder().read("file.norla-record");
    const std::string all = rest(m_bytes, 34'464);
    answer(all.substr(0, all.size() - 10'000));
    calls().onNext("fdatasync file.norla-part", fail);
    EXPECT_TRUE(failure());
    EXPECT_EQ(folder().read("file.norla-record"), record);
}

TEST_F(FileSyncTest, bytesThatTheDiskHasRefusedBecomeNoFile)
{
    answer(whole(m_bytes));
    calls().onNext("fsync file.norla-part", fail);
    const auto error = failure();
    ASSERT_TRUE(error);
    EXPECT_EQ(std::string(error->what()),
        "The file '" + (folder().path() / "file").native() + "' cannot be written: Input/output error.");
    EXPECT_THAT(names(), ElementsAre("file.norla-part"));
}

TEST_F(FileSyncTest, aNameThatMayBeLostIsAnError)
{
    answer(whole(m_bytes));
    calls().onNext("fsync folder", fail);
    const auto error = failure();
    ASSERT_TRUE(error);
    EXPECT_THAT(error->what(), HasSubstr("Input/output error"));
}

} // namespace
