#include "norla/files/CS3FileDownload.h"

#include "kx/base/CInvalidArgError.h"
#include "kx/time/CTime.h"
#include "kx/time/CTimeFields.h"
#include "norla/core/errorKind.h"
#include "norla/s3/CS3Error.h"
#include "tests/norla/files/CS3FileFixture.h"

#include <gmock/gmock.h>

#include <fstream>

namespace {

using norla::CS3FileDownload;
using norla::ErrorKind;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

class CS3FileDownloadTest : public CS3FileFixture {
protected:
    CS3FileDownloadTest() { m_options.file = options(); }

    kx::P<CS3FileDownload> download(const kx::String& name = "dir/file")
    {
        return kx::newObj<CS3FileDownload>(&client(), "bucket", name, target(), m_options);
    }

    kx::P<kx::CError> failure() { return failureOf(*download()); }

    static std::string tag(const std::string& eTag) { return "ETag: " + eTag + "\r\n"; }

    static std::string codeOf(const kx::P<kx::CError>& error)
    {
        return error ? error->getProps().get("s3-code").toUTF8() : "no error";
    }

    norla::CS3FileDownloadOptions m_options;
    const std::string m_bytes = bytesOf(100'000);
};

TEST_F(CS3FileDownloadTest, fetchesAnObjectByASignedRequest)
{
    answer(whole(m_bytes, std::string::npos, tag(tagOf(m_bytes))));
    const auto file = download();
    file->run();
    EXPECT_EQ(this->file(), m_bytes);
    EXPECT_THAT(names(), ElementsAre("file"));
    EXPECT_EQ(file->getState(), norla::FileState::Succeeded);
    EXPECT_THAT(received(0), StartsWith("GET /bucket/dir%2Ffile HTTP/1.1\r\n"));
    EXPECT_THAT(received(0), HasSubstr("\r\nAuthorization: AWS4-HMAC-SHA256 Credential=AKID"));
    EXPECT_THAT(received(0), HasSubstr("\r\nx-amz-checksum-mode: ENABLED\r\n"));
}

TEST_F(CS3FileDownloadTest, fetchesAnEmptyObject)
{
    answer(whole("", std::string::npos, tag(tagOf(""))));
    download()->run();
    EXPECT_EQ(file(), "");
    EXPECT_THAT(names(), ElementsAre("file"));
}

TEST_F(CS3FileDownloadTest, takesAnAnswerThatBreaksOffInItsHeaderForNoObject)
{
    m_options.file.retries = norla::CRetryPolicy::none();
    answer("HTTP/1.1 200 OK\r\nDate: Sun, 22 Nov");
    EXPECT_THAT(failure()->getMessage().toUTF8(), HasSubstr("closed within the header of the answer"));
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(CS3FileDownloadTest, triesAgainWhatBreaksOffInItsHeader)
{
    answer("HTTP/1.1 200 OK\r\n");
    answer(whole(m_bytes));
    download()->run();
    EXPECT_EQ(file(), m_bytes);
}

TEST_F(CS3FileDownloadTest, signsInVersion2)
{
    answer(whole(m_bytes));
    const auto older = clientOf(norla::CS3Endpoint::Signature::V2);
    kx::newObj<CS3FileDownload>(older.get(), "bucket", "file", target(), m_options)->run();
    EXPECT_EQ(file(), m_bytes);
    EXPECT_THAT(received(0), HasSubstr("\r\nAuthorization: AWS AKID"));
}

TEST_F(CS3FileDownloadTest, asksForTheVersion)
{
    m_options.versionId = "v/1";
    answer(whole(m_bytes));
    download()->run();
    EXPECT_EQ(requestLine(0), "GET /bucket/dir%2Ffile?versionId=v%2F1 HTTP/1.1");
}

TEST_F(CS3FileDownloadTest, signsEachAttemptAndGoesOnWithTheSameObject)
{
    const std::string eTag = tag(tagOf(m_bytes));
    answer(whole(m_bytes, 50'000, eTag));
    answer(rest(m_bytes, 0, eTag));
    download()->run();
    EXPECT_EQ(file(), m_bytes);
    EXPECT_THAT(received(0), HasSubstr("Credential=AKID2/")); // the first one has named the resource
    EXPECT_THAT(received(1), HasSubstr("Credential=AKID3/"));
    EXPECT_THAT(received(1), HasSubstr("\r\nIf-Range: " + tagOf(m_bytes) + "\r\n"));
    EXPECT_THAT(received(1), HasSubstr("\r\nRange: bytes=0-\r\n"));
}

TEST_F(CS3FileDownloadTest, goesOnWhereAnotherProgramWasEnded)
{
    const std::string eTag = tag(tagOf(m_bytes));
    m_options.file.retries = norla::CRetryPolicy::none();
    answer(whole(m_bytes, 90'000, eTag));
    EXPECT_TRUE(failure());
    EXPECT_THAT(names(), ElementsAre("file.norla-part", "file.norla-record"));
    answer(rest(m_bytes, 90'000 - (64 << 10), eTag));
    download()->run();
    EXPECT_EQ(file(), m_bytes);
    EXPECT_THAT(received(1), HasSubstr("\r\nRange: bytes=24464-\r\n"));
}

TEST_F(CS3FileDownloadTest, goesOnWithNoPartOfAnotherVersion)
{
    m_options.file.retries = norla::CRetryPolicy::none();
    answer(whole(m_bytes, 90'000));
    EXPECT_TRUE(failure());
    m_options.versionId = "v1";
    answer(whole(m_bytes));
    download()->run();
    EXPECT_THAT(received(1), Not(HasSubstr("\r\nRange: ")));
}

TEST_F(CS3FileDownloadTest, fetchesAnewWhatHasAnotherETagNow)
{
    const std::string other = bytesOf(100'001);
    answer(whole(m_bytes, 50'000, tag(tagOf(m_bytes)) + "x-amz-checksum-crc32c: AAAAAA==\r\n"));
    answer(rest(other, 0, tag(tagOf(other)))); // a store that knows no If-Range
    answer(whole(other, std::string::npos, tag(tagOf(other))));
    download()->run();
    EXPECT_EQ(file(), other);
}

TEST_F(CS3FileDownloadTest, refusesBytesOfAnotherETag)
{
    answer(whole(m_bytes, std::string::npos, tag(tagOf("other"))));
    const auto error = failure();
    ASSERT_TRUE(error);
    EXPECT_EQ(std::string(error->what()),
        "The bytes of the object 'dir/file' in the bucket 'bucket' are not those that the store speaks of: their MD5 "
        "is '"
            + md5Of(m_bytes) + "' and not '" + md5Of("other") + "'.");
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(CS3FileDownloadTest, refusesBytesOfAnotherChecksum)
{
    answer(whole(m_bytes, std::string::npos,
        tag("\"v1-2\"") + "x-amz-checksum-crc32c: AAAAAA==\r\n")); // of as many bytes nobody has such
    const auto error = failure();
    ASSERT_TRUE(error);
    EXPECT_THAT(error->what(), HasSubstr("their CRC-32C is '"));
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(CS3FileDownloadTest, believesTagsThatSpeakOfNoBytes)
{
    for (const std::string& headers :
        {tag("\"" + md5Of("other") + "-2\""), tag(tagOf("other")) + "x-amz-server-side-encryption: aws:kms\r\n"}) {
        m_options.file.overwrite = true;
        answer(whole(m_bytes, std::string::npos, headers));
        download()->run();
    }
    EXPECT_EQ(file(), m_bytes);
}

TEST_F(CS3FileDownloadTest, comparesNothingWhereItIsToldNotTo)
{
    m_options.verify = false;
    answer(whole(m_bytes, std::string::npos, tag(tagOf("other"))));
    download()->run();
    EXPECT_EQ(file(), m_bytes);
    EXPECT_THAT(received(0), Not(HasSubstr("x-amz-checksum-mode")));
}

TEST_F(CS3FileDownloadTest, takesNoChecksumOfARangeForTheObjects)
{
    const std::string eTag = tag("\"v1\"");
    answer(whole(m_bytes, 50'000, eTag));
    answer(rest(m_bytes, 0, eTag + "x-amz-checksum-crc32c: AAAAAA==\r\n"));
    download()->run();
    EXPECT_EQ(file(), m_bytes);
}

TEST_F(CS3FileDownloadTest, comparesAlsoWhatHadAllComeBefore)
{
    const std::string eTag = tag(tagOf(m_bytes));
    m_options.file.onProgress = [this](const norla::CFileProgress&) { folder().write("file", "of somebody else"); };
    answer(whole(m_bytes, std::string::npos, eTag));
    ASSERT_TRUE(failure());
    EXPECT_THAT(names(), ElementsAre("file", "file.norla-part", "file.norla-record"));
    std::filesystem::remove(folder().path() / "file");
    std::fstream(folder().path() / "file.norla-part", std::ios::in | std::ios::out).write("!", 1);
    m_options.file.onProgress = {};
    answer(rest(m_bytes, m_bytes.size() - 1 - 65'536, eTag));
    const auto error = failure();
    ASSERT_TRUE(error);
    EXPECT_THAT(error->what(), HasSubstr("' and not '" + md5Of(m_bytes) + "'."));
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(CS3FileDownloadTest, triesAgainWhatTheStoreCallsTransient)
{
    answer(errorOf(503, "SlowDown"));
    answer(errorOf(409, "OperationAborted"));
    answer(whole(m_bytes));
    download()->run();
    EXPECT_EQ(file(), m_bytes);
}

TEST_F(CS3FileDownloadTest, saysWhatTheStoreSays)
{
    answer(errorOf(403, "AccessDenied"));
    const auto error = failure();
    EXPECT_EQ(codeOf(error), "AccessDenied");
    EXPECT_EQ(norla::getErrorKind(*error), ErrorKind::Denied);
    EXPECT_EQ(error->getCode(), 403);
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(CS3FileDownloadTest, saysWhatAStatusMeansThatNobodyExplains)
{
    answer(answerOf(404, ""));
    EXPECT_EQ(codeOf(failure()), "NoSuchKey");
}

TEST_F(CS3FileDownloadTest, losesNothingByARefusal)
{
    const std::string eTag = tag(tagOf(m_bytes));
    answer(whole(m_bytes, 90'000, eTag));
    answer(errorOf(403, "ExpiredToken"));
    EXPECT_EQ(codeOf(failure()), "ExpiredToken");
    answer(rest(m_bytes, 90'000 - (64 << 10), eTag));
    download()->run();
    EXPECT_EQ(file(), m_bytes);
}

TEST_F(CS3FileDownloadTest, refusesAnotherRangeThanTheOneThatIsMissing)
{
    const std::string eTag = tag(tagOf(m_bytes));
    answer(whole(m_bytes, 90'000, eTag));
    answer(rest(m_bytes, 95'000, eTag));
    const auto error = failure();
    ASSERT_TRUE(error);
    EXPECT_THAT(error->what(), HasSubstr("gave something else"));
}

TEST_F(CS3FileDownloadTest, beginsAnewWhereTheRangeIsBehindTheEnd)
{
    const std::string shorter = bytesOf(10);
    answer(whole(m_bytes, 90'000));
    answer(errorOf(416, "InvalidRange"));
    answer(whole(shorter, std::string::npos, tag(tagOf(shorter))));
    download()->run();
    EXPECT_EQ(file(), shorter);
}

TEST_F(CS3FileDownloadTest, signsByTheStoresClock)
{
    m_options.file.retries = norla::CRetryPolicy::none();
    const kx::CTime later(kx::CTime::now().getMicroseconds() + 2 * 3'600'000'000LL);
    const kx::CTimeFields fields(later, kx::CTimeFields::TypeUTC);
    answer(errorOf(403, "RequestTimeTooSkewed", "Date: " + fields.toInternetTimestamp().toUTF8() + "\r\n"));
    answer(whole(m_bytes));
    download()->run();
    EXPECT_EQ(file(), m_bytes);
    const std::string hour = fields.toInternetTimestamp().toUTF8().substr(17, 2);
    const std::string sent = received(1);
    EXPECT_EQ(sent.substr(sent.find("\r\nx-amz-date: ") + 23, 2), hour);
}

TEST_F(CS3FileDownloadTest, followsNoClockForEver)
{
    m_options.file.retries = norla::CRetryPolicy::none();
    for (const int hours : {2, 4}) {
        const kx::CTime later(kx::CTime::now().getMicroseconds() + hours * 3'600'000'000LL);
        answer(errorOf(403, "RequestTimeTooSkewed",
            "Date: " + kx::CTimeFields(later, kx::CTimeFields::TypeUTC).toInternetTimestamp().toUTF8() + "\r\n"));
    }
    EXPECT_EQ(codeOf(failure()), "RequestTimeTooSkewed");
    EXPECT_EQ(server().connectionCount(), 2U);
}

TEST_F(CS3FileDownloadTest, signsForTheBucketsRegion)
{
    m_options.file.retries = norla::CRetryPolicy::none();
    answer(errorOf(400, "AuthorizationHeaderMalformed", "x-amz-bucket-region: eu-west-3\r\n"));
    answer(whole(m_bytes));
    download()->run();
    EXPECT_THAT(received(1), HasSubstr("/eu-west-3/s3/aws4_request"));
}

TEST_F(CS3FileDownloadTest, isCancelledAndKeepsWhatHasCome)
{
    const std::string eTag = tag(tagOf(m_bytes));
    server().onConnection().readHead().send(whole(m_bytes, 90'000, eTag)).readToEnd();
    const auto file = download();
    std::thread canceller([&file] {
        while (file->getProgress().done < 90'000)
            std::this_thread::yield();
        file->cancel();
    });
    const auto error = failureOf(*file);
    canceller.join();
    ASSERT_TRUE(error);
    EXPECT_EQ(norla::getErrorKind(*error), ErrorKind::Cancelled);
    answer(rest(m_bytes, 90'000 - (64 << 10), eTag));
    download()->run();
    EXPECT_EQ(this->file(), m_bytes);
}

TEST_F(CS3FileDownloadTest, goesOnBehindAPause)
{
    const std::string eTag = tag(tagOf(m_bytes));
    server().onConnection().readHead().send(whole(m_bytes, 90'000, eTag)).readToEnd();
    answer(rest(m_bytes, 90'000 - (64 << 10), eTag));
    const auto file = download();
    std::thread other = pauseAndResume(*file, 90'000);
    file->run();
    other.join();
    EXPECT_EQ(this->file(), m_bytes);
}

TEST_F(CS3FileDownloadTest, refusesAClientThatAnotherFileUses)
{
    kx::P<kx::CError> error;
    m_options.file.onProgress = [&](const norla::CFileProgress&) {
        const auto other = norla::CFileDownload::Path::fromBytes((folder().path() / "other").native());
        error = failureOf(*kx::newObj<CS3FileDownload>(&client(), "bucket", "other", other));
    };
    answer(whole(m_bytes));
    download()->run();
    ASSERT_TRUE(error);
    EXPECT_THAT(error->what(), StartsWith("Another file that runs uses this client: "));
    m_options.file.onProgress = {};
    m_options.file.overwrite = true;
    answer(whole(m_bytes));
    download()->run();
    EXPECT_EQ(server().connectionCount(), 2U);
}

TEST_F(CS3FileDownloadTest, refusesWhatMakesNoSense)
{
    const auto make = [this](norla::CS3Client* store, const kx::String& bucket, const kx::String& name) {
        kx::newObj<CS3FileDownload>(store, bucket, name, target(), m_options);
    };
    EXPECT_THROW(make(nullptr, "b", "k"), kx::CInvalidArgError);
    EXPECT_THROW(make(&client(), "", "k"), kx::CInvalidArgError);
    EXPECT_THROW(make(&client(), "b", ""), kx::CInvalidArgError);
    m_options.customerKey = "short";
    EXPECT_THROW(make(&client(), "b", "k"), kx::CInvalidArgError);
    m_options.customerKey = {};
    m_options.file.segments = 0;
    EXPECT_THROW(make(&client(), "b", "k"), kx::CInvalidArgError);
}

TEST_F(CS3FileDownloadTest, sendsNoKeyInClear)
{
    m_options.customerKey = std::string(32, 'k');
    EXPECT_TRUE(dynamic_cast<const kx::CInvalidArgError*>(failure().get()));
    EXPECT_EQ(server().connectionCount(), 0U);
}

} // namespace
