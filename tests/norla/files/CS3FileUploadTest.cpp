#include "norla/files/CS3FileUpload.h"

#include "kx/base/CInvalidArgError.h"
#include "norla/core/errorKind.h"
#include "tests/norla/files/CS3FileFixture.h"

#include <gmock/gmock.h>

#include <fstream>
#include <functional>
#include <future>
#include <utility>

namespace {

using norla::CS3FileUpload;
using norla::ErrorKind;
using norla::FileState;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr size_t partSize = 5 << 20;

/// A file, and a store that answers as the test wrote. Objects are replaced unless a test says otherwise.
class CS3FileUploadTest : public CS3FileFixture {
protected:
    CS3FileUploadTest()
    {
        m_options.overwrite = true;
        m_options.partSize = partSize;
        m_options.atOnce = 1;
        m_options.retries = options().retries;
        m_options.pool = options().pool;
    }

    void write(const std::string& bytes) const { folder().write("file", bytes); }

    kx::P<CS3FileUpload> upload() { return kx::newObj<CS3FileUpload>(&client(), target(), "bucket", "key", m_options); }
    kx::P<kx::CError> failure() { return failureOf(*upload()); }

    /// Takes a body of that size on the next connection.
    support::CScript& take(size_t size, const std::string& bytes)
    {
        return server().onConnection().readHead().readBytes(size).send(bytes).close();
    }

    static std::string stored(const std::string& bytes) { return answerOf(200, "", "ETag: " + tagOf(bytes) + "\r\n"); }

    /// To a question for the object.
    void answerSize(size_t size)
    {
        answer("HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: " + std::to_string(size) + "\r\n\r\n");
    }
    void answerMissing() { answer("HTTP/1.1 404 Not Found\r\nConnection: close\r\nContent-Length: 0\r\n\r\n"); }

