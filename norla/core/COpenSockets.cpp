#include "norla/core/COpenSockets.h"

#include <exception>
#include <mutex>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace norla {

bool COpenSockets::hasOpened(curl_socket_t socket) const noexcept
{
    const auto found = m_sockets.find(socket);
    CIdentity current{};
    return found != m_sockets.end() && identify(socket, current) && current == found->second;
}

void COpenSockets::stopReading() noexcept
{
    for (const auto& known : m_sockets) {
        if (hasOpened(known.first))
            shutdown(known.first, SHUT_RD); // fails where the server has closed already, which is as good
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
    const curl_socket_t socket = ::socket(address.family, address.socktype, address.protocol);
    if (socket == CURL_SOCKET_BAD)
        return socket;
    note(socket);
    if (m_onOpening)
        m_onOpening(socket);
    return socket;
}

int COpenSockets::onClose(void* sockets, curl_socket_t socket) noexcept
{
    auto& self = *static_cast<COpenSockets*>(sockets);
    self.m_sockets.erase(socket);
    if (self.m_onClosing)
        self.m_onClosing(socket);
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

// One that cannot be noted for want of memory is waited for, as all were without this class.
void COpenSockets::note(curl_socket_t socket) noexcept
{
    try {
        CIdentity identity{};
        if (identify(socket, identity))
            m_sockets.insert_or_assign(socket, identity);
    } catch (const std::exception&) {
        m_sockets.erase(socket);
    }
}

} // namespace norla
