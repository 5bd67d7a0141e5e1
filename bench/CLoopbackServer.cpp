#include "bench/CLoopbackServer.h"

#include "bench/cores.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <limits>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

namespace bench {

namespace {

constexpr size_t blockSize = 256 * 1024;

int checked(int result)
{
    if (result < 0)
        throw std::system_error(errno, std::generic_category(), "benchmark server");
    return result;
}

bool sendAll(int connection, const char* data, size_t size)
{
    while (size > 0) {
        const ssize_t sent = send(connection, data, size, MSG_NOSIGNAL);
        if (sent <= 0)
            return false;
        data += sent;
        size -= static_cast<size_t>(sent);
    }
    return true;
}

bool sendBody(int connection, long long size)
{
    static const std::string block(blockSize, 'x');
    for (long long left = size; left > 0; left -= static_cast<long long>(blockSize)) {
        if (!sendAll(connection, block.data(), std::min(static_cast<size_t>(left), blockSize)))
            return false;
    }
    return true;
}

bool discard(int connection, long long size)
{
    std::string block(blockSize, '\0');
    while (size > 0) {
        const ssize_t count = recv(connection, block.data(), std::min(static_cast<size_t>(size), blockSize), 0);
        if (count <= 0)
            return false;
        size -= count;
    }
    return true;
}

/// Until the client closes the connection.
bool discardAll(int connection)
{
    return discard(connection, std::numeric_limits<long long>::max());
}

long long contentLength(const std::string& head)
{
    const size_t name = head.find("Content-Length: ");
    return name == std::string::npos ? 0 : std::stoll(head.substr(name + 16));
}

std::string smallAnswer()
{
    std::string answer
        = "HTTP/1.1 200 OK\r\nServer: bench\r\nDate: Sun, 06 Nov 1994 08:49:37 GMT\r\n"
          "Content-Type: application/octet-stream\r\nContent-Length: 1024\r\nConnection: keep-alive\r\n"
          "Last-Modified: Sun, 06 Nov 1994 08:49:37 GMT\r\nETag: \"0123456789abcdef\"\r\nAccept-Ranges: bytes\r\n"
          "Cache-Control: no-cache\r\nX-Request-Id: 0123456789abcdef0123456789abcdef\r\n\r\n";
    return answer.append(1024, 'x');
}

} // namespace

CLoopbackServer::CLoopbackServer(long long downloadSize)
    : m_downloadSize(downloadSize)
    , m_listener(checked(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)))
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    checked(bind(m_listener, reinterpret_cast<sockaddr*>(&address), size));
    checked(listen(m_listener, SOMAXCONN));
    checked(getsockname(m_listener, reinterpret_cast<sockaddr*>(&address), &size));
    m_port = ntohs(address.sin_port);
    m_acceptor = std::thread([this] { acceptAll(); });
}

CLoopbackServer::~CLoopbackServer()
{
    m_stopping = true;
    shutdown(m_listener, SHUT_RDWR);
    m_acceptor.join();
    m_connections.clear(); // waits for the clients to close their connections
    close(m_listener);
}

std::string CLoopbackServer::url(const std::string& path) const
{
    return "http://127.0.0.1:" + std::to_string(m_port) + path;
}

void CLoopbackServer::acceptAll()
{
    useLastCore();
    while (!m_stopping) {
        const int connection = accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection >= 0)
            m_connections.emplace_back([this, connection] { serve(connection); });
    }
}

void CLoopbackServer::serve(int connection) const
{
    const int on = 1;
    setsockopt(connection, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
    std::string pending;
    char block[16 * 1024];
    bool open = true;
    while (open) {
        const size_t end = pending.find("\r\n\r\n");
        if (end != std::string::npos) {
            const std::string head = pending.substr(0, end + 4);
            pending.erase(0, end + 4);
            open = answer(connection, head, pending);
            continue;
        }
        const ssize_t count = recv(connection, block, sizeof(block), 0);
        open = count > 0;
        if (open)
            pending.append(block, static_cast<size_t>(count));
    }
    close(connection);
}

bool CLoopbackServer::answer(int connection, const std::string& head, std::string& pending) const
{
    static const std::string small = smallAnswer();
    if (head.starts_with("GET /small"))
        return sendAll(connection, small.data(), small.size());
    if (head.starts_with("GET /down")) {
        const std::string start = "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(m_downloadSize) + "\r\n\r\n";
        return sendAll(connection, start.data(), start.size()) && sendBody(connection, m_downloadSize);
    }
    if (head.starts_with("GET /part")) {
        static const std::string part = "HTTP/1.1 200 OK\r\nContent-Length: 1048576\r\n\r\n" + std::string(1024, 'x');
        return sendAll(connection, part.data(), part.size()) && discardAll(connection);
    }
    if (head.starts_with("GET /silent"))
        return discardAll(connection);
    const auto early = static_cast<long long>(pending.size());
    pending.clear();
    const std::string done = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n";
    return discard(connection, contentLength(head) - early) && sendAll(connection, done.data(), done.size());
}

} // namespace bench
