#include "norla/s3/CS3ParallelUpload.h"

#include "kx/base/CInvalidArgError.h"
#include "norla/core/errorKind.h"
#include "tests/norla/s3/CParallelUploadFixture.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <climits>
#include <functional>
#include <future>
#include <utility>
#include <vector>

namespace {

using norla::CS3ParallelUpload;
using support::messageOf;
using testing::HasSubstr;
using testing::Not;

class CS3ParallelUploadTest : public CParallelUploadFixture {};

TEST_F(CS3ParallelUploadTest, sendsPartsAndCompletes)
{
    m_options.atOnce = 1;
    std::vector<long long> told;
    m_options.onProgress = [&told](long long bytes, long long total) {
        EXPECT_EQ(total, 2 * static_cast<long long>(leastPart) + 3);
        told.push_back(bytes);
    };
    answer(created("id"));
    answerPart(leastPart, stored(tagOf(m_first)));
    answerPart(leastPart, stored(tagOf(m_second)));
    answerPart(3, stored(tagOf("end")));
    answerCompletion(completed("\"whole-3\""));
    EXPECT_EQ(upload(m_first + m_second + "end"), "\"whole-3\"");
    EXPECT_EQ(m_startedId, "id");
    EXPECT_EQ(m_upload->getUploadId(), "");
    EXPECT_EQ(requestLine(2), "PUT /bucket/key?partNumber=2&uploadId=id HTTP/1.1");
    EXPECT_THAT(received(4), HasSubstr("<PartNumber>2</PartNumber><ETag>&quot;" + md5Of(m_second) + "&quot;"));
    EXPECT_TRUE(std::is_sorted(told.begin(), told.end()));
    EXPECT_EQ(told.back(), 2 * static_cast<long long>(leastPart) + 3);
}

TEST_F(CS3ParallelUploadTest, sendsPartsAtOnce)
{
    std::promise<void> bothAreThere;
    const std::shared_future<void> gate = bothAreThere.get_future().share();
    m_options.atOnce = 2;
    answer(created("id"));
    for (int i = 0; i < 2; ++i)
        server()
            .onConnection()
            .readHead()
            .send("HTTP/1.1 100 Continue\r\n\r\n")
            .readBytes(leastPart)
            .waitFor(gate)
            .send(stored(tagOf(m_first)));
    answerCompletion(completed("\"whole-2\""));
    auto end = std::async(std::launch::async, [this] { return upload(m_first + m_first); });
    while (server().connectionCount() < 3 && end.wait_for(std::chrono::milliseconds(1)) != std::future_status::ready) {
    }
    EXPECT_EQ(server().connectionCount(), 3U);
    bothAreThere.set_value();
    EXPECT_EQ(end.get(), "\"whole-2\"");
}

TEST_F(CS3ParallelUploadTest, sendsNoMorePartsAtOnceThanMemoryHasRoomFor)
{
    constexpr auto room = 2 * static_cast<long long>(leastPart);
    std::promise<void> roomIsFull;
    const std::shared_future<void> gate = roomIsFull.get_future().share();
    size_t connectionsAtFirst = 0;
    m_options.atOnce = 3;
    m_options.memory = room;
    m_options.onProgress = [&](long long bytes, long long) {
        if (bytes < room || connectionsAtFirst > 0)
            return;
        connectionsAtFirst = server().connectionCount(); // with that of the upload's beginning
        roomIsFull.set_value();
    };
    answer(created("id"));
    for (int i = 0; i < 3; ++i)
        server()
            .onConnection()
            .readHead()
            .send("HTTP/1.1 100 Continue\r\n\r\n")
            .readBytes(leastPart)
            .waitFor(gate)
            .send(stored(tagOf(m_first)));
    answerCompletion(completed("\"whole-3\""));
    EXPECT_EQ(upload(m_first + m_first + m_first), "\"whole-3\"");
    EXPECT_EQ(connectionsAtFirst, 3U);
}

TEST_F(CS3ParallelUploadTest, sendsOneByOneWhatMemoryHasNoRoomFor)
{
    m_options.memory = 0;
    answer(created("id"));
    answerPart(leastPart, stored(tagOf(m_first)));
    answerPart(3, stored(tagOf("end")));
    answerCompletion(completed("\"whole-2\""));
    EXPECT_EQ(upload(m_first + "end"), "\"whole-2\"");
    EXPECT_TRUE(received(1).ends_with(m_first));
    EXPECT_TRUE(received(2).ends_with("\r\n\r\nend"));
}

TEST_F(CS3ParallelUploadTest, sendsAnEmptyObjectAsAnEmptyPart)
{
    answer(created("id"));
    answer(stored(tagOf("")));
    answerCompletion(completed("\"whole-1\""));
    EXPECT_EQ(upload(""), "\"whole-1\"");
}

TEST_F(CS3ParallelUploadTest, sendsAPartAgainWithANewSignature)
{
    answer(created("id"));
    answerPart(3, answerWith(503, errorDocument("SlowDown")));
    answerPart(3, answerWith(400, errorDocument("IncompleteBody")));
    answerPart(3, stored(tagOf("end")));
    answerCompletion(completed("\"whole-1\""));
    EXPECT_EQ(upload("end"), "\"whole-1\"");
    EXPECT_EQ(requestLine(1), requestLine(2));
    EXPECT_THAT(received(1), HasSubstr(" Credential=AKID2/"));
    EXPECT_THAT(received(2), HasSubstr(" Credential=AKID3/"));
    EXPECT_TRUE(received(3).ends_with("\r\n\r\nend"));
}

TEST_F(CS3ParallelUploadTest, tellsNoProgressThatGoesBack)
{
    std::promise<void> told;
    std::vector<long long> bytesTold;
    m_options.retries.firstPause = kx::CTimeSpan::fromMilliseconds(250); // longer than between two tellings
    m_options.retries.jitter = false;
    m_options.onProgress = [&](long long bytes, long long) {
        if (bytes == 3 && !std::count(bytesTold.begin(), bytesTold.end(), 3))
            told.set_value();
        bytesTold.push_back(bytes);
    };
    answer(created("id"));
    server()
        .onConnection()
        .readHead()
        .readBytes(3)
        .waitFor(told.get_future().share())
        .send(answerWith(503, errorDocument("SlowDown")));
    answerPart(3, stored(tagOf("end")));
    answerCompletion(completed("e"));
    upload("end");
    EXPECT_EQ(std::adjacent_find(bytesTold.begin(), bytesTold.end(), std::greater_equal<>()), bytesTold.end());
}

TEST_F(CS3ParallelUploadTest, completesAgainBehindAnErrorWithTheStatusOfASuccess)
{
    answer(created("id"));
    answerPart(3, stored(tagOf("end")));
    answerCompletion(answerWith(200, errorDocument("InternalError")));
    answerCompletion(completed("\"whole-1\""));
    EXPECT_EQ(upload("end"), "\"whole-1\"");
    EXPECT_EQ(bodyReceived(2), bodyReceived(3));
    EXPECT_THAT(bodyReceived(3), HasSubstr("<PartNumber>1<"));
}

TEST_F(CS3ParallelUploadTest, abortsWhatHasFailed)
{
    answer(created("id"));
    answerPart(3, answerWith(403, errorDocument("AccessDenied")));
    answer("HTTP/1.1 204 Gone\r\nConnection: close\r\n\r\n");
    EXPECT_EQ(messageOf([this] { upload("end"); }), "Amazon S3 error: Because(AccessDenied)");
    EXPECT_EQ(m_upload->getUploadId(), "");
    EXPECT_EQ(requestLine(2), "DELETE /bucket/key?uploadId=id HTTP/1.1");
}

TEST_F(CS3ParallelUploadTest, keepsWhatHasFailedOnDemand)
{
    m_options.keepFailed = true;
    answer(created("id"));
    answerPart(3, answerWith(403, errorDocument("AccessDenied")));
    EXPECT_EQ(messageOf([this] { upload("end"); }), "Amazon S3 error: Because(AccessDenied)");
    EXPECT_EQ(m_upload->getUploadId(), "id");
    EXPECT_EQ(server().connectionCount(), 2U);
}

TEST_F(CS3ParallelUploadTest, endsWithTheErrorOfThePartWhenItCannotAbort)
{
    answer(created("id"));
    answerPart(3, stored("\"00000000000000000000000000000000\""));
    answer(answerWith(403, errorDocument("AccessDenied")));
    EXPECT_THAT(messageOf([this] { upload("end"); }).toUTF8(), HasSubstr("has the ETag"));
    EXPECT_EQ(m_upload->getUploadId(), "id");
}

TEST_F(CS3ParallelUploadTest, resumesWithThePartsThatDiffer)
{
    m_options.uploadId = "old";
    m_options.atOnce = 1;
    const auto size = static_cast<long long>(leastPart);
    answer(partList(part(1, size, tagOf(m_first)) + part(2, size, tagOf("other")) + part(3, 2, tagOf("end"))
        + part(4, 3, tagOf("old"))));
    answerPart(leastPart, stored(tagOf(m_second)));
    answerPart(3, stored(tagOf("end")));
    answerCompletion(completed("\"whole-3\""));
    EXPECT_EQ(upload(m_first + m_second + "end"), "\"whole-3\"");
    EXPECT_EQ(m_startedId, "old");
    EXPECT_THAT(requestLine(1), HasSubstr("partNumber=2&"));
    EXPECT_THAT(requestLine(2), HasSubstr("partNumber=3&"));
    EXPECT_THAT(bodyReceived(3), HasSubstr("<PartNumber>1</PartNumber><ETag>&quot;" + md5Of(m_first) + "&quot;"));
    EXPECT_THAT(bodyReceived(3), Not(HasSubstr("<PartNumber>4<")));
}

TEST_F(CS3ParallelUploadTest, refusesAnObjectOfOtherPartsThanTheStoreHadAlready)
{
    m_options.uploadId = "old";
    answer(partList(part(1, 3, tagOf("end"))));
    answerCompletion(completed("fe9ef9d9a1fe9a2c1ae4ba8e9f3f8d5a-1"));
    EXPECT_THAT(messageOf([this] { upload("end"); }).toUTF8(), HasSubstr("and the parts that were sent make "));
    EXPECT_EQ(m_upload->getUploadId(), "");
    EXPECT_EQ(server().connectionCount(), 2U);
}

TEST_F(CS3ParallelUploadTest, refusesAnObjectOfOtherPartsThanItHasSent)
{
    answer(created("id"));
    answerPart(3, stored(tagOf("end")));
    answerCompletion(completed("fe9ef9d9a1fe9a2c1ae4ba8e9f3f8d5a-1"));
    EXPECT_THAT(messageOf([this] { upload("end"); }).toUTF8(), HasSubstr("and the parts that were sent make "));
    EXPECT_EQ(server().connectionCount(), 3U);
}

TEST_F(CS3ParallelUploadTest, keepsWhatWasResumedAndHasFailed)
{
    m_options.uploadId = "old";
    answer(partList(part(1, 2, tagOf("ab"))));
    answerPart(3, answerWith(403, errorDocument("AccessDenied")));
    EXPECT_EQ(messageOf([this] { upload("end"); }), "Amazon S3 error: Because(AccessDenied)");
    EXPECT_EQ(m_upload->getUploadId(), "old");
    EXPECT_EQ(server().connectionCount(), 2U);
}

TEST_F(CS3ParallelUploadTest, isCancelledFromAnotherThread)
{
    answer(created("id"));
    server().onConnection().readHead().readBytes(3).stall();
    answer("HTTP/1.1 204 Gone\r\nConnection: close\r\n\r\n");
    m_upload = kx::newObj<CS3ParallelUpload>(&store(), &request(), m_options);
    auto end = std::async(std::launch::async, [this] { return support::errorOf([this] { run("end"); }); });
    while (!server().received(1).ends_with("end")
        && end.wait_for(std::chrono::milliseconds(1)) != std::future_status::ready) {
    }
    m_upload->cancel();
    const auto error = end.get();
    ASSERT_TRUE(error);
    EXPECT_EQ(norla::getErrorKind(*error), norla::ErrorKind::Cancelled);
    EXPECT_EQ(m_upload->getUploadId(), "");
}

TEST_F(CS3ParallelUploadTest, isCancelledWhileItWaits)
{
    answer(created("id"));
    server().onConnection().readHead().readBytes(3).stall();
    answer("HTTP/1.1 204 Gone\r\nConnection: close\r\n\r\n");
    m_options.onProgress = [this](long long bytes, long long) {
        if (bytes == 3)
            m_upload->cancel();
    };
    const auto error = support::errorOf([this] { upload("end"); });
    ASSERT_TRUE(error);
    EXPECT_EQ(norla::getErrorKind(*error), norla::ErrorKind::Cancelled);
    EXPECT_THAT(requestLine(2), HasSubstr("DELETE "));
}

TEST_F(CS3ParallelUploadTest, keepsToItsBudgetWhileAPartIsOnItsWay)
{
    m_options.retries.budget = kx::CTimeSpan::fromSeconds(1);
    answer(created("id"));
    server().onConnection().readHead().readBytes(3).stall();
    answer("HTTP/1.1 204 Gone\r\nConnection: close\r\n\r\n");
    const auto start = std::chrono::steady_clock::now();
    const auto error = support::errorOf([this] { upload("end"); });
    ASSERT_TRUE(error);
    EXPECT_EQ(norla::getErrorKind(*error), norla::ErrorKind::TotalTimeout);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10)); // 30 without a budget
}

