#include "tests/support/CBusyPort.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

namespace {

TEST(CBusyPortTest, neitherTakesNorRefusesConnections)
{
    const support::CBusyPort busy;
    const support::CDescriptor client(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(busy.getPort());
    EXPECT_NE(connect(client.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    pollfd waiting{.fd = client.get(), .events = POLLOUT, .revents = 0};
    EXPECT_EQ(poll(&waiting, 1, 200), 0);
    EXPECT_EQ(busy.url("/x"), "http://127.0.0.1:" + std::to_string(busy.getPort()) + "/x");
}

} // namespace