    norla::CS3FileUploadOptions m_options;
};

TEST_F(CS3FileUploadTest, putsASmallFileUnlessThereIsOne)
{
    write("the body");
    m_options.overwrite = false;
    answerMissing();
    take(8, stored("the body"));
    answerSize(8);
    const auto file = upload();
    file->run();
    EXPECT_EQ(file->getState(), FileState::Succeeded);
    EXPECT_EQ(file->getETag().toUTF8(), tagOf("the body"));
    EXPECT_THAT(received(0), StartsWith("HEAD /bucket/key "));
    EXPECT_THAT(received(1), StartsWith("PUT /bucket/key "));
    EXPECT_THAT(received(1), HasSubstr("\r\nIf-None-Match: *\r\n"));
    EXPECT_THAT(received(1), HasSubstr("\r\nContent-MD5: "));
    EXPECT_THAT(received(1), EndsWith("\r\n\r\nthe body"));
    EXPECT_THAT(received(2), StartsWith("HEAD /bucket/key "));
}

TEST_F(CS3FileUploadTest, putsAnEmptyFile)
{
    write("");
    take(0, stored(""));
    answerSize(0);
    upload()->run();
    EXPECT_THAT(received(0), HasSubstr("\r\nContent-Length: 0\r\n"));
}

TEST_F(CS3FileUploadTest, storesWithTypeAndMetadata)
{
    write("the body");
    m_options.object.contentType = "text/x-own";
    m_options.object.metadata = {{"Author", L"Zo\u00eb"}};
    take(8, stored("the body"));
    answerSize(8);
    upload()->run();
    EXPECT_THAT(received(0), HasSubstr("\r\nContent-Type: text/x-own\r\n"));
    EXPECT_THAT(received(0), HasSubstr("\r\nx-amz-meta-author: =?"));
    EXPECT_THAT(received(0), Not(HasSubstr("If-None-Match")));
}

TEST_F(CS3FileUploadTest, sendsNothingWhereThereIsAnObject)
{
    write("the body");
    m_options.overwrite = false;
    answerSize(3);
    const auto error = failure();
    ASSERT_TRUE(error);
    EXPECT_EQ(std::string(error->what()), "There is the object 'key' in the bucket 'bucket' already.");
    EXPECT_EQ(server().connectionCount(), 1U);
}

TEST_F(CS3FileUploadTest, sendsNothingWhereItCannotBeToldWhetherThereIsOne)
{
    write("the body");
    m_options.overwrite = false;
    answer("HTTP/1.1 403 Forbidden\r\nConnection: close\r\nContent-Length: 0\r\n\r\n");
    const auto error = failure();
    ASSERT_TRUE(error);
    EXPECT_THAT(error->what(), StartsWith("It cannot be told whether there is the object 'key' in"));
    EXPECT_EQ(norla::getErrorKind(*error), ErrorKind::Denied);
}

TEST_F(CS3FileUploadTest, saysThatSomebodyWasFaster)
{
    write("the body");
    m_options.overwrite = false;
    answerMissing();
    take(8, errorOf(412, "PreconditionFailed"));
    const auto error = failure();
    ASSERT_TRUE(error);
    EXPECT_EQ(std::string(error->what()), "There is the object 'key' in the bucket 'bucket' already.");
}

TEST_F(CS3FileUploadTest, knowsItsOwnObjectAgainWhereTheAnswerWasLost)
{
    write("the body");
    m_options.overwrite = false;
    answerMissing();
    server().onConnection().readHead().readBytes(8).closeHard();
    take(8, errorOf(412, "PreconditionFailed"));
    const std::string object
        = "HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: 8\r\nETag: " + tagOf("the body") + "\r\n\r\n";
    answer(object);
    answer(object);
    const auto file = upload();
    file->run();
    EXPECT_EQ(file->getETag().toUTF8(), tagOf("the body"));
}

TEST_F(CS3FileUploadTest, takesNoOtherObjectForItsOwn)
{
    write("the body");
    m_options.overwrite = false;
    answerMissing();
    server().onConnection().readHead().readBytes(8).closeHard();
    take(8, errorOf(412, "PreconditionFailed"));
    answer("HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: 8\r\nETag: " + tagOf("another.") + "\r\n\r\n");
    const auto error = failure();
    ASSERT_TRUE(error);
    EXPECT_THAT(error->what(), HasSubstr("unless it is this one"));
}

TEST_F(CS3FileUploadTest, putsAgainWithANewSignature)
{
    write("the body");
    take(8, errorOf(503, "SlowDown"));
    server().onConnection().readHead().readBytes(4).reset();
    take(8, stored("the body"));
    answerSize(8);
    upload()->run();
    EXPECT_THAT(received(0), HasSubstr("Credential=AKID1/"));
    EXPECT_THAT(received(2), HasSubstr("Credential=AKID3/"));
    EXPECT_THAT(received(2), EndsWith("\r\n\r\nthe body"));
}

TEST_F(CS3FileUploadTest, signsForTheBucketsRegion)
{
    write("the body");
    m_options.retries = norla::CRetryPolicy::none();
    take(8, errorOf(400, "AuthorizationHeaderMalformed", "x-amz-bucket-region: eu-west-3\r\n"));
    take(8, stored("the body"));
    answerSize(8);
    upload()->run();
    EXPECT_THAT(received(1), HasSubstr("/eu-west-3/s3/aws4_request"));
}

TEST_F(CS3FileUploadTest, saysWhatTheStoreSays)
{
    write("the body");
    take(8, errorOf(403, "AccessDenied"));
    const auto file = upload();
    const auto error = failureOf(*file);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getProps().get("s3-code"), "AccessDenied");
    EXPECT_EQ(file->getState(), FileState::Failed);
}

TEST_F(CS3FileUploadTest, refusesAnErrorWithTheStatusOfASuccess)
{
    write("the body");
    take(8, errorOf(200, "InternalError"));
    const auto error = failure();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getProps().get("s3-code"), "InternalError");
}