TEST_F(CS3ParallelUploadTest, abortsWhatACallbackEnds)
{
    m_options.onStarted = [](const kx::String&) { throw kx::CError("No."); };
    answer(created("id"));
    answer("HTTP/1.1 204 Gone\r\nConnection: close\r\n\r\n");
    EXPECT_EQ(messageOf([this] { upload("end"); }), "No.");
    EXPECT_THAT(requestLine(1), HasSubstr("DELETE "));
}

/// Says that it has more than it gives.
class CShortSource : public norla::CStreamDataSource {
public:
    CShortSource()
        : CStreamDataSource(kx::newObj<kx::CBufferStream>().get())
    {
    }
    long long getLength() override { return m_length; }
    long long m_length = 10;
};

TEST_F(CS3ParallelUploadTest, abortsWhenTheSourceBecomesShorter)
{
    answer(created("id"));
    answer("HTTP/1.1 204 Gone\r\nConnection: close\r\n\r\n");
    const auto source = kx::newObj<CShortSource>();
    const auto shortUpload = kx::newObj<CS3ParallelUpload>(&store(), &request(), m_options);
    EXPECT_EQ(messageOf([&] { shortUpload->upload(source.get(), "bucket", "key"); }),
        "The source of a part has 0 bytes instead of 10.");
}

