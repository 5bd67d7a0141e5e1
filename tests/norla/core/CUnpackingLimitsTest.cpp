#include "norla/core/CUnpackingLimits.h"

#include "norla/core/CEasyHandle.h"
#include "tests/curlcalls/CCurlCalls.h"
#include "tests/support/errorOf.h"

#include <gtest/gtest.h>

namespace {

using norla::CAcceptEncoding;
using norla::CUnpackingLimits;
using Texts = std::vector<std::string>;

class CUnpackingLimitsTest : public testing::Test {
protected:
    /// Whether so many bytes are taken, of which none have come yet.
    bool takes(long long size) { return m_limits.take(static_cast<size_t>(size)).isEmpty(); }

    support::CCurlCalls m_calls;
    norla::CEasyHandle m_handle;
    CUnpackingLimits m_limits{m_handle};
};

TEST_F(CUnpackingLimitsTest, limitsNothingAtFirst)
{
    EXPECT_TRUE(takes(1LL << 40));
    EXPECT_EQ(m_calls.takeOptions(), Texts());
}

TEST_F(CUnpackingLimitsTest, tellsLibcurlWhichEncodingsToAskFor)
{
    m_limits.set({.encodings = "GZIP , br"});
    EXPECT_EQ(m_calls.takeOptions(), Texts({"ACCEPT_ENCODING=GZIP , br"}));
}

TEST_F(CUnpackingLimitsTest, looksAtTheRatioBeyondTenMebibytes)
{
    m_limits.set({});
    EXPECT_TRUE(takes(CAcceptEncoding::ratioFrom));
    EXPECT_FALSE(takes(1));
}

TEST_F(CUnpackingLimitsTest, takesTheBlockForComeThatLibcurlHasNotCountedYet)
{
    m_limits.set({.maxRatio = 1000});
    EXPECT_TRUE(takes(CURL_MAX_WRITE_SIZE * 1000LL + 999));
    EXPECT_FALSE(takes(1));
}

TEST_F(CUnpackingLimitsTest, knowsThatTheBlocksAreLarger)
{
    m_limits.noticeNumber(CURLOPT_BUFFERSIZE, 100'000);
    m_limits.noticeNumber(CURLOPT_LOW_SPEED_LIMIT, 1);
    m_limits.set({.maxRatio = 1000});
    EXPECT_TRUE(takes(100'000'000));
    EXPECT_FALSE(takes(1000));
}

TEST_F(CUnpackingLimitsTest, refusesNegativeLimits)
{
    EXPECT_EQ(support::messageOf([this] { m_limits.set({.maxRatio = -1}); }),
        "Invalid argument passed to 'CNetRequest::setAcceptEncoding': the ratio -1 is negative.");
    EXPECT_EQ(support::messageOf([this] { m_limits.set({.maxSize = -2}); }),
        "Invalid argument passed to 'CNetRequest::setAcceptEncoding': the size -2 is negative.");
    EXPECT_EQ(m_calls.takeOptions(), Texts());
}

TEST_F(CUnpackingLimitsTest, forgetsWhatAResetForgets)
{
    m_limits.noticeNumber(CURLOPT_BUFFERSIZE, 100'000);
    m_limits.set({.maxSize = 1});
    m_limits.forgetOptions();
    EXPECT_TRUE(takes(2));
    m_limits.begin();
    m_limits.set({.maxRatio = 1000});
    EXPECT_FALSE(takes(100'000'000));
}

} // namespace
