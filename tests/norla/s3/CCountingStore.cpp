#include "tests/norla/s3/CCountingStore.h"

#include "tests/support/loopback.h"

#include <algorithm>
#include <array>
#include <sys/socket.h>
#include <utility>

namespace {

std::string documentAnswer(const std::string& document)
{
    return "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(document.size()) + "\r\n\r\n" + document;
}

/// Empty where there is no such header. @param name with ": "
std::string headerIn(const std::string& head, const std::string& name)
{
    const size_t start = head.find("\r\n" + name);
    if (start == std::string::npos)
        return {};
    const size_t value = start + 2 + name.size();
    return head.substr(value, head.find('\r', value) - value);
}

void sendAll(int socket, const std::string& bytes)
{
    for (size_t done = 0; done < bytes.size();) {
        const ssize_t count = send(socket, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
        if (count <= 0)
            return; // the next read has the end
        done += static_cast<size_t>(count);
    }
}

/// A request's head, byte by byte, so that nothing behind it is read; empty at the end.
std::string readHeadOf(int socket)
{
    std::string head;
    for (char byte = 0; !head.ends_with("\r\n\r\n"); head += byte) {
        if (recv(socket, &byte, 1, 0) <= 0)
            return {};
    }
    return head;
}

} // namespace

CCountingStore::CCountingStore(int parts, int atOnce)
    : m_listener(support::listenOnLoopback())
    , m_parts(parts)
    , m_atOnce(atOnce)
    , m_acceptor([this] { accept(); })
{
}

CCountingStore::~CCountingStore()
{
    shutdown(m_listener.get(), SHUT_RDWR);
    m_acceptor.join();
    {
        const std::lock_guard lock(m_mutex);
        m_isStopped = true;
        for (const support::CDescriptor& socket : m_sockets)
            shutdown(socket.get(), SHUT_RDWR);
    }
    m_answered.notify_all();
    for (std::thread& server : m_servers)
        server.join();
}

unsigned short CCountingStore::getPort() const
{
    return support::portOf(m_listener.get());
}

long long CCountingStore::getByteCount() const
{
    const std::lock_guard lock(m_mutex);
    return m_byteCount;
}

void CCountingStore::accept()
{
    for (;;) {
        support::CDescriptor socket(accept4(m_listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (!socket)
            return;
        const std::lock_guard lock(m_mutex);
        m_servers.emplace_back([this, connection = socket.get()] { serve(connection); });
        m_sockets.push_back(std::move(socket));
    }
}

void CCountingStore::serve(int socket)
{
    for (std::string head = readHeadOf(socket); !head.empty(); head = readHeadOf(socket)) {
        if (!headerIn(head, "Expect: ").empty())
            sendAll(socket, "HTTP/1.1 100 Continue\r\n\r\n");
        const long long size = std::stoll("0" + headerIn(head, "Content-Length: "));
        takeBody(socket, size);
        if (head.starts_with("PUT ")) {
            {
                const std::lock_guard lock(m_mutex);
                m_byteCount += size;
            }
            waitForOthers();
        }
        sendAll(socket, answerTo(head));
    }
}

void CCountingStore::takeBody(int socket, long long left)
{
    std::array<char, 1 << 16> block{};
    while (left > 0) {
        const ssize_t count = recv(socket, block.data(), std::min<size_t>(block.size(), static_cast<size_t>(left)), 0);
        if (count <= 0)
            return;
        left -= count;
    }
}

std::string CCountingStore::answerTo(const std::string& head) const
{
    if (head.starts_with("PUT "))
        return "HTTP/1.1 200 OK\r\nContent-Length: 0\r\nETag: \"kept\"\r\n\r\n";
    if (head.find("?uploads ") != std::string::npos)
        return documentAnswer("<InitiateMultipartUploadResult><UploadId>id</UploadId></InitiateMultipartUploadResult>");
    return documentAnswer("<CompleteMultipartUploadResult><ETag>\"whole-" + std::to_string(m_parts)
        + "\"</ETag></CompleteMultipartUploadResult>");
}

void CCountingStore::waitForOthers()
{
    std::unique_lock lock(m_mutex);
    ++m_come;
    if (m_come % m_atOnce == 0 || m_come == m_parts) {
        ++m_round;
        m_answered.notify_all();
        return;
    }
    m_answered.wait(lock, [this, round = m_round] { return m_round != round || m_isStopped; });
}