TEST_F(CS3ParallelUploadTest, refusesWhatMakesNoSense)
{
    const auto source = kx::newObj<CShortSource>();
    const auto refusal = [&](long long length, long long partSize) {
        source->m_length = length;
        m_options.partSize = partSize;
        return messageOf([&] {
            kx::newObj<CS3ParallelUpload>(&store(), &request(), m_options)->upload(source.get(), "bucket", "key");
        }).toUTF8();
    };
    EXPECT_THAT(refusal(-1, 0), HasSubstr("the size of the source is unknown"));
    EXPECT_THAT(refusal(10, leastPart - 1), HasSubstr("a part has 5 MiB to 5 GiB, and not 5242879 bytes"));
    EXPECT_THAT(refusal(10, (5LL << 30) + 1), HasSubstr("a part has 5 MiB to 5 GiB"));
    EXPECT_THAT(refusal(10'000LL * leastPart + 1, leastPart), HasSubstr("are more than 10,000 parts of 5242880 bytes"));
    EXPECT_THAT(refusal(LLONG_MAX, 0), HasSubstr("no object has 9223372036854775807 bytes"));
    m_options.atOnce = 0;
    EXPECT_THAT(refusal(10, 0), HasSubstr("atOnce is 0"));
    EXPECT_EQ(server().connectionCount(), 0U);
}

TEST_F(CS3ParallelUploadTest, isUsedAgainBehindAFailureThatHasEndedOtherParts)
{
    std::promise<void> bothAreThere;
    m_options.atOnce = 2;
    answer(created("id"));
    server()
        .onConnection()
        .readHead()
        .waitFor(bothAreThere.get_future().share())
        .send(answerWith(403, errorDocument("AccessDenied")));
    server().onConnection().readHead().send("HTTP/1.1 100 Continue\r\n\r\n").readBytes(leastPart).stall();
    answer("HTTP/1.1 204 Gone\r\nConnection: close\r\n\r\n");
    auto end = std::async(std::launch::async, [this] { return messageOf([this] { upload(m_first + m_first); }); });
    while (server().connectionCount() < 3 && end.wait_for(std::chrono::milliseconds(1)) != std::future_status::ready) {
    }
    bothAreThere.set_value();
    EXPECT_EQ(end.get(), "Amazon S3 error: Because(AccessDenied)");
    answer(created("id"));
    answerPart(leastPart, stored(tagOf(m_first)));
    answerPart(leastPart, stored(tagOf(m_first)));
    answerCompletion(completed("\"whole-2\""));
    EXPECT_EQ(run(m_first + m_first), "\"whole-2\"");
}

TEST_F(CS3ParallelUploadTest, abortsWhatACallbackEndsWithAnythingElseThanAnError)
{
    m_options.onStarted = [](const kx::String&) { throw 1; };
    answer(created("id"));
    answer("HTTP/1.1 204 Gone\r\nConnection: close\r\n\r\n");
    EXPECT_THROW(upload("end"), int);
    EXPECT_EQ(server().connectionCount(), 2U);
}

TEST_F(CS3ParallelUploadTest, believesNoStoreThatHasTakenAPartBeforeItWasSent)
{
    answer(created("id"));
    answer(stored("\"tag\""));
    answer("HTTP/1.1 204 Gone\r\nConnection: close\r\n\r\n");
    EXPECT_THAT(
        messageOf([this] { upload(m_first); }).toUTF8(), HasSubstr(" of the 5242880 bytes of part 1 were sent."));
    EXPECT_THAT(requestLine(2), HasSubstr("DELETE "));
}

} // namespace
