#include "norla/files/CS3FileUpload.h"

#include "kx/base/CInvalidArgError.h"
#include "norla/core/errorKind.h"
#include "tests/norla/files/CS3FileUploadFixture.h"
#include "tests/support/waitUntil.h"

#include <gmock/gmock.h>

#include <fstream>
#include <functional>
#include <future>
#include <thread>
#include <utility>

namespace {

using norla::CS3FileUpload;
using norla::ErrorKind;
using norla::FileState;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class CS3FileUploadTest : public CS3FileUploadFixture {};

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
    const auto error
        = failureOfCancelled(*file, [this] { return server().received(0).find("the body") != std::string::npos; });
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
    const auto error = failureOfCancelled(*file, [this] { return !server().received(1).empty(); });
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
    const std::string bytes = bytesOf(32 << 20); // more than all that connections hold on the way
    write(bytes);
    m_options.threshold = 1LL << 30;
    server().onConnection().readHead().send("HTTP/1.1 100 Continue\r\n\r\n").readBytes(8).stall();
    server()
        .onConnection()
        .readHead()
        .send("HTTP/1.1 100 Continue\r\n\r\n")
        .readBytes(bytes.size())
        .send(stored(bytes))
        .close();
    answerSize(bytes.size());
    const auto file = upload();
    std::thread other = pauseAndResume(*file, 8);
    file->run();
    other.join();
    EXPECT_TRUE(server().received(1).ends_with("\r\n\r\n" + bytes));
}

TEST_F(CS3FileUploadTest, aPauseBehindTheLastByteWaitsForTheAnswer)
{
    write("the body");
    std::promise<void> heeded;
    server()
        .onConnection()
        .readHead()
        .readBytes(8)
        .waitFor(heeded.get_future().share())
        .send(stored("the body"))
        .close();
    answerSize(8);
    norla::CS3FileUpload* running = nullptr;
    int calls = 0; // since the pause
    m_options.onProgress = [&](const norla::CFileProgress&) {
        if (calls > 0 || server().received(0).ends_with("\r\n\r\nthe body"))
            ++calls;
        if (calls == 1)
            running->pause();
        if (calls == 2)
            heeded.set_value();
    };
    const auto file = upload();
    running = file.get();
    std::thread resumer([&] {
        EXPECT_TRUE(support::waitUntil(
            [&] { return running->getState() == FileState::Paused || running->getState() == FileState::Succeeded; }));
        running->resume();
    });
    const auto error = failureOf(*file);
    resumer.join();
    EXPECT_FALSE(error) << error->what();
    EXPECT_THAT(requestLine(1), StartsWith("HEAD "));
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

} // namespace
