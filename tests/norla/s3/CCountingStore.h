#pragma once

#include "tests/support/CDescriptor.h"

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

/// A store on a free port of 127.0.0.1 that takes objects and parts of any size, and keeps nothing of them but the
/// number of their bytes. It needs as much memory for many as for few. Any thread may use it.
class CCountingStore {
public:
    /// @param parts how many objects or parts will come
    /// @param atOnce so many of them are answered together, when all of these have come
    /// @throws std::system_error
    explicit CCountingStore(int parts = 1, int atOnce = 1);
    CCountingStore(const CCountingStore&) = delete;
    CCountingStore& operator=(const CCountingStore&) = delete;
    ~CCountingStore(); ///< closes every connection

    unsigned short getPort() const;

    /// Of the bodies of all objects and parts, as they came.
    long long getByteCount() const;

private:
    void accept();
    void serve(int socket);
    void takeBody(int socket, long long left);
    std::string answerTo(const std::string& head) const;
    void waitForOthers();

    const support::CDescriptor m_listener;
    const int m_parts;
    const int m_atOnce;
    mutable std::mutex m_mutex;
    std::condition_variable m_answered;
    bool m_isStopped = false;
    int m_come = 0;
    int m_round = 0;
    long long m_byteCount = 0;
    std::vector<support::CDescriptor> m_sockets;
    std::vector<std::thread> m_servers;
    std::thread m_acceptor;
};