TEST_F(CS3FileUploadTest, refusesTheTagOfOtherBytes)
{
    write("the body");
    take(8, stored("another."));
    const auto error = failure();
    ASSERT_TRUE(error);
    EXPECT_EQ(std::string(error->what()),
        "What the store has of '" + (folder().path() / "file").native()
            + "' as the object 'key' in the bucket 'bucket' has the ETag " + tagOf("another.")
            + ", and the file has the MD5 " + md5Of("the body") + ".");
}

TEST_F(CS3FileUploadTest, refusesAnAnswerBeforeTheEndOfTheFile)
{
    write(std::string(4 << 20, 'x'));
    m_options.retries = norla::CRetryPolicy::none();
    server().onConnection().readHead().send("HTTP/1.1 100 Continue\r\n\r\n" + stored(std::string(4 << 20, 'x')));
    const auto error = failure();
    ASSERT_TRUE(error);
    EXPECT_EQ(server().connectionCount(), 1U); // it does not look for the object
}

TEST_F(CS3FileUploadTest, refusesAnObjectOfAnotherSize)
{
    write("the body");
    take(8, stored("the body"));
    answerSize(7);
    const auto error = failure();
    ASSERT_TRUE(error);
    EXPECT_THAT(error->what(), EndsWith(" as the object 'key' in the bucket 'bucket' has 7."));
}

TEST_F(CS3FileUploadTest, believesAStoreThatDoesNotLetItLook)
{
    write("the body");
    take(8, stored("the body"));
    answer("HTTP/1.1 403 Forbidden\r\nConnection: close\r\nContent-Length: 0\r\n\r\n");
    upload()->run();
    EXPECT_THAT(requestLine(1), StartsWith("HEAD "));
}

TEST_F(CS3FileUploadTest, sendsNoEndOfAFileThatIsWrittenToMeanwhile)
{
    write(std::string(8 << 20, 'x'));
    std::promise<void> isChanged;
    server()
        .onConnection()
        .readHead()
        .waitFor(isChanged.get_future().share())
        .send("HTTP/1.1 100 Continue\r\n\r\n")
        .readToEnd();
    bool isFirst = true;
    m_options.onProgress = [&](const norla::CFileProgress&) {
        if (!std::exchange(isFirst, false))
            return;
        std::fstream(folder().path() / "file", std::ios::in | std::ios::out).write("y", 1);
        isChanged.set_value();
    };
    m_options.retries.repeatUnsafe = true;
    const auto error = failure();
    ASSERT_TRUE(error);
    EXPECT_THAT(error->what(), EndsWith("has changed while it was sent."));
    EXPECT_LT(received(0).size(), 8U << 20);
}

TEST_F(CS3FileUploadTest, isCancelledWhileTheStoreSaysNothing)
{
    write("the body");
    server().onConnection().readHead().readBytes(8).stall();
    const auto file = upload();
    std::thread canceller([&] {
        while (server().received(0).find("the body") == std::string::npos)
            std::this_thread::yield();
        file->cancel();
    });
    const auto error = failureOf(*file);
    canceller.join();
    ASSERT_TRUE(error);
    EXPECT_EQ(norla::getErrorKind(*error), ErrorKind::Cancelled);
    EXPECT_EQ(file->getState(), FileState::Cancelled);
}

TEST_F(CS3FileUploadTest, isCancelledWhileItIsAskedForTheSize)
{
    write("the body");
    take(8, stored("the body"));
    server().onConnection().readHead().stall();
    const auto file = upload();
    std::thread canceller([&] {
        while (server().received(1).empty())
            std::this_thread::yield();
        file->cancel();
    });
    const auto error = failureOf(*file);
    canceller.join();
    ASSERT_TRUE(error);
    EXPECT_EQ(norla::getErrorKind(*error), ErrorKind::Cancelled);
}

