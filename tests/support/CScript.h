#pragma once

#include "tests/support/CScriptedConnection.h"

#include <deque>
#include <filesystem>
#include <functional>
#include <future>
#include <mutex>
#include <string>
#include <vector>

namespace support {

/// What a CScriptedServer does on one connection: steps that are carried out in the order in which they were added. Add
/// all steps before the client connects: a script ends where there is no further step.
///
/// A step that cannot be carried out, or that sees not one byte move for ten seconds, is told as a problem of the
/// server and ends the script and its connection. At its end a script that has not closed the connection does close().
class CScript {
public:
    struct CStep {
        std::string name;
        std::function<void(CScriptedConnection&)> action;
    };

    CScript() = default;
    CScript(const CScript&) = delete;
    CScript& operator=(const CScript&) = delete;

    /// Reads up to and including the terminator. What came with it is kept for the next step that reads.
    CScript& readUntil(std::string terminator);

    /// Reads up to and including the empty line that ends the head of an HTTP request.
    CScript& readHead();

    CScript& readBytes(size_t count);

    /// Reads until the peer closes or resets the connection.
    CScript& readToEnd();

    CScript& send(std::string bytes);

    /// Sends each piece by itself, and the next one only after the peer has read the one before or has left it unread
    /// for 200 ms. Through TLS each piece is a record.
    CScript& sendPieces(std::vector<std::string> pieces);

    /// Sends the block so many times.
    CScript& sendRepeated(std::string block, size_t count);

    /// As send() and close(), in one piece: whoever can read the last of these bytes can read the end too, before doing
    /// anything about them. A few hundred bytes at most.
    CScript& sendAndClose(std::string bytes);

    /// Neither reads nor sends until the peer closes the connection (or its sending side) or the server is destroyed.
    CScript& stall();

    /// Neither reads nor sends until the gate is ready.
    CScript& waitFor(std::shared_future<void> gate);

    /// Shakes hands as the server of TLS; afterwards everything goes through TLS. No ALPN, no session tickets.
    /// @param certificateFile and @param keyFile in PEM
    CScript& startTLS(std::filesystem::path certificateFile, std::filesystem::path keyFile);

    /// Ends the connection with a TCP reset (RST).
    CScript& reset();

    /// Ends the sending side in order, through TLS with close_notify first; what the peer still sends is read and
    /// recorded until it closes, at most for ten seconds.
    CScript& close();

    /// As close(), and a problem if the connection does not use TLS.
    CScript& closeTLS();

    /// Closes at once, through TLS without close_notify. Unread bytes of the peer turn this into a reset.
    CScript& closeHard();

    /// For the server: the step of this index, null behind the last one. Stays valid as long as the script.
    const CStep* step(size_t index) const;

private:
    CScript& add(std::string name, std::function<void(CScriptedConnection&)> action);

    mutable std::mutex m_mutex;
    std::deque<CStep> m_steps;
};

} // namespace support
