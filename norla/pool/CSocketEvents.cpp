#include "norla/pool/CSocketEvents.h"

#include "kx/base/CError.h"
#include "kx/base/systemErrorText.h"

#include <algorithm>
#include <cerrno>
#include <unistd.h>

namespace norla {

namespace {

int newEpollDescriptor()
{
    const int descriptor = epoll_create1(EPOLL_CLOEXEC);
    if (descriptor == -1)
        throw kx::CError("Error creating an epoll descriptor: " + kx::systemErrorText(errno) + ".");
    return descriptor;
}

epoll_event wanted(curl_socket_t socket, int what) noexcept
{
    epoll_event event{};
    event.data.fd = socket;
    if (what == CURL_POLL_IN || what == CURL_POLL_INOUT)
        event.events |= EPOLLIN;
    if (what == CURL_POLL_OUT || what == CURL_POLL_INOUT)
        event.events |= EPOLLOUT;
    return event;
}

// An error and an end are found by reading, and by writing, with words of their own.
int bitsOf(const epoll_event& event) noexcept
{
    int bits = 0;
    if (event.events & (EPOLLIN | EPOLLHUP | EPOLLERR))
        bits |= CURL_CSELECT_IN;
    if (event.events & (EPOLLOUT | EPOLLERR))
        bits |= CURL_CSELECT_OUT;
    return bits;
}

} // namespace

CSocketEvents::CSocketEvents()
    : m_descriptor(newEpollDescriptor())
{
}

CSocketEvents::~CSocketEvents()
{
    close(m_descriptor);
}

void CSocketEvents::watch(int descriptor)
{
    if (!set(descriptor, CURL_POLL_IN, false))
        throw kx::CError("Error watching a descriptor: " + kx::systemErrorText(errno) + ".");
}

// A socket that was closed without a word is one that the system has forgotten; its number may be another's by now.
bool CSocketEvents::set(curl_socket_t socket, int what, bool isKnown) noexcept
{
    epoll_event event = wanted(socket, what);
    if (what == CURL_POLL_REMOVE)
        return epoll_ctl(m_descriptor, EPOLL_CTL_DEL, socket, &event) == 0 || errno == ENOENT || errno == EBADF;
    const int first = isKnown ? EPOLL_CTL_MOD : EPOLL_CTL_ADD;
    const int second = isKnown ? EPOLL_CTL_ADD : EPOLL_CTL_MOD;
    if (epoll_ctl(m_descriptor, first, socket, &event) == 0)
        return true;
    return (errno == ENOENT || errno == EEXIST) && epoll_ctl(m_descriptor, second, socket, &event) == 0;
}

void CSocketEvents::wait(int milliseconds) noexcept
{
    m_next = 0;
    m_count = std::max(0, epoll_wait(m_descriptor, m_found.data(), static_cast<int>(m_found.size()), milliseconds));
}

bool CSocketEvents::take(int& descriptor, int& events) noexcept
{
    if (m_next >= m_count)
        return false;
    const epoll_event& event = m_found[static_cast<size_t>(m_next++)];
    descriptor = event.data.fd;
    events = bitsOf(event);
    return true;
}

} // namespace norla
