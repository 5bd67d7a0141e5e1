#include "tests/support/peerQueue.h"

#include "tests/support/loopback.h"
#include "tests/support/systemError.h"

#include <array>
#include <cstdio>
#include <fstream>
#include <linux/sockios.h>
#include <netinet/in.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace support {

namespace {

/// @return 0 if the peer is gone
unsigned short peerPortOf(int socket)
{
    sockaddr_in address{};
    socklen_t size = sizeof address;
    if (getpeername(socket, reinterpret_cast<sockaddr*>(&address), &size) == -1)
        return 0;
    return ntohs(address.sin_port);
}

bool isUnsentEmpty(int socket)
{
    int unsent = 0;
    checked(ioctl(socket, SIOCOUTQ, &unsent), "SIOCOUTQ");
    return unsent == 0;
}

} // namespace

bool hasPeerReadEverything(int socket)
{
    if (!isUnsentEmpty(socket))
        return false;
    // Each line of the kernel's table starts "slot: LOCAL:PORT REMOTE:PORT STATE UNSENT:UNREAD", all in hexadecimal.
    std::array<char, 64> ports{};
    std::snprintf(ports.data(), ports.size(), "0100007F:%04X 0100007F:%04X 01 ", unsigned{peerPortOf(socket)},
        unsigned{portOf(socket)});
    std::ifstream table("/proc/net/tcp");
    for (std::string line; std::getline(table, line);) {
        const size_t unread = line.find(':', line.find(" 01 "));
        if (line.find(ports.data()) != std::string::npos && unread != std::string::npos)
            return line.compare(unread + 1, 8, "00000000") == 0;
    }
    return true;
}

} // namespace support
