#include "norla/core/CTransferSockets.h"

#include "norla/core/CEasyHandle.h"

#include <cerrno>

namespace norla {

CTransferSockets::CTransferSockets(CEasyHandle& handle)
    : m_handle(handle)
    , m_own(std::make_unique<COpenSockets>())
    , m_opening(handle, CURLOPT_OPENSOCKETFUNCTION, CURLOPT_OPENSOCKETDATA)
    , m_closing(handle, CURLOPT_CLOSESOCKETFUNCTION, CURLOPT_CLOSESOCKETDATA)
{
}

void CTransferSockets::useOwn()
{
    tell(*m_own);
    m_hasOwnConnections = true;
}

void CTransferSockets::use(COpenSockets& sockets)
{
    if (m_hasOwnConnections)
        m_own->stopReading(); // newer libcurls close these connections now
    tell(sockets);
}

// What keeps a transfer from waiting where no time limit counts. Set once for many transfers.
void CTransferSockets::tell(COpenSockets& sockets)
{
    m_shortage = 0;
    m_cache = &sockets;
    m_turnsBefore = sockets.getTurns();
    if (m_used == &sockets)
        return;
    m_used = nullptr; // until libcurl has taken all of it

    m_handle.setNumber(CURLOPT_QUICK_EXIT, 1); // a name lookup that hangs is left to itself
    if (!areApplications())
        m_opening.use(&CTransferSockets::onOpen, this);
    if (!m_closing.getFunction()) { // connections outlive requests: none may go on with the sockets of another cache
        const bool notes = !areApplications();
        m_closing.use(notes ? &COpenSockets::onClose : nullptr, notes ? &sockets : nullptr);
    }
    m_used = &sockets;
}

// libcurl tells of a socket that cannot be had as of a server that cannot be reached.
curl_socket_t CTransferSockets::onOpen(void* sockets, curlsocktype /*purpose*/, curl_sockaddr* address) noexcept
{
    auto& self = *static_cast<CTransferSockets*>(sockets);
    const curl_socket_t socket = self.m_cache->open(*address);
    const int error = socket == CURL_SOCKET_BAD ? errno : 0;
    const bool isShortage = error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM;
    self.m_shortage = isShortage ? error : 0;
    return socket;
}

// Before that libcurl still tells of the transfer before, whose connection may be another one's by now.
void CTransferSockets::hangUp() const noexcept
{
    long port = 0;
    if (m_used && m_used->getTurns() != m_turnsBefore && m_handle.ask(CURLINFO_LOCAL_PORT, port))
        m_used->hangUp(port, m_handle.askText(CURLINFO_PRIMARY_IP));
}

void CTransferSockets::noticePointer(CURLoption option, void* value)
{
    for (CCallbackPair* const calls : {&m_opening, &m_closing}) {
        if (!calls->notice(option, value))
            continue;
        m_used = nullptr;
        calls->settle();
    }
}

void CTransferSockets::forgetOptions() noexcept
{
    m_used = nullptr;
    m_opening.forget();
    m_closing.forget();
}

} // namespace norla
