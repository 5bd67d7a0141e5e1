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

std::uint32_t bitsFor(int what) noexcept
{
    switch (what) {
    case CURL_POLL_IN:
        return EPOLLIN;
    case CURL_POLL_OUT:
        return EPOLLOUT;
    case CURL_POLL_INOUT:
        return EPOLLIN | EPOLLOUT;
    default:
        return 0;
    }
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
    if (!set(descriptor, CURL_POLL_IN, nullptr))
        throw kx::CError("Error watching a descriptor: " + kx::systemErrorText(errno) + ".");
}

// A socket that was closed without a word is one that the system has forgotten; its number may be another's by now.
bool CSocketEvents::set(curl_socket_t socket, int what, CEventMulti* owner) noexcept
{
    const auto number = static_cast<size_t>(socket);
    try {
        if (number >= m_watches.size())
            m_watches.resize(number + 1);
    } catch (const std::exception&) {
        return false;
    }
    CWatch& watch = m_watches[number];
    if (what == CURL_POLL_REMOVE && watch.owner != owner)
        return true;
    watch.owner = owner;
    watch.wanted = bitsFor(what);
    if (watch.wanted == 0 || watch.wanted == watch.watched)
        return true;
    epoll_event event{};
    event.data.fd = socket;
    event.events = watch.wanted;
    const bool isTaken = (watch.watched != 0 && epoll_ctl(m_descriptor, EPOLL_CTL_MOD, socket, &event) == 0)
        || epoll_ctl(m_descriptor, EPOLL_CTL_ADD, socket, &event) == 0
        || (errno == EEXIST && epoll_ctl(m_descriptor, EPOLL_CTL_MOD, socket, &event) == 0);
    watch.watched = isTaken ? watch.wanted : 0;
    return isTaken;
}

bool CSocketEvents::isWatchedForNobody(curl_socket_t socket) const noexcept
{
    const auto number = static_cast<size_t>(socket);
    return number < m_watches.size() && m_watches[number].watched != 0 && m_watches[number].wanted == 0;
}

void CSocketEvents::forget(curl_socket_t socket) noexcept
{
    const auto number = static_cast<size_t>(socket);
    if (number >= m_watches.size() || m_watches[number].watched == 0)
        return;
    m_watches[number] = CWatch();
    epoll_event event{};
    epoll_ctl(m_descriptor, EPOLL_CTL_DEL, socket, &event);
}

void CSocketEvents::wait(int milliseconds) noexcept
{
    m_next = 0;
    m_count = std::max(0, epoll_wait(m_descriptor, m_found.data(), static_cast<int>(m_found.size()), milliseconds));
}

// What happens to an open connection that nobody uses, its end as a rule, is found when it is to be used again.
bool CSocketEvents::take(CEvent& event) noexcept
{
    while (m_next < m_count) {
        const epoll_event& found = m_found[static_cast<size_t>(m_next++)];
        const CWatch& watch = m_watches[static_cast<size_t>(found.data.fd)];
        event = {found.data.fd, bitsOf(found), watch.owner};
        if (watch.wanted != 0)
            return true;
        forget(found.data.fd);
    }
    return false;
}

} // namespace norla
