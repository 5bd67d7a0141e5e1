#include "norla/core/CTransferSockets.h"

#include "norla/core/CEasyHandle.h"
#include "tests/curlcalls/CCurlCalls.h"

#include <gtest/gtest.h>

namespace {

using norla::COpenSockets;
using norla::CTransferSockets;

class CTransferSocketsTest : public testing::Test {
protected:
    void* opensFor() const { return m_calls.pointerOf(CURLOPT_OPENSOCKETDATA); }
    void* closesFor() const { return m_calls.pointerOf(CURLOPT_CLOSESOCKETDATA); }

    support::CCurlCalls m_calls;
    COpenSockets m_others; // of a manager
    norla::CEasyHandle m_handle;
    CTransferSockets m_sockets{m_handle};
};

TEST_F(CTransferSocketsTest, setsNothingBeforeATransfer)
{
    EXPECT_EQ(m_calls.pointerOf(CURLOPT_OPENSOCKETFUNCTION), nullptr);
    EXPECT_FALSE(m_sockets.hasOwnConnections());
}

TEST_F(CTransferSocketsTest, areTheRequestsOwnWhenItPerforms)
{
    m_sockets.useOwn();
    EXPECT_NE(opensFor(), nullptr);
    EXPECT_EQ(opensFor(), closesFor());
    EXPECT_TRUE(m_sockets.hasOwnConnections());
}

TEST_F(CTransferSocketsTest, areTheManagersWhenThatTakesTheRequest)
{
    m_sockets.use(m_others);
    EXPECT_EQ(opensFor(), &m_others);
    EXPECT_EQ(closesFor(), &m_others);
    EXPECT_FALSE(m_sockets.hasOwnConnections());
}

TEST_F(CTransferSocketsTest, changeWithTheCache)
{
    m_sockets.useOwn();
    m_sockets.use(m_others);
    EXPECT_EQ(opensFor(), &m_others);
    m_sockets.useOwn();
    EXPECT_NE(opensFor(), &m_others);
}

TEST_F(CTransferSocketsTest, areToldOnceForManyTransfers)
{
    m_sockets.use(m_others);
    m_calls.failOption(CURLOPT_OPENSOCKETDATA);
    EXPECT_NO_THROW(m_sockets.use(m_others));
}

TEST_F(CTransferSocketsTest, areToldAgainAfterAReset)
{
    m_sockets.use(m_others);
    m_sockets.forgetOptions();
    m_calls.failOption(CURLOPT_OPENSOCKETDATA);
    EXPECT_ANY_THROW(m_sockets.use(m_others));
}

TEST_F(CTransferSocketsTest, leaveTheApplicationsFunctionThatOpens)
{
    m_sockets.noticePointer(CURLOPT_OPENSOCKETFUNCTION, true);
    m_sockets.use(m_others);
    EXPECT_EQ(opensFor(), nullptr);
    EXPECT_EQ(closesFor(), nullptr); // what was not noted cannot be forgotten
}

TEST_F(CTransferSocketsTest, leaveTheApplicationsFunctionThatCloses)
{
    m_sockets.noticePointer(CURLOPT_CLOSESOCKETFUNCTION, true);
    m_sockets.use(m_others);
    EXPECT_EQ(opensFor(), &m_others);
    EXPECT_EQ(closesFor(), nullptr);
}

TEST_F(CTransferSocketsTest, comeBackWhenTheApplicationTakesItsFunctionAway)
{
    m_sockets.noticePointer(CURLOPT_OPENSOCKETFUNCTION, true);
    m_sockets.use(m_others);
    m_sockets.noticePointer(CURLOPT_OPENSOCKETFUNCTION, false);
    m_sockets.use(m_others);
    EXPECT_EQ(opensFor(), &m_others);
    EXPECT_EQ(closesFor(), &m_others);
}

TEST_F(CTransferSocketsTest, doNotMindOtherOptions)
{
    m_sockets.use(m_others);
    m_sockets.noticePointer(CURLOPT_WRITEDATA, true);
    m_calls.failOption(CURLOPT_OPENSOCKETDATA);
    EXPECT_NO_THROW(m_sockets.use(m_others));
}

} // namespace
