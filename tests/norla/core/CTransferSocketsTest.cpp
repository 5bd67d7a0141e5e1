#include "norla/core/CTransferSockets.h"

#include "norla/core/CEasyHandle.h"
#include "tests/curlcalls/CCurlCalls.h"
#include "tests/support/CDescriptor.h"
#include "tests/support/CFewDescriptors.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <sys/socket.h>

namespace {

using norla::COpenSockets;
using norla::CTransferSockets;

curl_socket_t openForApplication(void* /*data*/, curlsocktype /*purpose*/, curl_sockaddr* /*address*/)
{
    return CURL_SOCKET_BAD;
}

void* const applications = reinterpret_cast<void*>(&openForApplication); // also of those that close, which nobody calls

class CTransferSocketsTest : public testing::Test {
protected:
    CTransferSocketsTest()
    {
        m_others.tellOpenings([this](curl_socket_t) { m_isOpenedByOthers = true; });
    }

    /// As libcurl does.
    curl_socket_t open(int family = AF_INET) const
    {
        const auto function = reinterpret_cast<curl_opensocket_callback>(m_calls.pointerOf(CURLOPT_OPENSOCKETFUNCTION));
        curl_sockaddr address{};
        address.family = family;
        address.socktype = SOCK_STREAM;
        return function ? function(m_calls.pointerOf(CURLOPT_OPENSOCKETDATA), CURLSOCKTYPE_IPCXN, &address)
                        : CURL_SOCKET_BAD;
    }

    bool areOpenedByOthers()
    {
        m_isOpenedByOthers = false;
        const support::CDescriptor socket(open());
        return m_isOpenedByOthers;
    }

    void* closesFor() const { return m_calls.pointerOf(CURLOPT_CLOSESOCKETDATA); }

    support::CCurlCalls m_calls;
    COpenSockets m_others; // of a manager
    norla::CEasyHandle m_handle;
    CTransferSockets m_sockets{m_handle};

private:
    bool m_isOpenedByOthers = false;
};

TEST_F(CTransferSocketsTest, setsNothingBeforeATransfer)
{
    EXPECT_EQ(m_calls.pointerOf(CURLOPT_OPENSOCKETFUNCTION), nullptr);
    EXPECT_FALSE(m_sockets.hasOwnConnections());
}

TEST_F(CTransferSocketsTest, areTheRequestsOwnWhenItPerforms)
{
    m_sockets.useOwn();
    EXPECT_FALSE(areOpenedByOthers());
    EXPECT_NE(support::CDescriptor(open()).get(), CURL_SOCKET_BAD);
    EXPECT_NE(closesFor(), nullptr);
    EXPECT_TRUE(m_sockets.hasOwnConnections());
}

TEST_F(CTransferSocketsTest, areTheManagersWhenThatTakesTheRequest)
{
    m_sockets.use(m_others);
    EXPECT_TRUE(areOpenedByOthers());
    EXPECT_EQ(closesFor(), &m_others);
    EXPECT_FALSE(m_sockets.hasOwnConnections());
}

TEST_F(CTransferSocketsTest, changeWithTheCache)
{
    m_sockets.useOwn();
    m_sockets.use(m_others);
    EXPECT_TRUE(areOpenedByOthers());
    m_sockets.useOwn();
    EXPECT_FALSE(areOpenedByOthers());
}

TEST_F(CTransferSocketsTest, areToldOnceForManyTransfers)
{
    m_sockets.use(m_others);
    m_calls.failOption(CURLOPT_OPENSOCKETDATA);
    EXPECT_NO_THROW(m_sockets.use(m_others));
}

TEST_F(CTransferSocketsTest, areToldAgainWhenLibcurlHasTakenOnlySomeOfAnotherCaches)
{
    m_sockets.useOwn();
    void* const own = closesFor();
    m_calls.failOption(CURLOPT_CLOSESOCKETDATA);
    EXPECT_ANY_THROW(m_sockets.use(m_others));
    EXPECT_ANY_THROW(m_sockets.useOwn());
    m_calls.succeed();
    m_sockets.useOwn();
    EXPECT_EQ(closesFor(), own);
    EXPECT_FALSE(areOpenedByOthers());
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
    m_sockets.noticePointer(CURLOPT_OPENSOCKETFUNCTION, applications);
    m_sockets.use(m_others);
    EXPECT_EQ(m_calls.pointerOf(CURLOPT_OPENSOCKETFUNCTION), nullptr);
    EXPECT_EQ(closesFor(), nullptr); // what was not noted cannot be forgotten
}

TEST_F(CTransferSocketsTest, leaveTheApplicationsFunctionThatCloses)
{
    m_sockets.noticePointer(CURLOPT_CLOSESOCKETFUNCTION, applications);
    m_sockets.use(m_others);
    EXPECT_TRUE(areOpenedByOthers());
    EXPECT_EQ(closesFor(), nullptr);
}

TEST_F(CTransferSocketsTest, comeBackWhenTheApplicationTakesItsFunctionAway)
{
    m_sockets.noticePointer(CURLOPT_OPENSOCKETFUNCTION, applications);
    m_sockets.use(m_others);
    m_sockets.noticePointer(CURLOPT_OPENSOCKETFUNCTION, nullptr);
    m_sockets.use(m_others);
    EXPECT_TRUE(areOpenedByOthers());
    EXPECT_EQ(closesFor(), &m_others);
}

TEST_F(CTransferSocketsTest, doNotMindOtherOptions)
{
    m_sockets.use(m_others);
    m_sockets.noticePointer(CURLOPT_WRITEDATA, applications);
    m_calls.failOption(CURLOPT_OPENSOCKETDATA);
    EXPECT_NO_THROW(m_sockets.use(m_others));
}

TEST_F(CTransferSocketsTest, knowThatTheProcessMayHaveNoMore)
{
    m_sockets.use(m_others);
    {
        const support::CFewDescriptors none(0);
        EXPECT_EQ(open(), CURL_SOCKET_BAD);
    }
    EXPECT_EQ(m_sockets.getShortage(), EMFILE);
}

TEST_F(CTransferSocketsTest, areNoLongerShortOfOneWhenThereIsOne)
{
    m_sockets.use(m_others);
    {
        const support::CFewDescriptors none(0);
        open();
    }
    const support::CDescriptor socket(open());
    EXPECT_EQ(m_sockets.getShortage(), 0);
}

TEST_F(CTransferSocketsTest, areNotShortOfOneInTheNextTransfer)
{
    m_sockets.use(m_others);
    {
        const support::CFewDescriptors none(0);
        open();
    }
    m_sockets.use(m_others);
    EXPECT_EQ(m_sockets.getShortage(), 0);
}

TEST_F(CTransferSocketsTest, areNotShortOfAKindThatTheSystemDoesNotHave)
{
    m_sockets.use(m_others);
    EXPECT_EQ(open(AF_MAX), CURL_SOCKET_BAD);
    EXPECT_EQ(m_sockets.getShortage(), 0);
}

} // namespace
