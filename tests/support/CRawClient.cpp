#include "tests/support/CRawClient.h"

#include "tests/support/loopback.h"
#include "tests/support/systemError.h"

#include <array>
#include <chrono>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/time.h>

namespace support {

CRawClient::CRawClient(unsigned short port)
    : m_socket(connectToLoopback(port))
{
    if (!m_socket)
        throw std::runtime_error("127.0.0.1:" + std::to_string(port) + " refuses connections");
    const timeval limit{.tv_sec = 10, .tv_usec = 0};
    checked(setsockopt(m_socket.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit), "SO_RCVTIMEO");
}

void CRawClient::send(std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t count = checked(::send(m_socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL), "send");
        bytes.remove_prefix(static_cast<size_t>(count));
    }
}

std::string CRawClient::readOnce()
{
    std::string block(65536, '\0');
    block.resize(static_cast<size_t>(checked(recv(m_socket.get(), block.data(), block.size(), 0), "recv")));
    return block;
}

std::string CRawClient::readUntil(std::string_view terminator)
{
    std::string all;
    while (all.find(terminator) == std::string::npos) {
        const std::string block = readOnce();
        if (block.empty())
            break;
        all += block;
    }
    return all;
}

std::string CRawClient::readToEnd()
{
    std::string all;
    for (const std::string& piece : readPieces())
        all += piece;
    return all;
}

std::vector<std::string> CRawClient::readPieces()
{
    std::vector<std::string> pieces;
    for (std::string block = readOnce(); !block.empty(); block = readOnce())
        pieces.push_back(block);
    return pieces;
}

bool CRawClient::endsTogetherWith(std::string_view bytes)
{
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    std::string all;
    std::array<char, 1024> block;
    while (all != bytes && std::chrono::steady_clock::now() < limit) {
        const ssize_t count = recv(m_socket.get(), block.data(), block.size(), MSG_DONTWAIT);
        if (count > 0)
            all.append(block.data(), static_cast<size_t>(count));
    }
    return all == bytes && recv(m_socket.get(), block.data(), block.size(), MSG_DONTWAIT) == 0;
}

void CRawClient::shutdown()
{
    checked(::shutdown(m_socket.get(), SHUT_WR), "shutdown");
}

void CRawClient::close()
{
    m_socket.close();
}

bool CRawClient::endsWithReset()
{
    try {
        readToEnd();
        return false;
    } catch (const std::system_error& error) {
        if (error.code() != std::errc::connection_reset)
            throw;
        return true;
    }
}

} // namespace support
