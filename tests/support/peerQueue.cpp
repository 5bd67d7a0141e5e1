#include "tests/support/peerQueue.h"

#include "tests/support/CDescriptor.h"
#include "tests/support/loopback.h"
#include "tests/support/systemError.h"

#include <array>
#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <linux/sockios.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
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

struct CQuestion {
    nlmsghdr header{};
    inet_diag_req_v2 request{};
};

struct CAnswer {
    nlmsghdr header{};
    inet_diag_msg message{};
    std::array<char, 256> attributes{}; // whichever the kernel adds
};

CQuestion aboutPeerOf(int socket)
{
    CQuestion question;
    question.header = {.nlmsg_len = sizeof question,
        .nlmsg_type = SOCK_DIAG_BY_FAMILY,
        .nlmsg_flags = NLM_F_REQUEST,
        .nlmsg_seq = 1,
        .nlmsg_pid = 0};
    question.request.sdiag_family = AF_INET;
    question.request.sdiag_protocol = IPPROTO_TCP;
    question.request.idiag_states = ~0U;
    inet_diag_sockid& id = question.request.id;
    id.idiag_sport = htons(peerPortOf(socket));
    id.idiag_dport = htons(portOf(socket));
    id.idiag_src[0] = id.idiag_dst[0] = htonl(INADDR_LOOPBACK);
    id.idiag_cookie[0] = id.idiag_cookie[1] = INET_DIAG_NOCOOKIE;
    return question;
}

} // namespace

// The kernel's table in /proc/net/tcp would say the same, behind the many thousand connections of other tests.
bool hasPeerReadEverything(int socket)
{
    if (!isUnsentEmpty(socket))
        return false;
    const CDescriptor kernel(
        checked(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_SOCK_DIAG), "socket(NETLINK_SOCK_DIAG)"));
    const CQuestion question = aboutPeerOf(socket);
    checked(send(kernel.get(), &question, sizeof question, 0), "send to NETLINK_SOCK_DIAG");
    CAnswer answer{};
    checked(recv(kernel.get(), &answer, sizeof answer, 0), "recv from NETLINK_SOCK_DIAG");
    const bool isThere
        = answer.header.nlmsg_type == SOCK_DIAG_BY_FAMILY && answer.message.idiag_state == TCP_ESTABLISHED;
    return !isThere || answer.message.idiag_rqueue == 0;
}

} // namespace support
