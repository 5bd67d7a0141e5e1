#include "norla/core/COpenSockets.h"

#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <exception>
#include <mutex>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace norla {

namespace {

/// Of the socket itself; 0 when it has none.
long portOf(curl_socket_t socket) noexcept
{
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    if (getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size) != 0)
        return 0;
    if (address.ss_family == AF_INET)
        return ntohs(reinterpret_cast<const sockaddr_in&>(address).sin_port);
    return address.ss_family == AF_INET6 ? ntohs(reinterpret_cast<const sockaddr_in6&>(address).sin6_port) : 0;
}

bool isConnectedTo(curl_socket_t socket, std::string_view peer) noexcept
{
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    if (getpeername(socket, reinterpret_cast<sockaddr*>(&address), &size) != 0)
        return false;
    const bool isIPv4 = address.ss_family == AF_INET;
    const void* const bytes = isIPv4 ? static_cast<const void*>(&reinterpret_cast<const sockaddr_in&>(address).sin_addr)
                                     : &reinterpret_cast<const sockaddr_in6&>(address).sin6_addr;
    std::array<char, INET6_ADDRSTRLEN> text{};
    return inet_ntop(isIPv4 ? AF_INET : AF_INET6, bytes, text.data(), text.size()) && peer == text.data();
}

} // namespace

bool COpenSockets::hasOpened(curl_socket_t socket) const noexcept
{
    const auto found = m_sockets.find(socket);
    CIdentity current{};
    return found != m_sockets.end() && identify(socket, current) && current == found->second;
}

void COpenSockets::stopReading() noexcept
{
    const std::lock_guard lock(m_mutex);
    if (!std::exchange(m_hasReading, false))
        return; // it is asked for each of many transfers
    for (const auto& known : m_sockets) {
        if (hasOpened(known.first))
            shutdown(known.first, SHUT_RD); // fails where the server has closed already, which is as good
    }
}

// Of two connections from the same port the other one goes elsewhere.
void COpenSockets::hangUp(long localPort, std::string_view peerAddress) const noexcept
{
    for (const auto& known : m_sockets) {
        if (localPort > 0 && portOf(known.first) == localPort && isConnectedTo(known.first, peerAddress)
            && hasOpened(known.first))
            shutdown(known.first, SHUT_RDWR);
    }
}

void COpenSockets::keepForEver(std::unique_ptr<COpenSockets> sockets) noexcept
{
    static std::mutex mutex;
    static const COpenSockets* last = nullptr;
    const std::lock_guard lock(mutex);
    sockets->m_keptBefore = last;
    last = sockets.release();
}

curl_socket_t COpenSockets::open(const curl_sockaddr& address) noexcept
{
    const curl_socket_t socket = ::socket(address.family, address.socktype | SOCK_CLOEXEC, address.protocol);
    if (socket == CURL_SOCKET_BAD)
        return socket;
    if (!note(socket)) {
        close(socket);
        errno = ENOMEM;
        return CURL_SOCKET_BAD;
    }
    if (m_onOpening)
        m_onOpening(socket);
    return socket;
}

int COpenSockets::onClose(void* sockets, curl_socket_t socket) noexcept
{
    auto& self = *static_cast<COpenSockets*>(sockets);
    if (self.m_onClosing)
        self.m_onClosing(socket);
    const std::lock_guard lock(self.m_mutex); // the number is another one's from here on
    self.m_sockets.erase(socket);
    return close(socket);
}

bool COpenSockets::identify(curl_socket_t socket, CIdentity& identity) noexcept
{
    struct stat status {};
    if (fstat(socket, &status) != 0)
        return false;
    identity = {status.st_dev, status.st_ino};
    return true;
}

// One that cannot be noted for want of memory is not used: its end would wait for what the server says.
bool COpenSockets::note(curl_socket_t socket) noexcept
{
    CIdentity identity{};
    if (!identify(socket, identity))
        return true;
    const std::lock_guard lock(m_mutex);
    try {
        m_sockets.insert_or_assign(socket, identity);
        m_hasReading = true;
        return true;
    } catch (const std::exception&) {
        m_sockets.erase(socket);
        return false;
    }
}

} // namespace norla
