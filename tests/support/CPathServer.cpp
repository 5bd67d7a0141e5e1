#include "tests/support/CPathServer.h"

#include "tests/support/loopback.h"
#include "tests/support/systemError.h"

#include <algorithm>
#include <array>
#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <utility>

namespace support {

namespace {

/// @return whether there was something to send, and all of it has gone
bool sendAll(int descriptor, const std::string& bytes) noexcept
{
    return !bytes.empty()
        && send(descriptor, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}

} // namespace

CPathServer::CPathServer(Answers answers, size_t ports)
    : m_answers(std::move(answers))
    , m_stop(checked(eventfd(0, EFD_CLOEXEC), "eventfd"))
{
    for (size_t index = 0; index < ports; ++index) {
        const CDescriptor& listener = m_listeners.emplace_back(listenOnLoopback());
        checked(fcntl(listener.get(), F_SETFL, O_NONBLOCK), "fcntl");
        m_ports.push_back(portOf(listener.get()));
    }
}

CPathServer::~CPathServer()
{
    if (!m_thread.joinable())
        return; // it may serve in another process
    eventfd_write(m_stop.get(), 1);
    m_thread.join();
}

void CPathServer::start()
{
    m_events = CDescriptor(checked(epoll_create1(EPOLL_CLOEXEC), "epoll_create1"));
    watch(m_stop.get());
    for (const CDescriptor& listener : m_listeners)
        watch(listener.get());
    m_thread = std::thread([this] { serve(); });
}

std::string CPathServer::url(std::string_view path, size_t index) const
{
    return loopbackURL("http", m_ports.at(index), path);
}

std::string CPathServer::answer(std::string_view status, std::string_view body)
{
    return "HTTP/1.1 " + std::string(status) + "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n"
        + std::string(body);
}

void CPathServer::watch(int descriptor) const
{
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.fd = descriptor;
    checked(epoll_ctl(m_events.get(), EPOLL_CTL_ADD, descriptor, &event), "epoll_ctl");
}

void CPathServer::serve()
{
    std::array<epoll_event, 64> found{};
    for (;;) {
        const int count = epoll_wait(m_events.get(), found.data(), static_cast<int>(found.size()), -1);
        for (int index = 0; index < count; ++index) {
            const int descriptor = found[static_cast<size_t>(index)].data.fd;
            if (descriptor == m_stop.get())
                return;
            if (isListener(descriptor))
                accept(descriptor);
            else
                read(descriptor);
        }
    }
}

bool CPathServer::isListener(int descriptor) const noexcept
{
    return std::any_of(m_listeners.begin(), m_listeners.end(),
        [descriptor](const CDescriptor& listener) { return listener.get() == descriptor; });
}

void CPathServer::accept(int listener)
{
    CDescriptor socket(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!socket)
        return; // it has gone meanwhile
    const int descriptor = socket.get();
    watch(descriptor);
    m_connections.insert_or_assign(descriptor, std::pair(std::move(socket), std::string()));
    ++m_accepted;
    ++m_open;
}

void CPathServer::read(int descriptor)
{
    std::array<char, 4096> block{};
    std::string& received = m_connections.at(descriptor).second;
    const ssize_t count = recv(descriptor, block.data(), block.size(), 0);
    if (count == -1 && (errno == EAGAIN || errno == EINTR))
        return;
    if (count > 0)
        received.append(block.data(), static_cast<size_t>(count));
    if (count <= 0 || !answerHeads(descriptor, received)) {
        m_connections.erase(descriptor);
        --m_open;
    }
}

/// @return false when the connection is to be closed
bool CPathServer::answerHeads(int descriptor, std::string& received)
{
    constexpr std::string_view terminator = "\r\n\r\n";
    for (size_t end = 0; (end = received.find(terminator)) != std::string::npos;) {
        const size_t begin = received.find(' ') + 1;
        const std::string path = received.substr(begin, received.find(' ', begin) - begin);
        received.erase(0, end + terminator.size());
        const auto found = m_answers.find(path);
        const bool isAnswered = found == m_answers.end() || sendAll(descriptor, found->second);
        ++m_requests;
        if (!isAnswered)
            return false;
    }
    return true;
}

} // namespace support
