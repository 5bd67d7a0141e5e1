#include "norla/core/COpenSockets.h"

#include "tests/norla/core/COpenSocketsFixture.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using norla::COpenSockets;

class COpenSocketsTest : public COpenSocketsFixture {};

TEST_F(COpenSocketsTest, opensWhatLibcurlAsksFor)
{
    const int socket = openSocket();
    ASSERT_GE(socket, 0);
    int type = 0;
    socklen_t size = sizeof(type);
    EXPECT_EQ(getsockopt(socket, SOL_SOCKET, SO_TYPE, &type, &size), 0);
    EXPECT_EQ(type, SOCK_STREAM);
    EXPECT_EQ(COpenSockets::onClose(&m_sockets, socket), 0);
}

// A server would not see the end of a connection, which may be the end of a file, as long as the program runs.
TEST_F(COpenSocketsTest, keepsSocketsFromProgramsThatAreStarted)
{
    const int socket = openSocket();
    EXPECT_EQ(fcntl(socket, F_GETFD), FD_CLOEXEC);
    COpenSockets::onClose(&m_sockets, socket);
}

TEST_F(COpenSocketsTest, tellsThatASocketCannotBeOpened)
{
    curl_sockaddr address{};
    address.family = AF_MAX;
    address.socktype = SOCK_STREAM;
    EXPECT_EQ(m_sockets.open(address), CURL_SOCKET_BAD);
}

TEST_F(COpenSocketsTest, closesTheSocket)
{
    const int socket = openSocket();
    COpenSockets::onClose(&m_sockets, socket);
    EXPECT_EQ(fcntl(socket, F_GETFD), -1);
}

TEST_F(COpenSocketsTest, readingEndsAtOnceAndSendingDoesNot)
{
    const int socket = connectedSocket();
    EXPECT_FALSE(isAtItsEnd(socket));
    m_sockets.stopReading();
    EXPECT_TRUE(isAtItsEnd(socket));
    EXPECT_EQ(send(socket, "QUIT", 4, MSG_NOSIGNAL), 4);
    std::array<char, 10> bytes{};
    EXPECT_EQ(read(m_peer.get(), bytes.data(), bytes.size()), 4);
    COpenSockets::onClose(&m_sockets, socket);
}

TEST_F(COpenSocketsTest, readingEndsForThoseThatCameLaterToo)
{
    COpenSockets::onClose(&m_sockets, connectedSocket());
    m_sockets.stopReading();
    const int later = connectedSocket();
    EXPECT_FALSE(isAtItsEnd(later));
    m_sockets.stopReading();
    EXPECT_TRUE(isAtItsEnd(later));
    COpenSockets::onClose(&m_sockets, later);
}

// libcurl closes a socket that was never connected without asking.
TEST_F(COpenSocketsTest, leavesASocketAloneThatHasTheNumberOfOneOfItsOwn)
{
    const int own = openSocket();
    std::array<int, 2> others{};
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, others.data()), 0);
    const support::CDescriptor first(others[0]);
    const support::CDescriptor second(others[1]);
    ASSERT_EQ(dup2(first.get(), own), own);
    m_sockets.stopReading();
    EXPECT_FALSE(isAtItsEnd(own));
    close(own);
}

TEST_F(COpenSocketsTest, leavesANumberAloneThatNobodyHasAnyMore)
{
    const int socket = openSocket();
    close(socket);
    m_sockets.stopReading();
    EXPECT_EQ(fcntl(socket, F_GETFD), -1);
}

TEST_F(COpenSocketsTest, hangsUpNoOtherConnection)
{
    const int socket = connectedSocket();
    const long port = support::portOf(socket);
    m_sockets.hangUp(port + 1, "127.0.0.1");
    m_sockets.hangUp(port, "127.0.0.2");
    EXPECT_FALSE(isAtItsEnd(socket));
    m_sockets.hangUp(port, "127.0.0.1");
    EXPECT_TRUE(isAtItsEnd(socket));
    COpenSockets::onClose(&m_sockets, socket);
}

TEST_F(COpenSocketsTest, knowsWhatItHasOpened)
{
    const int own = openSocket();
    EXPECT_TRUE(m_sockets.hasOpened(own));
    EXPECT_FALSE(m_sockets.hasOpened(own + 1));
    const support::CDescriptor listener = support::listenOnLoopback();
    ASSERT_EQ(dup2(listener.get(), own), own);
    EXPECT_FALSE(m_sockets.hasOpened(own));
    close(own);
}

TEST_F(COpenSocketsTest, forgetsWhatItHasClosed)
{
    const int socket = connectedSocket();
    const support::CDescriptor copy(dup(socket)); // the same socket, which would be known again
    COpenSockets::onClose(&m_sockets, socket);
    ASSERT_EQ(dup2(copy.get(), socket), socket);
    m_sockets.stopReading();
    EXPECT_FALSE(isAtItsEnd(socket));
    close(socket);
}

} // namespace