TEST_F(CS3FileUploadTest, lendsTheClientNothingBehindItsEnd)
{
    write("the body");
    take(8, stored("the body"));
    answerSize(8);
    upload()->run();
    answerSize(5);
    const auto request = kx::newObj<norla::CNetRequest>();
    EXPECT_EQ(client().getObjectSize(*request, "bucket", "other"), 5);
}

TEST_F(CS3FileUploadTest, putsAnewBehindAPause)
{
    write("the body");
    server().onConnection().readHead().readBytes(8).stall();
    take(8, stored("the body"));
    answerSize(8);
    const auto file = upload();
    std::thread other = pauseAndResume(*file, 8);
    file->run();
    other.join();
    EXPECT_THAT(received(1), EndsWith("\r\n\r\nthe body"));
}

TEST_F(CS3FileUploadTest, refusesWhatMakesNoSense)
{
    const auto make = [this](const std::function<void(norla::CS3FileUploadOptions&)>& change) {
        norla::CS3FileUploadOptions changed = m_options;
        change(changed);
        kx::newObj<CS3FileUpload>(&client(), target(), "bucket", "key", changed);
    };
    make([](auto&) {});
    EXPECT_THROW(make([](auto& o) { o.threshold = -1; }), kx::CInvalidArgError);
    EXPECT_THROW(make([](auto& o) { o.threshold = (5LL << 30) + 1; }), kx::CInvalidArgError);
    EXPECT_THROW(make([](auto& o) { o.partSize = 1; }), kx::CInvalidArgError);
    EXPECT_THROW(make([](auto& o) { o.atOnce = 0; }), kx::CInvalidArgError);
    EXPECT_THROW(make([](auto& o) { o.memory = -1; }), kx::CInvalidArgError);
    EXPECT_THROW(make([](auto& o) { o.partDeadline = kx::CTimeSpan::fromSeconds(-1); }), kx::CInvalidArgError);
    EXPECT_THROW(make([](auto& o) { o.object.verify = false; }), kx::CInvalidArgError);
    EXPECT_THROW(make([](auto& o) { o.object.checksum = norla::CS3Checksum::SHA256; }), kx::CInvalidArgError);
    EXPECT_THROW(make([](auto& o) {
        o.overwrite = false;
        o.object.ifMatch = "\"e\"";
    }),
        kx::CInvalidArgError);
    EXPECT_THROW(make([](auto& o) { o.object.contentType = "a\nb"; }), kx::CInvalidArgError);
    EXPECT_THROW(kx::newObj<CS3FileUpload>(nullptr, target(), "b", "k", m_options), kx::CInvalidArgError);
    EXPECT_THROW(kx::newObj<CS3FileUpload>(&client(), target(), "b", "", m_options), kx::CInvalidArgError);
}

class CS3FileUploadPartsTest : public CS3FileUploadTest {
protected:
    CS3FileUploadPartsTest()
    {
        m_options.threshold = 0;
        m_options.resume = false;
    }

    static std::string created(const std::string& id)
    {
        return answerOf(
            200, "<InitiateMultipartUploadResult><UploadId>" + id + "</UploadId></InitiateMultipartUploadResult>");
    }

    static std::string completed()
    {
        return answerOf(200, "<CompleteMultipartUploadResult><ETag>\"whole\"</ETag></CompleteMultipartUploadResult>");
    }

    static std::string listed(const std::string& uploads)
    {
        return answerOf(200,
            "<ListMultipartUploadsResult>" + uploads + "<IsTruncated>false</IsTruncated></ListMultipartUploadsResult>");
    }

    static std::string begun(const std::string& id, const std::string& time)
    {
        return "<Upload><Key>key</Key><UploadId>" + id + "</UploadId><Initiated>" + time + "</Initiated></Upload>";
    }

