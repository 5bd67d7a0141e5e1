#pragma once

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace bench {

/// An HTTP/1.1 server that costs as little as it can, so that the client is what is measured, on the last core. GET
/// /small answers 1 KiB with ten headers, GET /down a large body, GET /part the first KiB of a body and then nothing
/// more, GET /silent nothing at all, PUT reads the body and answers nothing. Any number of keep-alive connections.
class CLoopbackServer {
public:
    /// @param downloadSize bytes that GET /down answers
    explicit CLoopbackServer(long long downloadSize);
    CLoopbackServer(const CLoopbackServer&) = delete;
    CLoopbackServer& operator=(const CLoopbackServer&) = delete;
    ~CLoopbackServer();

    std::string url(const std::string& path) const;

private:
    void acceptAll();
    void serve(int connection) const;
    bool answer(int connection, const std::string& head, std::string& pending) const;

    const long long m_downloadSize;
    int m_listener;
    unsigned short m_port = 0;
    std::atomic<bool> m_stopping{false};
    std::thread m_acceptor;
    std::vector<std::jthread> m_connections;
};

} // namespace bench
