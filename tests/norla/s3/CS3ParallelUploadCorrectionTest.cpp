// Parts that are signed anew by what the store says of its time and of the bucket's region.
#include "kx/time/CTime.h"
#include "kx/time/CTimeFields.h"
#include "tests/norla/s3/CParallelUploadFixture.h"

#include <future>

namespace {

using support::messageOf;
using testing::HasSubstr;

constexpr char wrongRegion[] = "<Error><Code>AuthorizationHeaderMalformed</Code><Message>m</Message>"
                               "<Region>eu-west-3</Region></Error>";

class CS3ParallelUploadCorrectionTest : public CParallelUploadFixture {
protected:
    CS3ParallelUploadCorrectionTest() { m_options.retries.attempts = 1; } // what is counted fails

    static std::string hoursLater(int hours)
    {
        const kx::CTime time(kx::CTime::now().getMicroseconds() + hours * 3'600'000'000LL);
        std::string bytes = answerWith(403, errorDocument("RequestTimeTooSkewed"));
        return bytes.insert(bytes.find("\r\n") + 2,
            "Date: " + kx::CTimeFields(time, kx::CTimeFields::TypeUTC).toInternetTimestamp().toUTF8() + "\r\n");
    }

    std::string signedTime(size_t connection)
    {
        const std::string sent = received(connection);
        return sent.substr(sent.find("\r\nx-amz-date: ") + 14, 16);
    }

    /// Answers two parts that are on their way at once.
    void uploadTwoPartsAgainst(const std::string& firstAnswers)
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
                .send(firstAnswers);
        for (int i = 0; i < 2; ++i)
            answerPart(leastPart, stored(tagOf(m_first)));
        answerCompletion(completed("\"whole-2\""));
        auto end = std::async(std::launch::async, [this] { return upload(m_first + m_first); });
        while (
            server().connectionCount() < 3 && end.wait_for(std::chrono::milliseconds(1)) != std::future_status::ready) {
        }
        bothAreThere.set_value();
        EXPECT_EQ(end.get(), "\"whole-2\"");
    }
};

TEST_F(CS3ParallelUploadCorrectionTest, signsByTheStoresClock)
{
    answer(created("id"));
    answerPart(3, hoursLater(25));
    answerPart(3, stored(tagOf("end")));
    answerCompletion(completed("\"whole-1\""));
    EXPECT_EQ(upload("end"), "\"whole-1\"");
    EXPECT_LT(signedTime(1).substr(0, 8), signedTime(2).substr(0, 8)); // another day
    EXPECT_TRUE(received(2).ends_with("\r\n\r\nend"));
    EXPECT_EQ(signedTime(2).substr(0, 8), signedTime(3).substr(0, 8));
}

TEST_F(CS3ParallelUploadCorrectionTest, signsForTheRegionThatTheStoreNames)
{
    answer(created("id"));
    answerPart(3, answerWith(400, wrongRegion));
    answerPart(3, stored(tagOf("end")));
    answerCompletion(completed("\"whole-1\""));
    EXPECT_EQ(upload("end"), "\"whole-1\"");
    EXPECT_THAT(received(1), HasSubstr("/eu-north-1/s3/aws4_request"));
    EXPECT_THAT(received(2), HasSubstr("/eu-west-3/s3/aws4_request"));
}

TEST_F(CS3ParallelUploadCorrectionTest, signsAllPartsForTheRegionThatWereOnTheirWay)
{
    uploadTwoPartsAgainst(answerWith(400, wrongRegion));
}

TEST_F(CS3ParallelUploadCorrectionTest, signsAllPartsByTheStoresClockThatWereOnTheirWay)
{
    uploadTwoPartsAgainst(hoursLater(25));
}

TEST_F(CS3ParallelUploadCorrectionTest, countsACorrectionAsNoFailedAttempt)
{
    m_options.retries.attempts = 2;
    answer(created("id"));
    answerPart(3, answerWith(400, wrongRegion));
    answerPart(3, answerWith(503, errorDocument("SlowDown")));
    answerPart(3, stored(tagOf("end")));
    answerCompletion(completed("\"whole-1\""));
    EXPECT_EQ(upload("end"), "\"whole-1\"");
}

TEST_F(CS3ParallelUploadCorrectionTest, followsNoClockForEver)
{
    answer(created("id"));
    for (const int hours : {2, 4})
        answerPart(3, hoursLater(hours));
    answer("HTTP/1.1 204 Gone\r\nConnection: close\r\n\r\n");
    EXPECT_EQ(messageOf([this] { upload("end"); }), "Amazon S3 error: Because(RequestTimeTooSkewed)");
    EXPECT_THAT(requestLine(3), HasSubstr("DELETE "));
}

TEST_F(CS3ParallelUploadCorrectionTest, comesBackFromARegionWhoseHostIsNotThere)
{
    norla::CS3Endpoint endpoint = norla::CS3Endpoint::ceph(host(), false);
    endpoint.region = "0"; // the other one leads to 127.1.0.1, where nobody listens
    const auto credentials = kx::newObj<CNumberedCredentials>();
    const auto client = kx::newObj<norla::CS3Client>(endpoint, credentials.get());
    client->setMaxRetries(0);
    answer(created("id"));
    std::string moved = answerWith(301, "");
    moved.insert(moved.find("\r\n") + 2, "x-amz-bucket-region: 1\r\n");
    answerPart(3, moved);
    answer("HTTP/1.1 204 Gone\r\nConnection: close\r\n\r\n");
    EXPECT_THAT(messageOf([&] { upload(*client, "end"); }).toUTF8(), HasSubstr("127.1.0.1"));
    EXPECT_THAT(received(2), HasSubstr("/0/s3/aws4_request"));
    EXPECT_EQ(m_upload->getUploadId(), "");
}

} // namespace