    static std::string partList(const std::string& parts)
    {
        return answerOf(200, "<ListPartsResult>" + parts + "<IsTruncated>false</IsTruncated></ListPartsResult>");
    }

    static std::string part(int number, size_t size, const std::string& eTag)
    {
        return "<Part><PartNumber>" + std::to_string(number) + "</PartNumber><ETag>" + eTag + "</ETag><Size>"
            + std::to_string(size) + "</Size></Part>";
    }

    void takePart(const std::string& bytes)
    {
        server()
            .onConnection()
            .readHead()
            .send(bytes.size() < (1 << 20) ? "" : "HTTP/1.1 100 Continue\r\n\r\n")
            .readBytes(bytes.size())
            .send(stored(bytes))
            .close();
    }

    void answerCompletion(const std::string& bytes)
    {
        server().onConnection().readHead().readUntil("</CompleteMultipartUpload>").send(bytes).close();
    }

    void answerGone() { answer("HTTP/1.1 204 Gone\r\nConnection: close\r\n\r\n"); }

    /// Takes a part and says nothing.
    void stallPart() { server().onConnection().readHead().send("HTTP/1.1 100 Continue\r\n\r\n").readToEnd(); }

    std::thread atConnection(size_t count, const std::function<void()>& action)
    {
        return std::thread([this, count, action] {
            while (server().connectionCount() < count || server().received(count - 1).size() < 1000)
                std::this_thread::yield();
            action();
        });
    }

    const std::string m_first = std::string(partSize, 'a');
    const std::string m_second = std::string(partSize, 'b');
};

TEST_F(CS3FileUploadPartsTest, sendsALargeFileByParts)
{
    write(m_first + "end");
    m_options.overwrite = false;
    m_options.object.contentType = "text/x-own";
    std::vector<std::string> ids;
    m_options.onStarted = [&ids](const kx::String& id) { ids.push_back(id.toUTF8()); };
    answerMissing();
    answer(created("id"));
    takePart(m_first);
    takePart("end");
    answerCompletion(completed());
    answerSize(partSize + 3);
    const auto file = upload();
    file->run();
    EXPECT_EQ(file->getETag(), "\"whole\"");
    EXPECT_EQ(file->getUploadId(), "");
    EXPECT_EQ(file->getProgress().done, static_cast<long long>(partSize) + 3);
    EXPECT_EQ(ids, std::vector<std::string>{"id"});
    EXPECT_THAT(received(1), StartsWith("POST /bucket/key?uploads "));
    EXPECT_THAT(received(1), HasSubstr("\r\nContent-Type: text/x-own\r\n"));
    EXPECT_THAT(received(1), Not(HasSubstr("If-None-Match")));
    EXPECT_THAT(received(2), Not(HasSubstr("text/x-own")));
    EXPECT_THAT(received(4), StartsWith("POST /bucket/key?uploadId=id "));
    EXPECT_THAT(received(4), HasSubstr("\r\nIf-None-Match: *\r\n"));
    EXPECT_THAT(received(5), StartsWith("HEAD "));
}

TEST_F(CS3FileUploadPartsTest, goesOnWithTheNewestUploadOfThisFile)
{
    m_options.resume = true;
    write(m_first + m_second + "end");
    answer(listed(begun("older", "2026-01-01T00:00:00.000Z") + begun("newer", "2026-01-02T00:00:00.000Z")
        + begun("other", "2026-01-03T00:00:00.000Z")));
    answer(partList(part(1, partSize, tagOf(m_second)))); // of another file
    const std::string parts = partList(part(1, partSize, tagOf(m_first)) + part(3, 3, tagOf("end")));
    answer(parts);
    answer(parts);
    takePart(m_second);
    answerCompletion(completed());
    answerSize(2 * partSize + 3);
    const auto file = upload();
    file->run();
    EXPECT_EQ(file->getProgress().moved, static_cast<long long>(partSize));
    EXPECT_THAT(requestLine(0), StartsWith("GET /bucket?uploads&encoding-type=url&prefix=key "));
    EXPECT_THAT(requestLine(1), HasSubstr("uploadId=other"));
    EXPECT_THAT(requestLine(2), HasSubstr("uploadId=newer"));
    EXPECT_THAT(requestLine(4), HasSubstr("partNumber=2&uploadId=newer"));
}

