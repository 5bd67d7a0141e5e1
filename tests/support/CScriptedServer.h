#pragma once

#include "tests/support/CDescriptor.h"
#include "tests/support/CScript.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace support {

/// A TCP server on a free port of 127.0.0.1 that answers byte for byte what its scripts say: the first connection plays
/// the first script, and so on, each on a thread of its own. Any thread may use it.
class CScriptedServer {
public:
    /// Listens as soon as it is constructed.
    /// @throws std::system_error
    CScriptedServer();
    CScriptedServer(const CScriptedServer&) = delete;
    CScriptedServer& operator=(const CScriptedServer&) = delete;

    /// Closes every connection, whatever its script is waiting for.
    ~CScriptedServer();

    unsigned short getPort() const;

    /// @return "http://127.0.0.1:port/path"
    std::string url(std::string_view path = "/", std::string_view scheme = "http") const;

    /// Adds a script for the next connection that has none yet; it lives as long as the server. A connection for which
    /// there is no script is closed at once, which is told as a problem.
    CScript& onConnection();

    /// @return every byte read so far on a connection, counted from 0 in order of acceptance, in clear text if it uses
    /// TLS; empty for a connection that has not come
    std::string received(size_t connection) const;

    /// @return how many connections were accepted so far
    size_t connectionCount() const;

    /// @return what went wrong so far, a line for each: steps that could not be carried out ("connection 0, step 1
    /// (readHead): ..."), connections without a script, scripts that join() waited for in vain
    std::vector<std::string> problems() const;

    /// Waits until all scripts were played to their end, and until no bytes of their clients have come for 100 ms after
    /// that or these have closed: then received() is complete. A problem if that takes more than 20 seconds.
    void join();

private:
    struct CPlay {
        CPlay(CDescriptor socket, int stopDescriptor, CScript* toPlay, size_t number);

        CScriptedConnection connection;
        CScript* script;
        size_t index;
        std::thread thread;
    };

    void acceptConnections();
    bool waitForConnection() const;
    void startPlaying(CDescriptor socket);
    void play(CPlay& play);
    void playSteps(CPlay& play);
    bool drain(CPlay& play, std::chrono::milliseconds quiet);
    void markPlayed();
    void addProblem(std::string problem);

    CDescriptor m_listener;
    CDescriptor m_stop;
    mutable std::mutex m_mutex;
    std::condition_variable m_played;
    std::deque<CScript> m_scripts;
    size_t m_assignedScripts = 0;
    size_t m_playedScripts = 0;
    std::vector<std::unique_ptr<CPlay>> m_plays;
    std::vector<std::string> m_problems;
    std::thread m_acceptor;
};

} // namespace support
