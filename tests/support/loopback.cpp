#include "tests/support/loopback.h"

#include "tests/support/systemError.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace support {

namespace {

sockaddr_in loopbackAddress(unsigned short port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

CDescriptor newSocket()
{
    return CDescriptor(checked(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket"));
}

void bindToFreePort(int socket)
{
    const sockaddr_in address = loopbackAddress(0);
    checked(bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address), "bind to 127.0.0.1");
}

} // namespace

CDescriptor bindToLoopback()
{
    CDescriptor bound = newSocket();
    bindToFreePort(bound.get());
    return bound;
}

CDescriptor reserveOnLoopback()
{
    CDescriptor bound = newSocket();
    const int on = 1;
    checked(setsockopt(bound.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on), "SO_REUSEADDR");
    bindToFreePort(bound.get());
    return bound;
}

CDescriptor listenOnLoopback()
{
    CDescriptor listener = bindToLoopback();
    checked(listen(listener.get(), SOMAXCONN), "listen on 127.0.0.1");
    return listener;
}

unsigned short portOf(int socket)
{
    sockaddr_in address{};
    socklen_t size = sizeof address;
    checked(getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size), "getsockname");
    return ntohs(address.sin_port);
}

CDescriptor connectToLoopback(unsigned short port)
{
    CDescriptor connection = newSocket();
    const sockaddr_in address = loopbackAddress(port);
    if (connect(connection.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
        return connection;
    if (errno != ECONNREFUSED)
        throwSystemError("connect to 127.0.0.1:" + std::to_string(port));
    return CDescriptor();
}

std::string loopbackURL(std::string_view scheme, unsigned short port, std::string_view path)
{
    return std::string(scheme) + "://127.0.0.1:" + std::to_string(port) + std::string(path);
}

} // namespace support
