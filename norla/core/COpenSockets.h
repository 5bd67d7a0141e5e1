#pragma once

#include <curl/curl.h>

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string_view>
#include <sys/types.h>
#include <utility>

namespace norla {

/// The sockets of one of libcurl's connection caches: those of a request that performs by itself, or of a multi handle.
/// It opens and closes them for libcurl (CTransferSockets, CURLOPT_CLOSESOCKETFUNCTION), so that the goodbyes which
/// libcurl says when it frees a cache need not wait for a server that never answers them.
///
/// Lives longer than the cache. Used by the thread that works with the cache; stopReading() by any.
class COpenSockets {
public:
    COpenSockets() = default;
    COpenSockets(const COpenSockets&) = delete;
    COpenSockets& operator=(const COpenSockets&) = delete;

    /// Tells somebody each socket that is about to be closed. @param listener lives as long as the cache
    void tellClosings(std::function<void(curl_socket_t)> listener) { m_onClosing = std::move(listener); }

    /// Tells somebody each socket that is new. What libcurl gives up before it is connected it closes by itself,
    /// untold: the number may have been that of another one. @param listener lives as long as the cache
    void tellOpenings(std::function<void(curl_socket_t)> listener) { m_onOpening = std::move(listener); }

    /// Whether it opened the socket that has this number now. It knows nothing of those that libcurl opens by itself:
    /// accepted ones, and pipes of its own.
    bool hasOpened(curl_socket_t socket) const noexcept;

    /// From now on nothing is waited for: what is sent still goes out, and reading finds the end at once, as in a call
    /// that another thread is in. For the moment before libcurl closes all of the cache's connections.
    void stopReading() noexcept;

    /// The same for the connection that one transfer uses, which ends here. @param localPort of it
    /// @param peerAddress as libcurl writes it
    void hangUp(long localPort, std::string_view peerAddress) const noexcept;

    /// libcurl is about to go on with the transfers that use the cache.
    void noteTurn() noexcept { ++m_turns; }
    unsigned long long getTurns() const noexcept { return m_turns; }

    /// For connections that nobody can close any more.
    static void keepForEver(std::unique_ptr<COpenSockets> sockets) noexcept;

    /// @return CURL_SOCKET_BAD when the system has none to give (errno)
    curl_socket_t open(const curl_sockaddr& address) noexcept;

    static int onClose(void* sockets, curl_socket_t socket) noexcept;

private:
    /// Tells a socket from another one that has its number later: libcurl 7.88 closes those that were never connected
    /// itself.
    struct CIdentity {
        dev_t device;
        ino_t inode;
        bool operator==(const CIdentity&) const = default;
    };

    static bool identify(curl_socket_t socket, CIdentity& identity) noexcept;
    [[nodiscard]] bool note(curl_socket_t socket) noexcept;

    std::mutex m_mutex; // guards changes of the sockets, and others' looks at them
    std::map<curl_socket_t, CIdentity> m_sockets;
    unsigned long long m_turns = 0;
    bool m_hasReading = false;                      // some that stopReading() has not met
    std::function<void(curl_socket_t)> m_onClosing; // may be empty
    std::function<void(curl_socket_t)> m_onOpening; // the same
    const COpenSockets* m_keptBefore = nullptr;     // so that all that are kept can be found
};

} // namespace norla
