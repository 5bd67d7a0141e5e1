#pragma once

#include "norla/core/CCallbackPair.h"
#include "norla/core/COpenSockets.h"

#include <curl/curl.h>

#include <memory>

namespace norla {

class CEasyHandle;

/// By whose functions libcurl opens and closes the sockets of a transfer: those of the request's own connection cache,
/// of a manager's, or the application's. Used by the thread of the transfer.
class CTransferSockets {
public:
    /// @param handle outlives this object
    explicit CTransferSockets(CEasyHandle& handle);
    CTransferSockets(const CTransferSockets&) = delete;
    CTransferSockets& operator=(const CTransferSockets&) = delete;

    /// A transfer by itself begins.
    void useOwn();

    /// A manager takes the request. @param sockets of its multi handle
    void use(COpenSockets& sockets);

    /// An option that takes a pointer was set by the application; others than those for sockets are ignored.
    /// @throws CCURLError if libcurl refuses to keep the request's own, or to go back to the application's
    void noticePointer(CURLoption option, void* value);

    /// The handle's options are what they were at first (curl_easy_reset()).
    void forgetOptions() noexcept;

    /// Before libcurl closes the request's own connections: it waits for no server then.
    void stopReading() noexcept { m_own->stopReading(); }

    /// Ends the connection of the transfer, before libcurl says a goodbye on it that it would wait for. A transfer that
    /// libcurl has not begun has none.
    void hangUp() const noexcept;

    /// Whether the application opens the sockets itself: nobody learns then when libcurl closes them.
    bool areApplications() const noexcept { return m_opening.getFunction() != nullptr; }

    /// Why the system had no socket to give when this transfer wanted one the last time (errno); 0: it had one, or it
    /// has none of that kind at all.
    int getShortage() const noexcept { return m_shortage; }

    /// Whether own connections may be open.
    bool hasOwnConnections() const noexcept { return m_hasOwnConnections; }

private:
    static curl_socket_t onOpen(void* sockets, curlsocktype purpose, curl_sockaddr* address) noexcept;
    void tell(COpenSockets& sockets);

    CEasyHandle& m_handle;
    const std::unique_ptr<COpenSockets> m_own;
    const COpenSockets* m_used = nullptr; // what libcurl was told of; null: of none since the last reset
    COpenSockets* m_cache = nullptr;      // of the last transfer
    unsigned long long m_turnsBefore = 0; // those of the cache before that
    int m_shortage = 0;
    CCallbackPair m_opening;
    CCallbackPair m_closing;
    bool m_hasOwnConnections = false;
};

} // namespace norla
