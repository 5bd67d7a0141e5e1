#pragma once

#include <curl/curl.h>

#include <array>
#include <sys/epoll.h>

namespace norla {

/// The sockets of libcurl's transfers and what is waited for at each (epoll(7)). Their number, and how large theirs are,
/// costs nothing. Used by one thread.
class CSocketEvents {
public:
    /// @throws kx::CError when the system has no descriptor to give
    CSocketEvents();
    CSocketEvents(const CSocketEvents&) = delete;
    CSocketEvents& operator=(const CSocketEvents&) = delete;
    ~CSocketEvents();

    /// Watches one descriptor that is no socket of libcurl's, for reading. @throws kx::CError naming what the system says
    void watch(int descriptor);

    /// As libcurl wants it. @param what CURL_POLL_ of the multi interface's socket function
    /// @param isKnown whether this socket is set already
    /// @return whether the system has taken it
    bool set(curl_socket_t socket, int what, bool isKnown) noexcept;

    /// Blocks until something happens. @param milliseconds at most; negative: no limit
    void wait(int milliseconds) noexcept;

    /// What the last wait() has found, until it answers false.
    /// @param events CURL_CSELECT_ bits
    bool take(int& descriptor, int& events) noexcept;

private:
    const int m_descriptor;
    std::array<epoll_event, 256> m_found{};
    int m_count = 0;
    int m_next = 0;
};

} // namespace norla
