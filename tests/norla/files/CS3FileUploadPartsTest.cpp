// A file that goes to a store by parts.
#include "kx/base/CInvalidArgError.h"
#include "norla/core/errorKind.h"
#include "tests/norla/files/CS3FileUploadFixture.h"
#include "tests/support/waitUntil.h"

#include <gmock/gmock.h>

#include <fstream>
#include <functional>
#include <future>
#include <thread>

namespace {

using norla::ErrorKind;
using norla::FileState;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class CS3FileUploadPartsTest : public CS3FileUploadFixture {
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

    bool isAtConnection(size_t count)
    {
        return server().connectionCount() >= count && server().received(count - 1).size() >= 1000;
    }

    std::thread atConnection(size_t count, const std::function<void()>& action)
    {
        return std::thread([this, count, action] {
            EXPECT_TRUE(support::waitUntil([this, count] { return isAtConnection(count); }));
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

TEST_F(CS3FileUploadPartsTest, beginsAnewWhereNoPartsAreTold)
{
    m_options.resume = true;
    write("end");
    answer(listed(begun("denied", "2") + begun("no list", "1")));
    answer(errorOf(403, "AccessDenied"));
    answer(answerOf(200, "<Other/>"));
    answer(created("id"));
    takePart("end");
    answerCompletion(completed());
    answerSize(3);
    upload()->run();
    EXPECT_THAT(requestLine(1), HasSubstr("uploadId=denied"));
    EXPECT_THAT(requestLine(5), StartsWith("POST /bucket/key?uploadId=id "));
}

TEST_F(CS3FileUploadPartsTest, isAnErrorWhereNoPartsAreToldOfTheUploadThatItIsTold)
{
    m_options.uploadId = "mine";
    write("end");
    answer(errorOf(403, "AccessDenied"));
    const auto error = failure();
    ASSERT_TRUE(error);
    EXPECT_EQ(norla::getErrorKind(*error), ErrorKind::Denied);
}

TEST_F(CS3FileUploadPartsTest, looksAtNoMoreUploadsThanAThousand)
{
    m_options.resume = true;
    write("end");
    std::string uploads;
    for (int i = 0; i < 1000; ++i)
        uploads += begun("u" + std::to_string(i), std::to_string(1000 + i));
    answer(answerOf(200,
        "<ListMultipartUploadsResult>" + uploads
            + "<IsTruncated>true</IsTruncated><NextKeyMarker>key</NextKeyMarker>"
              "<NextUploadIdMarker>u999</NextUploadIdMarker></ListMultipartUploadsResult>"));
    answer(partList(part(1, 4, tagOf("than"))));
    const std::string parts = partList(part(1, 3, tagOf("end")));
    answer(parts);
    answer(parts);
    answerCompletion(completed());
    answerSize(3);
    upload()->run();
    EXPECT_THAT(requestLine(1), HasSubstr("uploadId=u999"));
    EXPECT_THAT(requestLine(2), HasSubstr("uploadId=u998"));
    EXPECT_THAT(requestLine(4), StartsWith("POST /bucket/key?uploadId=u998 "));
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
        EXPECT_TRUE(
            support::waitUntil([this] { return server().received(2).find("\r\n\r\nend") != std::string::npos; }));
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
    const auto error = failureOfCancelled(*file, [this] { return isAtConnection(2); });
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
    const auto error = failureOfCancelled(*file, [this] { return !server().received(0).empty(); });
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
    EXPECT_TRUE(failureOfCancelled(*file, [this] { return isAtConnection(2); }));
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
        EXPECT_TRUE(support::waitUntil( // it is told now and then
            [&] { return file->getProgress().done >= static_cast<long long>(partSize); }));
        file->pause();
        EXPECT_TRUE(support::waitUntil([&] { return file->getState() == FileState::Paused; }));
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
        EXPECT_TRUE(support::waitUntil([&] { return file->getState() == FileState::Paused; }));
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
