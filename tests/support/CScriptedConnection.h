#pragma once

#include "tests/support/CDescriptor.h"
#include "tests/support/IByteChannel.h"

#include <chrono>
#include <filesystem>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace support {

/// One accepted connection of a CScriptedServer, on which the steps of a script are carried out, by one thread;
/// received() may be called by any thread.
///
/// Every operation blocks until it is done, the server stops (then CStopped is thrown) or ten seconds have passed in
/// which not one byte moved (then std::runtime_error). All throw std::runtime_error if the connection does not allow
/// them.
class CScriptedConnection {
public:
    /// Thrown out of whatever waits when the server stops.
    class CStopped {};

    /// @param socket a connected non-blocking socket
    /// @param stopDescriptor becomes readable when the server stops
    CScriptedConnection(CDescriptor socket, int stopDescriptor);

    /// The steps; CScript says what each does.
    void readUntil(std::string_view terminator);
    void readBytes(size_t count);
    void readToEnd();
    void send(std::string_view bytes);
    void sendPieces(const std::vector<std::string>& pieces);
    void sendRepeated(std::string_view block, size_t count);
    void sendAndClose(std::string_view bytes);
    void stall();
    void waitFor(const std::shared_future<void>& gate);
    void startTLS(const std::filesystem::path& certificateFile, const std::filesystem::path& keyFile);
    void reset();
    void close();
    void closeTLS();
    void closeHard();

    /// Reads and records what the peer still sends, until it closes, sends nothing for the time given as quiet, or ten
    /// seconds have passed. Nothing happens on a connection that we have closed.
    /// @return whether the peer has closed the connection
    bool drain(std::chrono::milliseconds quiet);

    /// @return every byte the application on the other side has sent and we have read so far
    std::string received() const;

private:
    using CClock = std::chrono::steady_clock;

    IByteChannel& channel();
    CAttempt readOnce();
    bool readMore();
    void readMoreOfStep();
    std::string_view unconsumed() const;
    CAttempt finish(const std::function<CAttempt()>& attempt);
    void wait(short event);
    bool waitUntil(short event, CClock::time_point deadline);
    void waitUntilPeerHasRead();
    void restartLimit();
    int openSocket() const;

    CDescriptor m_socket;
    const int m_stopDescriptor;
    std::unique_ptr<IByteChannel> m_channel;
    bool m_isTLS = false;
    bool m_isWriteSideClosed = false;
    CClock::time_point m_deadline;
    size_t m_consumed = 0;

    mutable std::mutex m_mutex;
    std::string m_received;
};

} // namespace support
