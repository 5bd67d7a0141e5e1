#include "norla/files/downloadAnswer.h"

#include "kx/base/CError.h"
#include "tests/support/errorOf.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

using norla::AnswerVerdict;
using norla::CKnownResource;
using HeaderMap = norla::CNetRequest::HeaderMap;

constexpr long long announcedNothing = -1;

class DownloadAnswerTest : public testing::Test {
protected:
    AnswerVerdict judge(int status, const HeaderMap& headers, long long announced = announcedNothing)
    {
        const norla::CDownloadAnswer answer{.status = status,
            .headers = headers,
            .announced = announced < 0 ? std::nullopt : std::optional(announced),
            .fileTime = m_fileTime};
        return norla::judgeAnswer(m_asked, answer, m_known);
    }

    std::string errorOf(int status, const HeaderMap& headers, long long announced = announcedNothing)
    {
        try {
            judge(status, headers, announced);
        } catch (const kx::CError& error) {
            return error.what();
        }
        return "";
    }

    /// The bytes 100 to 199 of 1000 are asked for.
    void askForPart()
    {
        m_asked = {.start = 100, .end = 200, .isPart = true};
        m_known.isKnown = true;
        m_known.validators.eTag = "\"v1\"";
        m_known.total = 1000;
    }

    /// All from byte 100 on.
    void askForRest()
    {
        askForPart();
        m_asked.end.reset();
    }

    norla::CAskedPart m_asked;
    CKnownResource m_known;
    long long m_fileTime = -1;
};

TEST_F(DownloadAnswerTest, theFirstOneTellsWhatTheResourceIs)
{
    m_fileTime = 784111777;
    const HeaderMap headers{{"etag", "\"v1\""}, {"accept-ranges", "bytes"},
        {"last-modified", "Sun, 06 Nov 1994 08:49:37 GMT"}, {"date", "Sun, 06 Nov 1994 08:50:37 GMT"}};
    EXPECT_EQ(judge(200, headers, 1000), AnswerVerdict::Fits);
    EXPECT_TRUE(m_known.isKnown);
    EXPECT_EQ(m_known.validators.eTag, "\"v1\"");
    EXPECT_EQ(m_known.validators.lastModified, "Sun, 06 Nov 1994 08:49:37 GMT");
    EXPECT_EQ(m_known.total, 1000);
    EXPECT_TRUE(m_known.takesRanges);
    EXPECT_EQ(m_known.modified, 784111777);
}

TEST_F(DownloadAnswerTest, aWeakETagProvesNothing)
{
    judge(200, {{"etag", "W/\"v1\""}}, 1000);
    EXPECT_FALSE(m_known.validators.areStrong(m_known.total));
}

TEST_F(DownloadAnswerTest, aTimeOfTheLastMinuteProvesNothing)
{
    judge(200, {{"last-modified", "Sun, 06 Nov 1994 08:49:38 GMT"}, {"date", "Sun, 06 Nov 1994 08:50:37 GMT"}}, 1000);
    EXPECT_FALSE(m_known.validators.areStrong(m_known.total));
}

TEST_F(DownloadAnswerTest, aTimeProvesNothingWithoutTheServersClock)
{
    judge(200, {{"last-modified", "Sun, 06 Nov 1994 08:49:38 GMT"}}, 1000);
    EXPECT_FALSE(m_known.validators.areStrong(m_known.total));
}

TEST_F(DownloadAnswerTest, aPartThatNobodyAskedForIsAnError)
{
    EXPECT_EQ(errorOf(206, {{"content-range", "bytes 0-9/1000"}}),
        "The server was asked for the whole file and gave something else: status 206.");
    EXPECT_NE(errorOf(204, {}), "");
}

TEST_F(DownloadAnswerTest, thePartThatWasAskedForFits)
{
    askForPart();
    EXPECT_EQ(judge(206, {{"etag", "\"v1\""}, {"content-range", "bytes 100-199/1000"}}, 100), AnswerVerdict::Fits);
    EXPECT_TRUE(m_known.takesRanges);
}

TEST_F(DownloadAnswerTest, thePartMayEndEarlier)
{
    askForPart();
    EXPECT_EQ(judge(206, {{"etag", "\"v1\""}, {"content-range", "bytes 100-149/1000"}}, 50), AnswerVerdict::Fits);
}

TEST_F(DownloadAnswerTest, aPartTellsTheSizeThatWasNotKnown)
{
    askForRest();
    m_known.total.reset();
    EXPECT_EQ(judge(206, {{"etag", "\"v1\""}, {"content-range", "bytes 100-999/1000"}}), AnswerVerdict::Fits);
    EXPECT_EQ(m_known.total, 1000);
}

TEST_F(DownloadAnswerTest, otherPartsAreErrorsThatNameThem)
{
    askForPart();
    for (const kx::String& range :
        kx::TArray<kx::String>{"bytes 101-199/1000", "bytes 99-199/1000", "bytes 100-200/1000", "bytes 100-99/1000",
            "bytes 100-199/150", "pages 100-199/1000", "bytes */1000", "nonsense", ""})
        EXPECT_EQ(errorOf(206, {{"etag", "\"v1\""}, {"content-range", range}}),
            "The server was asked for the bytes 100-199 and gave something else: Content-Range '" + range.toUTF8()
                + "'.");
}

