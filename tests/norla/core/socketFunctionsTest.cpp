// Sockets that the application opens and closes itself, and those that the library does.
#include "tests/curlcalls/CCurlCalls.h"
#include "tests/norla/core/CRequestFixture.h"

#include <sys/socket.h>
#include <unistd.h>

namespace {

/// How often the application was asked.
struct CAsked {
    int opened = 0;
    int closed = 0;
};

curl_socket_t openSocket(void* asked, curlsocktype /*purpose*/, curl_sockaddr* address)
{
    ++static_cast<CAsked*>(asked)->opened;
    return socket(address->family, address->socktype, address->protocol);
}

int closeSocket(void* asked, curl_socket_t socket)
{
    ++static_cast<CAsked*>(asked)->closed;
    return close(socket);
}

void* pointerTo(curl_socket_t (*function)(void*, curlsocktype, curl_sockaddr*))
{
    return reinterpret_cast<void*>(function);
}

class SocketFunctionsTest : public CRequestFixture {
protected:
    void setOpening()
    {
        request().setOptionPtr(CURLOPT_OPENSOCKETFUNCTION, pointerTo(&openSocket));
        request().setOptionPtr(CURLOPT_OPENSOCKETDATA, &m_asked);
    }

    void setClosing()
    {
        request().setOptionPtr(CURLOPT_CLOSESOCKETFUNCTION, reinterpret_cast<void*>(&closeSocket));
        request().setOptionPtr(CURLOPT_CLOSESOCKETDATA, &m_asked);
    }

    /// A transfer whose connection is closed behind it.
    void transfer()
    {
        answer(ok("x", "Connection: close\r\n"));
        performPath();
    }

    CAsked m_asked;
    support::CCurlCalls m_calls;
};

TEST_F(SocketFunctionsTest, theApplicationsOwnAreAsked)
{
    setOpening();
    setClosing();
    transfer();
    transfer();
    EXPECT_EQ(m_asked.opened, 2);
    EXPECT_EQ(m_asked.closed, 2);
}

TEST_F(SocketFunctionsTest, theApplicationsOwnAreAskedFromTheNextTransferOn)
{
    transfer();
    setOpening();
    setClosing();
    transfer();
    EXPECT_EQ(m_asked.opened, 1);
    EXPECT_EQ(m_asked.closed, 1);
}

TEST_F(SocketFunctionsTest, theLibrarysOwnStayWhereTheApplicationHasDataAlone)
{
    transfer();
    for (const CURLoption option : {CURLOPT_OPENSOCKETDATA, CURLOPT_CLOSESOCKETDATA}) {
        void* const own = m_calls.pointerOf(option);
        request().setOptionPtr(option, &m_asked);
        ASSERT_EQ(m_calls.pointerOf(option), own);
    }
    transfer();
    EXPECT_EQ(m_asked.opened + m_asked.closed, 0);
}

TEST_F(SocketFunctionsTest, theApplicationsOwnHaveTheDataThatWereSetBeforeThem)
{
    request().setOptionPtr(CURLOPT_OPENSOCKETDATA, &m_asked);
    request().setOptionPtr(CURLOPT_CLOSESOCKETDATA, &m_asked);
    transfer();
    request().setOptionPtr(CURLOPT_OPENSOCKETFUNCTION, pointerTo(&openSocket));
    request().setOptionPtr(CURLOPT_CLOSESOCKETFUNCTION, reinterpret_cast<void*>(&closeSocket));
    ASSERT_EQ(m_calls.pointerOf(CURLOPT_OPENSOCKETDATA), &m_asked);
    ASSERT_EQ(m_calls.pointerOf(CURLOPT_CLOSESOCKETDATA), &m_asked);
    transfer();
    EXPECT_EQ(m_asked.opened, 1);
    EXPECT_EQ(m_asked.closed, 1);
}

TEST_F(SocketFunctionsTest, oneThatOnlyClosesIsAskedForSocketsThatItHasNotOpened)
{
    setClosing();
    transfer();
    EXPECT_EQ(m_asked.closed, 1);
}

TEST_F(SocketFunctionsTest, closingIsLibcurlsWhereOnlyTheOpeningIsTheApplications)
{
    transfer();
    EXPECT_NE(m_calls.pointerOf(CURLOPT_CLOSESOCKETFUNCTION), nullptr);
    setOpening();
    transfer();
    EXPECT_EQ(m_asked.opened, 1);
    EXPECT_EQ(m_calls.pointerOf(CURLOPT_CLOSESOCKETFUNCTION), nullptr);
    EXPECT_EQ(m_calls.pointerOf(CURLOPT_CLOSESOCKETDATA), nullptr);
}

TEST_F(SocketFunctionsTest, theLibrarysOwnComeBackWhenTheApplicationTakesItsOwnBack)
{
    setOpening();
    setClosing();
    transfer();
    request().setOptionPtr(CURLOPT_OPENSOCKETFUNCTION, nullptr);
    request().setOptionPtr(CURLOPT_CLOSESOCKETFUNCTION, nullptr);
    transfer();
    EXPECT_EQ(m_asked.opened, 1);
    EXPECT_EQ(m_asked.closed, 1);
    EXPECT_NE(m_calls.pointerOf(CURLOPT_OPENSOCKETFUNCTION), nullptr);
    EXPECT_NE(m_calls.pointerOf(CURLOPT_CLOSESOCKETFUNCTION), nullptr);
}

TEST_F(SocketFunctionsTest, theLibrarysOwnComeBackAfterAReset)
{
    setOpening();
    setClosing();
    transfer();
    request().reset();
    transfer();
    EXPECT_EQ(m_asked.opened, 1);
    EXPECT_NE(m_calls.pointerOf(CURLOPT_OPENSOCKETFUNCTION), pointerTo(&openSocket));
    EXPECT_NE(m_calls.pointerOf(CURLOPT_CLOSESOCKETFUNCTION), reinterpret_cast<void*>(&closeSocket));
}

} // namespace
