// What a download makes of what an earlier attempt, or an earlier download, has left.
#include "kx/text/hex.h"
#include "norla/core/errorKind.h"
#include "sela/CDigest.h"
#include "tests/norla/files/CFileDownloadFixture.h"

#include <gmock/gmock.h>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

class CFileDownloadResumeTest : public CFileDownloadFixture {
protected:
    /// Leaves a part of so many bytes.
    void leavePart(const std::string& bytes, size_t size, const std::string& path = "/file")
    {
        answer(whole(bytes, size));
        const norla::CRetryPolicy policy = options().retries;
        options().retries = norla::CRetryPolicy::none();
        EXPECT_TRUE(failure(path));
        options().retries = policy;
        EXPECT_THAT(names(), ElementsAre("file.norla-part", "file.norla-record"));
    }

    static kx::String sha256Of(const std::string& bytes)
    {
        sela::CDigest digest("SHA256");
        digest.update(bytes.data(), bytes.size());
        digest.finish();
        return kx::hexEncode({reinterpret_cast<const char*>(digest.getBytes()), digest.getLength()});
    }

    const std::string m_bytes = bytesOf(200'000);
};

TEST_F(CFileDownloadResumeTest, asksForTheRestAndForTheBytesBeforeIt)
{
    answer(whole(m_bytes, 100'000));
    answer(rest(m_bytes, 100'000 - 65'536));
    download()->run();
    EXPECT_EQ(file(), m_bytes);
    EXPECT_THAT(received(1), HasSubstr("Range: bytes=34464-\r\n"));
    EXPECT_THAT(received(1), HasSubstr("If-Range: \"v1\"\r\n"));
}

TEST_F(CFileDownloadResumeTest, asksWithATimeWhereThatIsTheProof)
{
    const std::string times = "Last-Modified: Sun, 06 Nov 1994 08:49:37 GMT\r\nDate: Sun, 06 Nov 1994 08:51:00 GMT\r\n";
    answer(whole(m_bytes, 100'000, times));
    answer(rest(m_bytes, 100'000 - 65'536, times));
    download()->run();
    EXPECT_EQ(file(), m_bytes);
    EXPECT_THAT(received(1), HasSubstr("Range: bytes=34464-\r\n"));
    EXPECT_THAT(received(1), HasSubstr("If-Range: Sun, 06 Nov 1994 08:49:37 GMT\r\n"));
}

TEST_F(CFileDownloadResumeTest, goesOnWhereAnotherOneHasEnded)
{
    leavePart(m_bytes, 100'000);
    answer(rest(m_bytes, 100'000 - 65'536));
    download()->run();
    EXPECT_EQ(file(), m_bytes);
    EXPECT_THAT(names(), ElementsAre("file"));
    EXPECT_THAT(received(1), HasSubstr("Range: bytes=34464-\r\n"));
}

TEST_F(CFileDownloadResumeTest, allBytesOfWhatBeginsAnewHaveMoved)
{
    const std::string other = bytesOf(50'000);
    leavePart(m_bytes, 100'000);
    answer(whole(other, 10, "ETag: \"v2\"\r\n")); // If-Range has found another file
    answer(whole(other, std::string::npos, "ETag: \"v2\"\r\n"));
    const auto anew = download();
    anew->run();
    EXPECT_EQ(anew->getProgress().moved, 50'000);
}

TEST_F(CFileDownloadResumeTest, digestsAreOfAllBytesTheOlderOnesToo)
{
    options().sha256 = sha256Of(m_bytes);
    leavePart(m_bytes, 100'000);
    answer(rest(m_bytes, 100'000 - 65'536));
    download()->run();
    EXPECT_EQ(file(), m_bytes);
}

TEST_F(CFileDownloadResumeTest, digestsKnowNothingOfBytesThatWereThrownAway)
{
    const std::string other = bytesOf(300'000).substr(100'000);
    options().sha256 = sha256Of(other);
    answer(whole(m_bytes, 100'000));
    answer(whole(other, 10, "ETag: \"v2\"\r\n")); // If-Range has found another file
    answer(whole(other, std::string::npos, "ETag: \"v2\"\r\n"));
    download()->run();
    EXPECT_EQ(file(), other);
}

TEST_F(CFileDownloadResumeTest, asManyAttemptsAsBringSomethingAreMade)
{
    options().retries.attempts = 2;
    for (size_t size = 70'000; size < 200'000; size += 10'000) {
        const size_t start = size == 70'000 ? 0 : size - 10'000 - 65'536;
        const std::string all = start == 0 ? whole(m_bytes) : rest(m_bytes, start);
        answer(all.substr(0, all.find("\r\n\r\n") + 4 + size - start));
    }
    answer(rest(m_bytes, 190'000 - 65'536));
    download()->run();
    EXPECT_EQ(file(), m_bytes);
}

TEST_F(CFileDownloadResumeTest, attemptsThatBringNothingAreCounted)
{
    options().retries.attempts = 2;
    answer(whole(m_bytes, 100'000));
    answer("HTTP/1.1 503 Service Unavailable\r\nConnection: close\r\nContent-Length: 0\r\n\r\n");
    answer("HTTP/1.1 503 Service Unavailable\r\nConnection: close\r\nContent-Length: 0\r\n\r\n");
    const auto error = failure();
    ASSERT_TRUE(error);
    EXPECT_EQ(norla::getErrorKind(*error), norla::ErrorKind::Temporary);
    EXPECT_THAT(names(), ElementsAre("file.norla-part", "file.norla-record"));
}

TEST_F(CFileDownloadResumeTest, withoutAProofItStartsAnew)
{
    answer(whole(m_bytes, 100'000, "ETag: W/\"v1\"\r\n"));
    answer(whole(m_bytes, std::string::npos, "ETag: W/\"v1\"\r\n"));
    download()->run();
    EXPECT_EQ(file(), m_bytes);
    EXPECT_THAT(received(1), Not(HasSubstr("Range")));
}

TEST_F(CFileDownloadResumeTest, withoutAProofNothingStays)
{
    options().retries = norla::CRetryPolicy::none();
    answer(whole(m_bytes, 100'000, ""));
    EXPECT_TRUE(failure());
    EXPECT_TRUE(names().empty());
}

TEST_F(CFileDownloadResumeTest, nothingStaysWhereItIsNotWanted)
{
    options().retries = norla::CRetryPolicy::none();
    options().keepPart = false;
    answer(whole(m_bytes, 100'000));
    EXPECT_TRUE(failure());
    EXPECT_TRUE(names().empty());
}

TEST_F(CFileDownloadResumeTest, theWholeOfAnotherFileIsFetchedAnew)
{
    const std::string other(150'000, 'x');
    leavePart(m_bytes, 100'000);
    answer(whole(other, 10, "ETag: \"v2\"\r\n")); // behind the question for the rest
    answer(whole(other, std::string::npos, "ETag: \"v2\"\r\n"));
    download()->run();
    EXPECT_EQ(file(), other);
    EXPECT_THAT(received(2), Not(HasSubstr("Range")));
}

TEST_F(CFileDownloadResumeTest, aPartOfAnotherFileIsNotTaken)
{
    const std::string other(200'000, 'x');
    leavePart(m_bytes, 100'000);
    answer(rest(other, 34'464, "ETag: \"v2\"\r\n"));
    answer(whole(other, std::string::npos, "ETag: \"v2\"\r\n"));
    download()->run();
    EXPECT_EQ(file(), other);
}

TEST_F(CFileDownloadResumeTest, aServerThatCallsOtherBytesTheSameIsNotBelieved)
{
    const std::string other(200'000, 'x');
    leavePart(m_bytes, 100'000);
    answer(rest(other, 34'464));
    answer(whole(other));
    download()->run();
    EXPECT_EQ(file(), other);
}

TEST_F(CFileDownloadResumeTest, aPageInThePlaceOfTheRestIsAnErrorThatLosesNothing)
{
    leavePart(m_bytes, 100'000);
    answer(whole("<html>Log in!</html>", std::string::npos, "Content-Type: text/html\r\n"));
    const auto error = failure();
    ASSERT_TRUE(error);
    EXPECT_STREQ(error->what(), "The server was asked for the bytes 34464- and gave something else: status 200.");
    EXPECT_EQ(folder().read("file.norla-part").substr(0, 100'000), m_bytes.substr(0, 100'000));
    answer(rest(m_bytes, 34'464));
    download()->run();
    EXPECT_EQ(file(), m_bytes);
}

TEST_F(CFileDownloadResumeTest, anotherRangeIsAnErrorThatLosesNothing)
{
    leavePart(m_bytes, 100'000);
    answer(rest(m_bytes, 34'465));
    EXPECT_TRUE(failure());
    EXPECT_EQ(folder().read("file.norla-part").substr(0, 100'000), m_bytes.substr(0, 100'000));
    EXPECT_THAT(names(), ElementsAre("file.norla-part", "file.norla-record"));
}

TEST_F(CFileDownloadResumeTest, aFileThatHasBecomeShorterIsFetchedAnew)
{
    const std::string shorter = m_bytes.substr(0, 10);
    leavePart(m_bytes, 100'000);
    answer("HTTP/1.1 416 Range Not Satisfiable\r\nConnection: close\r\nContent-Range: bytes */10\r\n"
           "Content-Length: 0\r\n\r\n");
    answer(whole(shorter));
    download()->run();
    EXPECT_EQ(file(), shorter);
}

TEST_F(CFileDownloadResumeTest, aFileThatChangesAgainAndAgainIsAnError)
{
    options().retries.attempts = 100;
    for (int i = 0; i < 4; ++i) {
        answer(whole(m_bytes, 100'000, "ETag: \"a" + std::to_string(i) + "\"\r\n"));
        answer(whole(m_bytes, 10, "ETag: \"b" + std::to_string(i) + "\"\r\n"));
    }
    const auto error = failure();
    ASSERT_TRUE(error);
    EXPECT_EQ(std::string(error->what()),
        "The file '" + (folder().path() / "file").native()
            + "' has changed at the server again and again while it was fetched, or the server gives no parts of it.");
}

TEST_F(CFileDownloadResumeTest, thePartOfAnotherURLIsNotTaken)
{
    leavePart(m_bytes, 100'000, "/file?id=1");
    answer(whole(m_bytes));
    EXPECT_FALSE(failure("/file?id=2"));
    EXPECT_THAT(received(1), Not(HasSubstr("Range")));
}

TEST_F(CFileDownloadResumeTest, thePartOfTheSameNameIsTakenWhereURLsDiffer)
{
    options().identity = "the same";
    leavePart(m_bytes, 100'000, "/file?signature=1");
    answer(rest(m_bytes, 34'464));
    EXPECT_FALSE(failure("/file?signature=2"));
    EXPECT_EQ(file(), m_bytes);
}

TEST_F(CFileDownloadResumeTest, theRecordTellsNoSecret)
{
    leavePart(m_bytes, 100'000, "/file?token=hidden");
    const std::string record = folder().read("file.norla-record");
    EXPECT_THAT(record, HasSubstr("place http://127.0.0.1:"));
    EXPECT_THAT(record, Not(HasSubstr("hidden")));
}

TEST_F(CFileDownloadResumeTest, aDamagedRecordIsNone)
{
    leavePart(m_bytes, 100'000);
    folder().write("file.norla-record", folder().read("file.norla-record") + "x");
    answer(whole(m_bytes));
    download()->run();
    EXPECT_EQ(file(), m_bytes);
}

TEST_F(CFileDownloadResumeTest, aPartThatIsShorterThanItsRecordSaysIsNone)
{
    leavePart(m_bytes, 100'000);
    std::filesystem::resize_file(folder().path() / "file.norla-part", 99'999);
    answer(whole(m_bytes));
    download()->run();
    EXPECT_EQ(file(), m_bytes);
}

TEST_F(CFileDownloadResumeTest, aPartIsThrownAwayWhereItIsNotWanted)
{
    leavePart(m_bytes, 100'000);
    options().resume = false;
    answer(whole(m_bytes));
    download()->run();
    EXPECT_THAT(received(1), Not(HasSubstr("Range")));
    EXPECT_EQ(file(), m_bytes);
}

TEST_F(CFileDownloadResumeTest, aPartStaysWhereTheNextOneCannotBegin)
{
    leavePart(m_bytes, 100'000);
    const auto file = kx::newObj<norla::CFileDownload>(
        [](norla::CNetRequest&) { throw kx::CError("no login"); }, target(), options());
    EXPECT_TRUE(failureOf(*file));
    EXPECT_THAT(names(), ElementsAre("file.norla-part", "file.norla-record"));
}

TEST_F(CFileDownloadResumeTest, bytesBehindTheAnnouncedEndAreNoPartOfTheFile)
{
    leavePart(m_bytes, 100'000);
    answer(rest(m_bytes, 34'464) + "more of it");
    download()->run();
    EXPECT_EQ(file(), m_bytes);
}

TEST_F(CFileDownloadResumeTest, aDigestIsOfAllOfIt)
{
    options().md5 = "00000000000000000000000000000000";
    leavePart(m_bytes, 100'000);
    answer(rest(m_bytes, 34'464));
    const auto error = failure();
    ASSERT_TRUE(error);
    EXPECT_THAT(error->what(), HasSubstr("its MD5 is "));
    EXPECT_TRUE(names().empty());
}

} // namespace
