#include "norla/core/CProgressCalls.h"

#include "norla/core/CEasyHandle.h"
#include "tests/curlcalls/CCurlCalls.h"

#include <gtest/gtest.h>

namespace {

using Texts = std::vector<std::string>;

int ownProgress(void* /*data*/, curl_off_t, curl_off_t, curl_off_t, curl_off_t)
{
    return 0;
}

int applicationsProgress(void* data, curl_off_t a, curl_off_t b, curl_off_t c, curl_off_t d)
{
    for (const curl_off_t number : {a, b, c, d})
        *static_cast<std::string*>(data) += std::to_string(number) + " ";
    return 7;
}

int oldCallback(void* data, double a, double b, double c, double d)
{
    for (const double number : {a, b, c, d})
        *static_cast<std::string*>(data) += std::to_string(static_cast<int>(number)) + " of old ";
    return 8;
}

class CProgressCallsTest : public testing::Test {
protected:
    static constexpr auto oldOption = static_cast<CURLoption>(CURLOPTTYPE_FUNCTIONPOINT + 56);

    int callApplications() { return m_progress.callApplications(1, 2, 3, 4); }

    void setApplications(CURLoption option, void* callback)
    {
        m_progress.noticePointer(option, callback);
        m_progress.noticePointer(CURLOPT_XFERINFODATA, &m_seen);
    }

    std::string m_seen;
    support::CCurlCalls m_calls;
    norla::CEasyHandle m_handle;
    norla::CProgressCalls m_progress{m_handle};
};

TEST_F(CProgressCallsTest, areSetWhenTheyAreUsed)
{
    m_calls.takeOptions();
    m_progress.use(&ownProgress, &m_seen);
    EXPECT_EQ(m_calls.takeOptions(), Texts({"XFERINFOFUNCTION=set", "XFERINFODATA=set", "NOPROGRESS=0"}));
    EXPECT_EQ(m_calls.pointerOf(CURLOPT_XFERINFODATA), &m_seen);
}

TEST_F(CProgressCallsTest, callNothingWhereTheApplicationWantsNoProgress)
{
    setApplications(CURLOPT_XFERINFOFUNCTION, reinterpret_cast<void*>(&applicationsProgress));
    EXPECT_EQ(callApplications(), 0);
    EXPECT_EQ(m_seen, "");
}

TEST_F(CProgressCallsTest, answerAsTheApplications)
{
    setApplications(CURLOPT_XFERINFOFUNCTION, reinterpret_cast<void*>(&applicationsProgress));
    m_progress.noticeNumber(CURLOPT_NOPROGRESS, 0);
    EXPECT_EQ(callApplications(), 7);
    EXPECT_EQ(m_seen, "1 2 3 4 ");
}

TEST_F(CProgressCallsTest, answerAsTheOldKindOfTheApplications)
{
    setApplications(oldOption, reinterpret_cast<void*>(&oldCallback));
    m_progress.noticeNumber(CURLOPT_NOPROGRESS, 0);
    EXPECT_EQ(callApplications(), 8);
    EXPECT_EQ(m_seen, "1 of old 2 of old 3 of old 4 of old ");
}

TEST_F(CProgressCallsTest, preferTheNewKindAsLibcurlDoes)
{
    setApplications(oldOption, reinterpret_cast<void*>(&oldCallback));
    setApplications(CURLOPT_XFERINFOFUNCTION, reinterpret_cast<void*>(&applicationsProgress));
    m_progress.noticeNumber(CURLOPT_NOPROGRESS, 0);
    EXPECT_EQ(callApplications(), 7);
}

TEST_F(CProgressCallsTest, letLibcurlShowItsOwnMeter)
{
    m_progress.noticeNumber(CURLOPT_NOPROGRESS, 0);
    EXPECT_EQ(callApplications(), CURL_PROGRESSFUNC_CONTINUE);
}

TEST_F(CProgressCallsTest, callNothingOnceProgressIsUnwantedAgain)
{
    m_progress.noticeNumber(CURLOPT_NOPROGRESS, 0);
    m_progress.noticeNumber(CURLOPT_VERBOSE, 0);
    m_progress.noticeNumber(CURLOPT_NOPROGRESS, 1);
    EXPECT_EQ(callApplications(), 0);
}

TEST_F(CProgressCallsTest, stayWholeWhereTheApplicationSetsOneHalf)
{
    std::string own;
    m_progress.use(&ownProgress, &own);
    m_handle.set(CURLOPT_XFERINFODATA, static_cast<void*>(&m_seen));
    m_progress.noticePointer(CURLOPT_XFERINFODATA, &m_seen);
    EXPECT_EQ(m_calls.pointerOf(CURLOPT_XFERINFODATA), &own);
    void* const applications = reinterpret_cast<void*>(&applicationsProgress);
    m_handle.set(CURLOPT_XFERINFOFUNCTION, applications);
    m_progress.noticePointer(CURLOPT_XFERINFOFUNCTION, applications);
    EXPECT_EQ(m_calls.pointerOf(CURLOPT_XFERINFOFUNCTION), reinterpret_cast<void*>(&ownProgress));
    m_progress.noticeNumber(CURLOPT_NOPROGRESS, 0);
    EXPECT_EQ(callApplications(), 7);
    EXPECT_EQ(m_seen, "1 2 3 4 ");
}

TEST_F(CProgressCallsTest, forgetTheApplicationsAtAReset)
{
    setApplications(CURLOPT_XFERINFOFUNCTION, reinterpret_cast<void*>(&applicationsProgress));
    m_progress.noticeNumber(CURLOPT_NOPROGRESS, 0);
    m_progress.forgetOptions();
    EXPECT_EQ(callApplications(), 0);
    m_progress.noticeNumber(CURLOPT_NOPROGRESS, 0);
    EXPECT_EQ(callApplications(), CURL_PROGRESSFUNC_CONTINUE);
}

} // namespace