TEST_F(DownloadAnswerTest, aRestThatEndsBeforeTheEndIsAnError)
{
    askForRest();
    EXPECT_EQ(errorOf(206, {{"etag", "\"v1\""}, {"content-range", "bytes 100-998/1000"}}),
        "The server was asked for the bytes 100- and gave something else: Content-Range 'bytes 100-998/1000'.");
}

TEST_F(DownloadAnswerTest, aLengthThatIsNotTheRangesIsAnError)
{
    askForPart();
    EXPECT_NE(errorOf(206, {{"etag", "\"v1\""}, {"content-range", "bytes 100-199/1000"}}, 101), "");
}

TEST_F(DownloadAnswerTest, numbersBeyondAllFilesAreOtherPartsToo)
{
    askForRest();
    m_known.total.reset();
    EXPECT_NE(errorOf(206, {{"etag", "\"v1\""}, {"content-range", "bytes 0-9223372036854775807/*"}}, 1), "");
    EXPECT_NE(errorOf(206, {{"etag", "\"v1\""}, {"content-range", "bytes -9223372036854775808-1/*"}}, 1), "");
    EXPECT_NE(errorOf(206, {{"etag", "\"v1\""}, {"content-range", "bytes 100-9223372036854775807/*"}}, 1), "");
    EXPECT_NE(errorOf(206, {{"etag", "\"v1\""}, {"content-range", "bytes 100-199/-9223372036854775808"}}, 1), "");
}

TEST_F(DownloadAnswerTest, aSizeBeyondAllFilesStartsAnewOverOtherProtocols)
{
    askForRest();
    m_known.validators = {};
    m_known.validators.fileTime = 784111777;
    m_fileTime = 784111777;
    EXPECT_EQ(judge(-1, {}, std::numeric_limits<long long>::max()), AnswerVerdict::StartAnew);
}

TEST_F(DownloadAnswerTest, anotherETagStartsAnew)
{
    askForPart();
    EXPECT_EQ(judge(206, {{"etag", "\"v2\""}, {"content-range", "bytes 100-199/1000"}}), AnswerVerdict::StartAnew);
    EXPECT_EQ(judge(206, {{"content-range", "bytes 100-199/1000"}}), AnswerVerdict::StartAnew);
}

TEST_F(DownloadAnswerTest, anotherSizeStartsAnew)
{
    askForPart();
    EXPECT_EQ(judge(206, {{"etag", "\"v1\""}, {"content-range", "bytes 100-199/1001"}}), AnswerVerdict::StartAnew);
}

TEST_F(DownloadAnswerTest, aTimeNeedNotBeToldOnceMore)
{
    askForPart();
    m_known.validators = {.eTag = {}, .lastModified = "Sun, 06 Nov 1994 08:49:37 GMT", .fileTime = -1};
    const kx::String range = "bytes 100-199/1000";
    EXPECT_EQ(judge(206, {{"content-range", range}}), AnswerVerdict::Fits);
    EXPECT_EQ(judge(206, {{"content-range", range}, {"last-modified", "Sun, 06 Nov 1994 08:49:37 GMT"}}),
        AnswerVerdict::Fits);
    EXPECT_EQ(judge(206, {{"content-range", range}, {"last-modified", "Sun, 06 Nov 1994 08:49:38 GMT"}}),
        AnswerVerdict::StartAnew);
}

TEST_F(DownloadAnswerTest, theWholeInPlaceOfAPartStartsAnew)
{
    askForPart();
    EXPECT_EQ(judge(200, {{"etag", "\"v1\""}}), AnswerVerdict::StartAnew);
    EXPECT_EQ(judge(200, {{"last-modified", "Sun, 06 Nov 1994 08:49:37 GMT"}}), AnswerVerdict::StartAnew);
}

TEST_F(DownloadAnswerTest, aPageInPlaceOfAPartIsAnError)
{
    askForPart();
    EXPECT_EQ(errorOf(200, {{"content-type", "text/html"}}),
        "The server was asked for the bytes 100-199 and gave something else: status 200.");
}

TEST_F(DownloadAnswerTest, overOtherProtocolsSizeAndTimeMustAgree)
{
    askForRest();
    m_known.validators = {.eTag = {}, .lastModified = {}, .fileTime = 5};
    m_fileTime = 5;
    EXPECT_EQ(judge(-1, {}, 900), AnswerVerdict::Fits);
    EXPECT_EQ(judge(-1, {}, 901), AnswerVerdict::StartAnew);
    EXPECT_EQ(judge(-1, {}), AnswerVerdict::StartAnew);
    m_fileTime = 6;
    EXPECT_EQ(judge(-1, {}, 900), AnswerVerdict::StartAnew);
}

} // namespace
