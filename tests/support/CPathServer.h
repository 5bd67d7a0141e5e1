#pragma once

#include "tests/support/CDescriptor.h"

#include <atomic>
#include <map>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace support {

/// An HTTP server for thousands of connections, on one or several free ports of 127.0.0.1, all of them on one thread:
/// what it answers is a matter of the path alone. Reads no bodies. Connections stay open.
class CPathServer {
public:
    /// Answers by path, byte for byte, small ones. An empty one closes the connection; a path that is not there gets no
    /// answer.
    using Answers = std::map<std::string, std::string, std::less<>>;

    /// Whoever connects waits until start().
    /// @throws std::system_error
    explicit CPathServer(Answers answers, size_t ports = 1);
    CPathServer(const CPathServer&) = delete;
    CPathServer& operator=(const CPathServer&) = delete;

    /// Closes every connection.
    ~CPathServer();

    /// Serves from now on, on a thread of its own: of the process that calls, which may be another one than that of the
    /// constructor. @throws std::system_error
    void start();

    /// @return "http://127.0.0.1:port" and the path
    /// @param index of the port
    std::string url(std::string_view path, size_t index = 0) const;

    /// How many requests have come so far. Any thread.
    int requestCount() const noexcept { return m_requests; }

    /// How many connections there were so far, and how many are open now. Any thread.
    int connectionCount() const noexcept { return m_accepted; }
    int openCount() const noexcept { return m_open; }

    /// @return the answer of this status ("404 Not Found") with that body
    static std::string answer(std::string_view status, std::string_view body);

private:
    void serve();
    void watch(int descriptor) const;
    bool isListener(int descriptor) const noexcept;
    void accept(int listener);
    void read(int descriptor);
    bool answerHeads(int descriptor, std::string& received);

    const Answers m_answers;
    std::vector<CDescriptor> m_listeners;
    std::vector<unsigned short> m_ports;
    CDescriptor m_stop;
    CDescriptor m_events;
    std::map<int, std::pair<CDescriptor, std::string>> m_connections; // with what has come and is not answered
    std::atomic<int> m_requests{0};
    std::atomic<int> m_accepted{0};
    std::atomic<int> m_open{0};
    std::thread m_thread;
};

} // namespace support