TEST_F(CS3FileUploadPartsTest, goesOnWithNoPartsOfOtherSizes)
{
    m_options.resume = true;
    write(m_first + "end");
    answer(listed(begun("a", "4") + begun("b", "3") + begun("c", "2") + begun("d", "1")));
    answer(partList(part(1, partSize + 1, tagOf(m_first))));
    answer(partList(part(1, partSize, tagOf(m_first)) + part(3, 1, tagOf("x"))));
    answer(partList(""));
    answer(errorOf(404, "NoSuchUpload"));
    answer(created("id"));
    takePart(m_first);
    takePart("end");
    answerCompletion(completed());
    answerSize(partSize + 3);
    upload()->run();
    EXPECT_THAT(requestLine(2), HasSubstr("uploadId=b"));
    EXPECT_THAT(requestLine(3), HasSubstr("uploadId=c"));
    EXPECT_THAT(requestLine(4), HasSubstr("uploadId=d"));
    EXPECT_THAT(requestLine(6), HasSubstr("uploadId=id"));
}

TEST_F(CS3FileUploadPartsTest, beginsAnewWhereNoUploadsAreTold)
{
    m_options.resume = true;
    write("end");
    answer(errorOf(403, "AccessDenied"));
    answer(created("id"));
    takePart("end");
    answerCompletion(completed());
    answerSize(3);
    upload()->run();
    EXPECT_THAT(requestLine(3), StartsWith("POST /bucket/key?uploadId=id "));
}

TEST_F(CS3FileUploadPartsTest, beginsAnewWhereTheUploadHasGoneMeanwhile)
{
    m_options.resume = true;
    write("end");
    answer(listed(begun("old", "1")));
    answer(partList(part(1, 3, tagOf("end"))));
    answer(errorOf(404, "NoSuchUpload"));
    answer(created("id"));
    takePart("end");
    answerCompletion(completed());
    answerSize(3);
    upload()->run();
    EXPECT_THAT(requestLine(4), HasSubstr("uploadId=id"));
}

TEST_F(CS3FileUploadPartsTest, goesOnWithTheUploadThatItIsTold)
{
    m_options.uploadId = "mine";
    m_options.threshold = 1 << 20;
    write("end");
    answer(partList(part(1, 3, tagOf("end"))));
    answerCompletion(completed());
    answerSize(3);
    upload()->run();
    EXPECT_THAT(requestLine(0), HasSubstr("uploadId=mine"));
}

TEST_F(CS3FileUploadPartsTest, saysThatTheUploadHasGoneThatItWasTold)
{
    m_options.uploadId = "mine";
    write("end");
    answer(errorOf(404, "NoSuchUpload"));
    const auto error = failure();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getProps().get("s3-code"), "NoSuchUpload");
}

TEST_F(CS3FileUploadPartsTest, keepsWhatHasFailed)
{
    write(m_first + "end");
    answer(created("id"));
    takePart(m_first);
    server().onConnection().readHead().readBytes(3).send(errorOf(403, "AccessDenied")).close();
    const auto file = upload();
    const auto error = failureOf(*file);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getProps().get("s3-code"), "AccessDenied");
    EXPECT_EQ(file->getUploadId(), "id");
    EXPECT_EQ(server().connectionCount(), 3U);
}

