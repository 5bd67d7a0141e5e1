#include "tests/support/loopback.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

using support::CDescriptor;

namespace {

/// @return whether the socket can be bound to the port and then listen
bool canListen(const CDescriptor& socket, unsigned short port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0
        && listen(socket.get(), 1) == 0;
}

CDescriptor newSocket()
{
    return CDescriptor(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
}

TEST(LoopbackTest, reservedPortIsFreeForAServerThatReusesAddresses)
{
    const CDescriptor reserved = support::reserveOnLoopback();
    const unsigned short port = support::portOf(reserved.get());
    const CDescriptor server = newSocket();
    const int on = 1;
    ASSERT_EQ(setsockopt(server.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on), 0);
    EXPECT_TRUE(canListen(server, port));
    EXPECT_TRUE(support::connectToLoopback(port));
}

TEST(LoopbackTest, reservedPortIsTakenForOthers)
{
    const CDescriptor reserved = support::reserveOnLoopback();
    EXPECT_FALSE(canListen(newSocket(), support::portOf(reserved.get())));
}

} // namespace
