#pragma once

#include <array>
#include <cstdlib>
#include <netinet/in.h>
#include <string>
#include <string_view>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace bench {

/// What the system alone takes for the answers of a server: connections that stay open, epoll, a write and a read each,
/// and nothing that looks at what comes.
class CPlainSocketLoop {
public:
    /// @param bodySize in bytes, of each answer
    CPlainSocketLoop(unsigned short port, std::string_view path, size_t bodySize, int atOnce)
        : m_head("GET " + std::string(path) + " HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n")
        , m_pending(static_cast<size_t>(atOnce), 0)
    {
        for (size_t index = 0; index < m_pending.size(); ++index)
            connect(port, index);
        m_answerSize = learnAnswerSize(bodySize);
    }
    CPlainSocketLoop(const CPlainSocketLoop&) = delete;
    CPlainSocketLoop& operator=(const CPlainSocketLoop&) = delete;
    ~CPlainSocketLoop()
    {
        for (const int socket : m_sockets)
            close(socket);
        close(m_epoll);
    }

    void run(int transfers)
    {
        m_left = transfers;
        for (size_t index = 0; index < m_sockets.size(); ++index)
            ask(index);
        while (m_running > 0)
            step();
    }

private:
    static void require(bool isGood)
    {
        if (!isGood)
            std::exit(1);
    }

    void connect(unsigned short port, size_t index)
    {
        m_sockets.push_back(socket(AF_INET, SOCK_STREAM, 0));
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        require(::connect(m_sockets.back(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0);
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.u64 = index;
        require(epoll_ctl(m_epoll, EPOLL_CTL_ADD, m_sockets.back(), &event) == 0);
    }

    size_t learnAnswerSize(size_t bodySize)
    {
        constexpr std::string_view headEnd = "\r\n\r\n";
        std::string answer;
        m_left = 1;
        ask(0);
        while (answer.find(headEnd) == std::string::npos
            || answer.size() < answer.find(headEnd) + headEnd.size() + bodySize) {
            const ssize_t size = recv(m_sockets[0], m_block.data(), m_block.size(), 0);
            require(size > 0);
            answer.append(m_block.data(), static_cast<size_t>(size));
        }
        m_running = 0;
        return answer.size();
    }

    void ask(size_t index)
    {
        if (m_left == 0)
            return;
        --m_left;
        ++m_running;
        m_pending[index] = m_answerSize;
        require(send(m_sockets[index], m_head.data(), m_head.size(), 0) == static_cast<ssize_t>(m_head.size()));
    }

    void step()
    {
        const int count = epoll_wait(m_epoll, m_found.data(), static_cast<int>(m_found.size()), -1);
        for (int found = 0; found < count; ++found) {
            const size_t index = m_found[static_cast<size_t>(found)].data.u64;
            const ssize_t size = recv(m_sockets[index], m_block.data(), m_block.size(), 0);
            require(size > 0 && static_cast<size_t>(size) <= m_pending[index]);
            m_pending[index] -= static_cast<size_t>(size);
            if (m_pending[index] > 0)
                continue;
            --m_running;
            ask(index);
        }
    }

    size_t m_answerSize = 0;
    const std::string m_head;
    const int m_epoll = epoll_create1(0);
    std::vector<int> m_sockets;
    std::vector<size_t> m_pending; // bytes to come, by socket
    std::array<epoll_event, 256> m_found{};
    std::array<char, 16 * 1024> m_block{};
    int m_left = 0;
    int m_running = 0;
};

} // namespace bench