TEST_F(CS3FileUploadPartsTest, abortsWhatHasFailedAndIsNotToStay)
{
    write("end");
    m_options.keepPart = false;
    answer(created("id"));
    take(3, errorOf(403, "AccessDenied"));
    answerGone();
    const auto file = upload();
    EXPECT_TRUE(failureOf(*file));
    EXPECT_EQ(file->getUploadId(), "");
    EXPECT_EQ(requestLine(2), "DELETE /bucket/key?uploadId=id HTTP/1.1");
}

TEST_F(CS3FileUploadPartsTest, sendsAPartAgainThatWasCutOff)
{
    write(m_first);
    answer(created("id"));
    server().onConnection().readHead().send("HTTP/1.1 100 Continue\r\n\r\n").readBytes(1 << 20).reset();
    takePart(m_first);
    answerCompletion(completed());
    answerSize(partSize);
    upload()->run();
    EXPECT_THAT(requestLine(2), HasSubstr("partNumber=1&"));
}

TEST_F(CS3FileUploadPartsTest, completesNothingOfAFileThatHasChanged)
{
    write(m_first + "end");
    answer(created("id"));
    takePart(m_first);
    std::promise<void> changed;
    server().onConnection().readHead().readBytes(3).waitFor(changed.get_future().share()).send(stored("end")).close();
    answerGone();
    const auto file = upload();
    std::thread writer([&] {
        while (server().received(2).find("\r\n\r\nend") == std::string::npos)
            std::this_thread::yield();
        std::ofstream(folder().path() / "file", std::ios::app) << "more";
        changed.set_value();
    });
    const auto error = failureOf(*file);
    writer.join();
    ASSERT_TRUE(error);
    EXPECT_THAT(error->what(), EndsWith("has changed while it was sent."));
    EXPECT_EQ(requestLine(3), "DELETE /bucket/key?uploadId=id HTTP/1.1");
    EXPECT_EQ(file->getUploadId(), "");
}

TEST_F(CS3FileUploadPartsTest, sendsNoPartOfAFileThatHasBecomeShorter)
{
    write(m_first + m_second);
    m_options.onStarted
        = [this](const kx::String&) { std::filesystem::resize_file(folder().path() / "file", partSize); };
    answer(created("id"));
    answerGone();
    const auto error = failure();
    ASSERT_TRUE(error);
    EXPECT_THAT(error->what(), EndsWith("has changed while it was sent."));
    EXPECT_EQ(requestLine(1), "DELETE /bucket/key?uploadId=id HTTP/1.1");
}

TEST_F(CS3FileUploadPartsTest, refusesACompletionThatIsAnError)
{
    write("end");
    m_options.retries = norla::CRetryPolicy::none();
    answer(created("id"));
    takePart("end");
    answerCompletion(errorOf(200, "InternalError"));
    const auto file = upload();
    const auto error = failureOf(*file);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getProps().get("s3-code"), "InternalError");
    EXPECT_EQ(file->getUploadId(), "id");
}

TEST_F(CS3FileUploadPartsTest, saysThatSomebodyWasFasterThanTheParts)
{
    write("end");
    m_options.overwrite = false;
    answerMissing();
    answer(created("id"));
    takePart("end");
    answerCompletion(errorOf(412, "PreconditionFailed"));
    const auto error = failure();
    ASSERT_TRUE(error);
    EXPECT_EQ(std::string(error->what()), "There is the object 'key' in the bucket 'bucket' already.");
}

TEST_F(CS3FileUploadPartsTest, refusesAnObjectOfOtherParts)
{
    write("end");
    answer(created("id"));
    takePart("end");
    answerCompletion(answerOf(200,
        "<CompleteMultipartUploadResult><ETag>fe9ef9d9a1fe9a2c1ae4ba8e9f3f8d5a-1</ETag>"
        "</CompleteMultipartUploadResult>"));
    const auto error = failure();
    ASSERT_TRUE(error);
    EXPECT_THAT(error->what(), HasSubstr("and the parts that were sent make "));
}

