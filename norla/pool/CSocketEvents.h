#pragma once

#include <curl/curl.h>

#include <array>
#include <cstdint>
#include <sys/epoll.h>
#include <vector>

namespace norla {

class CEventMulti;

/// The sockets of libcurl's transfers and what is waited for at each (epoll(7)). Their number, and how large theirs
/// are, costs nothing; nor does a connection that one transfer leaves and the next one takes: its socket stays watched
/// in between. Used by one thread.
class CSocketEvents {
public:
    struct CEvent {
        curl_socket_t socket = CURL_SOCKET_BAD;
        int bits = 0;                 // CURL_CSELECT_
        CEventMulti* owner = nullptr; // null for a descriptor that is no socket of libcurl's
    };

    /// @throws kx::CError when the system has no descriptor to give
    CSocketEvents();
    CSocketEvents(const CSocketEvents&) = delete;
    CSocketEvents& operator=(const CSocketEvents&) = delete;
    ~CSocketEvents();

    /// Watches one descriptor that is no socket of libcurl's, for reading. @throws kx::CError naming what the system
    /// says
    void watch(int descriptor);

    /// As libcurl wants it. @param what CURL_POLL_ of the multi interface's socket function; CURL_POLL_REMOVE for a
    /// socket that is somebody else's by now says nothing
    /// @return whether the system has taken it
    bool set(curl_socket_t socket, int what, CEventMulti* owner) noexcept;

    /// Whether a socket of this number is watched that libcurl wants nothing of: the one of an open connection, or one
    /// that has gone untold.
    bool isWatchedForNobody(curl_socket_t socket) const noexcept;

    /// The socket is about to be closed.
    void forget(curl_socket_t socket) noexcept;

    /// Blocks until something happens. @param milliseconds at most; negative: no limit
    void wait(int milliseconds) noexcept;

    /// Whether take() has not given all that the last wait() has found.
    bool hasMore() const noexcept { return m_next < m_count; }

    /// What the last wait() has found, until it answers false.
    bool take(CEvent& event) noexcept;

private:
    /// What a socket is watched for, and what of it libcurl wants: EPOLL bits, 0 for nothing.
    struct CWatch {
        std::uint32_t watched = 0;
        std::uint32_t wanted = 0;
        CEventMulti* owner = nullptr; // who has wanted something of it last
    };

    const int m_descriptor;
    std::vector<CWatch> m_watches; // by the socket's number
    std::array<epoll_event, 256> m_found{};
    int m_count = 0;
    int m_next = 0;
};

} // namespace norla
