#include "norla/core/CTransferLimits.h"

#include "norla/core/CEasyHandle.h"
#include "norla/core/CTransferRecord.h"
#include "tests/curlcalls/CCurlCalls.h"

#include <gtest/gtest.h>

#include <chrono>
#include <limits>
#include <optional>

namespace {

using norla::CTransferLimits;
using norla::TransferLimit;
using norla::TransferPhase;

class CTransferLimitsTest : public testing::Test {
protected:
    CTransferLimitsTest()
    {
        m_limits.noticeNumber(CURLOPT_CONNECTTIMEOUT_MS, 1500);
        m_limits.noticeNumber(CURLOPT_LOW_SPEED_TIME, 1);
        m_limits.noticeNumber(CURLOPT_TIMEOUT_MS, 60'000);
    }

    std::string text(TransferLimit limit, TransferPhase phase, const kx::String& proxy = "") const
    {
        return m_limits.describe({.phase = phase, .limit = limit, .host = "host:80", .proxy = proxy}).toUTF8();
    }

    void limit(int milliseconds) { m_limits.limitUntil(m_now + std::chrono::milliseconds(milliseconds)); }

    /// A transfer begins so much later.
    std::optional<long long> begin(int milliseconds = 0)
    {
        m_now += std::chrono::milliseconds(milliseconds);
        return m_limits.begin(m_now);
    }

    CTransferLimits m_limits;
    CTransferLimits::Clock::time_point m_now;
};

TEST_F(CTransferLimitsTest, saysHowFarTheConnectionCame)
{
    using enum TransferPhase;
    constexpr auto connect = TransferLimit::Connect;
    EXPECT_EQ(text(connect, NameLookup), "The name lookup for host:80 was not done within 1.5 seconds.");
    EXPECT_EQ(text(connect, Connect), "The server host:80 did not accept a connection within 1.5 seconds.");
    EXPECT_EQ(text(connect, Encryption),
        "The server host:80 accepted a connection, but agreed on no encryption within 1.5 seconds.");
    EXPECT_EQ(text(connect, Login),
        "The server host:80 accepted a connection, but was not done with greeting and login within 1.5 seconds.");
}

TEST_F(CTransferLimitsTest, saysWhoWasSilent)
{
    constexpr auto inactivity = TransferLimit::Inactivity;
    EXPECT_EQ(text(inactivity, TransferPhase::Waiting), "The server host:80 has not answered for 1 second.");
    EXPECT_EQ(text(inactivity, TransferPhase::Receiving), "The server host:80 has sent nothing more for 1 second.");
    EXPECT_EQ(text(inactivity, TransferPhase::Sending),
        "Nothing could be sent to the server host:80 for 1 second, and it has not answered.");
}

TEST_F(CTransferLimitsTest, theLongestSilenceIsThatOfAConnectionAndTheOneBehindIt)
{
    EXPECT_EQ(m_limits.getLongestSilence(), 1500 + 1000);
    m_limits.noticeNumber(CURLOPT_CONNECTTIMEOUT_MS, 0);
    EXPECT_EQ(m_limits.getLongestSilence(), 300'000 + 1000) << "libcurl's own limit for a connection";
    m_limits.noticeNumber(CURLOPT_LOW_SPEED_TIME, 0);
    EXPECT_EQ(m_limits.getLongestSilence(), 0);
}

TEST_F(CTransferLimitsTest, saysWhatTookTooLong)
{
    using enum TransferPhase;
    const std::string start = "The transfer with host:80 was not done within 60 seconds: ";
    constexpr auto total = TransferLimit::Total;
    EXPECT_EQ(text(total, NameLookup), start + "the name was still being looked up.");
    EXPECT_EQ(text(total, Connect), start + "the server did not accept a connection.");
    EXPECT_EQ(text(total, Encryption), start + "the server accepted a connection, but agreed on no encryption.");
    EXPECT_EQ(text(total, Login), start + "the server was not done with greeting and login.");
    EXPECT_EQ(text(total, Sending), start + "it was still being sent.");
    EXPECT_EQ(text(total, Waiting), start + "the server had not answered.");
    EXPECT_EQ(text(total, Receiving), start + "the answer was still coming.");
}

TEST_F(CTransferLimitsTest, namesTheProxyUntilTheServerHasAnswered)
{
    using enum TransferPhase;
    const auto proxied = [this](TransferLimit limit, TransferPhase phase) { return text(limit, phase, "p:8080"); };
    const std::string way = " through the proxy p:8080";
    EXPECT_EQ(proxied(TransferLimit::Connect, Connect),
        "No connection to the server host:80 was made" + way + " within 1.5 seconds.");
    EXPECT_EQ(proxied(TransferLimit::Connect, Encryption),
        "The server host:80 accepted a connection" + way + ", but agreed on no encryption within 1.5 seconds.");
    EXPECT_EQ(
        proxied(TransferLimit::Inactivity, Waiting), "The server host:80 has not answered" + way + " for 1 second.");
    EXPECT_EQ(proxied(TransferLimit::Inactivity, Sending),
        "Nothing could be sent to the server host:80" + way + " for 1 second, and it has not answered.");
    EXPECT_EQ(proxied(TransferLimit::Inactivity, Receiving), "The server host:80 has sent nothing more for 1 second.");
    const std::string start = "The transfer with host:80 was not done within 60 seconds: ";
    EXPECT_EQ(proxied(TransferLimit::Total, Connect), start + "no connection was made" + way + ".");
    EXPECT_EQ(proxied(TransferLimit::Total, Encryption),
        start + "the server accepted a connection" + way + ", but agreed on no encryption.");
    EXPECT_EQ(proxied(TransferLimit::Total, Sending), start + "it was still being sent" + way + ".");
    EXPECT_EQ(proxied(TransferLimit::Total, Waiting), start + "the server had not answered" + way + ".");
}

TEST_F(CTransferLimitsTest, isReachedTwoMillisecondsEarlierSinceLibcurlRounds)
{
    support::CCurlCalls calls;
    const norla::CEasyHandle handle;
    const norla::CTransferRecord record(handle);
    const auto limitAfter = [&](long long microseconds) {
        calls.setInfo(CURLINFO_TOTAL_TIME_T, microseconds);
        calls.setInfo(CURLINFO_REDIRECT_TIME_T, microseconds); // the last hop has just begun
        return m_limits.findReached(record, TransferPhase::Connect);
    };
    EXPECT_EQ(limitAfter(59'997'999), TransferLimit::None);
    EXPECT_EQ(limitAfter(59'998'000), TransferLimit::Total);
}

TEST_F(CTransferLimitsTest, saysNothingOfNoLimit)
{
    EXPECT_EQ(text(TransferLimit::None, TransferPhase::Waiting), "");
}

TEST_F(CTransferLimitsTest, timeThatIsLeftCountsWhereItIsShorter)
{
    limit(300);
    EXPECT_EQ(begin(), 300);
    EXPECT_NE(text(TransferLimit::Total, TransferPhase::Waiting).find("within 0.3 seconds"), std::string::npos);
}

TEST_F(CTransferLimitsTest, timeThatIsLeftGrowsShorterFromTransferToTransfer)
{
    limit(300);
    EXPECT_EQ(begin(), 300);
    EXPECT_EQ(begin(), std::nullopt);
    EXPECT_EQ(begin(100), 200);
    EXPECT_EQ(begin(1000), 1) << "0 would be no limit";
}

TEST_F(CTransferLimitsTest, timeThatIsLongerChangesNothing)
{
    limit(60'001);
    EXPECT_EQ(begin(), std::nullopt);
}

TEST_F(CTransferLimitsTest, timeThatIsLeftIsNoMoreThanLibcurlTakes)
{
    m_limits.noticeNumber(CURLOPT_TIMEOUT, 0);
    m_limits.limitUntil(CTransferLimits::Clock::time_point::max());
    EXPECT_EQ(begin(), std::numeric_limits<int>::max());
}

TEST_F(CTransferLimitsTest, timeThatIsLeftCountsWhereNoLimitIsSet)
{
    m_limits.noticeNumber(CURLOPT_TIMEOUT, 0);
    limit(300);
    EXPECT_EQ(begin(), 300);
}

TEST_F(CTransferLimitsTest, timeThatIsLeftMayBeTakenBack)
{
    limit(300);
    EXPECT_EQ(begin(), 300);
    m_limits.limitUntil(std::nullopt);
    EXPECT_EQ(begin(), 60'000);
    EXPECT_EQ(begin(), std::nullopt);
}

TEST_F(CTransferLimitsTest, timeThatIsLeftStaysBehindForgottenOptions)
{
    limit(300);
    EXPECT_EQ(begin(), 300);
    m_limits.forgetOptions();
    EXPECT_EQ(begin(), 300) << "libcurl knows no longer";
}

TEST_F(CTransferLimitsTest, limitThatIsSetBehindAShorterOneIsTold)
{
    limit(300);
    EXPECT_EQ(begin(), 300);
    m_limits.noticeNumber(CURLOPT_TIMEOUT_MS, 500); // as libcurl was
    EXPECT_EQ(begin(), 300);
}

TEST_F(CTransferLimitsTest, timeIsReadable)
{
    const auto timeOf = [this](CURLoption option, long long value) {
        m_limits.noticeNumber(option, value);
        const std::string sentence = text(TransferLimit::Total, TransferPhase::Waiting);
        const size_t start = sentence.find("within ") + 7;
        return sentence.substr(start, sentence.find(':', start) - start);
    };
    EXPECT_EQ(timeOf(CURLOPT_TIMEOUT, 1), "1 second");
    EXPECT_EQ(timeOf(CURLOPT_TIMEOUT, 90), "90 seconds");
    EXPECT_EQ(timeOf(CURLOPT_TIMEOUT_MS, 250), "0.25 seconds");
    EXPECT_EQ(timeOf(CURLOPT_TIMEOUT_MS, 1001), "1.001 seconds");
}

TEST_F(CTransferLimitsTest, forgetsWithTheOptions)
{
    m_limits.speak();
    EXPECT_TRUE(m_limits.doesSpeak());
    m_limits.forgetOptions();
    EXPECT_FALSE(m_limits.doesSpeak());
    EXPECT_EQ(text(TransferLimit::Connect, TransferPhase::Connect),
        "The server host:80 did not accept a connection within 0 seconds.");
}

} // namespace