TEST_F(CS3FileUploadPartsTest, isCancelledInThePart)
{
    write(m_first + "end");
    answer(created("id"));
    stallPart();
    const auto file = upload();
    std::thread canceller = atConnection(2, [&] { file->cancel(); });
    const auto error = failureOf(*file);
    canceller.join();
    ASSERT_TRUE(error);
    EXPECT_EQ(norla::getErrorKind(*error), ErrorKind::Cancelled);
    EXPECT_EQ(file->getState(), FileState::Cancelled);
    EXPECT_EQ(file->getUploadId(), "id");
}

TEST_F(CS3FileUploadPartsTest, isCancelledBeforeTheStoreHasBegun)
{
    write(m_first);
    server().onConnection().readHead().stall();
    const auto file = upload();
    std::thread canceller([&] {
        while (server().received(0).empty())
            std::this_thread::yield();
        file->cancel();
    });
    const auto error = failureOf(*file);
    canceller.join();
    ASSERT_TRUE(error);
    EXPECT_EQ(norla::getErrorKind(*error), ErrorKind::Cancelled);
}

TEST_F(CS3FileUploadPartsTest, abortsBehindACancellationWhatIsNotToStay)
{
    write(m_first + "end");
    m_options.keepPart = false;
    answer(created("id"));
    stallPart();
    answerGone();
    const auto file = upload();
    std::thread canceller = atConnection(2, [&] { file->cancel(); });
    EXPECT_TRUE(failureOf(*file));
    canceller.join();
    EXPECT_EQ(requestLine(2), "DELETE /bucket/key?uploadId=id HTTP/1.1");
}

TEST_F(CS3FileUploadPartsTest, goesOnBehindAPauseWithWhatTheStoreHas)
{
    write(m_first + m_second);
    std::vector<std::string> ids;
    m_options.onStarted = [&ids](const kx::String& id) { ids.push_back(id.toUTF8()); };
    answer(created("id"));
    takePart(m_first);
    stallPart();
    answer(partList(part(1, partSize, tagOf(m_first))));
    takePart(m_second);
    answerCompletion(completed());
    answerSize(2 * partSize);
    const auto file = upload();
    std::thread other = atConnection(3, [&] {
        while (file->getProgress().done < static_cast<long long>(partSize)) // it is told now and then
            std::this_thread::yield();
        file->pause();
        while (file->getState() != FileState::Paused)
            std::this_thread::yield();
        file->resume();
    });
    file->run();
    other.join();
    EXPECT_EQ(ids, std::vector<std::string>{"id"});
    EXPECT_THAT(requestLine(3), HasSubstr("GET /bucket/key?uploadId=id "));
    EXPECT_THAT(requestLine(4), HasSubstr("partNumber=2&uploadId=id"));
    EXPECT_EQ(file->getProgress().done, 2 * static_cast<long long>(partSize));
    EXPECT_GE(file->getProgress().moved, 2 * static_cast<long long>(partSize));
}

TEST_F(CS3FileUploadPartsTest, isCancelledInAPause)
{
    write(m_first);
    answer(created("id"));
    stallPart();
    const auto file = upload();
    std::thread other = atConnection(2, [&] {
        file->pause();
        while (file->getState() != FileState::Paused)
            std::this_thread::yield();
        file->cancel();
    });
    const auto error = failureOf(*file);
    other.join();
    ASSERT_TRUE(error);
    EXPECT_EQ(file->getState(), FileState::Cancelled);
    EXPECT_EQ(file->getUploadId(), "id");
}

TEST_F(CS3FileUploadPartsTest, endsWithWhatTheProgramThrows)
{
    write("end");
    answer(created("id"));
    m_options.onStarted = [](const kx::String&) { throw 7; };
    const auto file = upload();
    EXPECT_THROW(file->run(), int);
    EXPECT_EQ(file->getState(), FileState::Failed);
    EXPECT_EQ(file->getUploadId(), "id");
}

} // namespace
