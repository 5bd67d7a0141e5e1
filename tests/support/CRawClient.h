#pragma once

#include "tests/support/CDescriptor.h"

#include <string>
#include <string_view>
#include <vector>

namespace support {

/// A TCP client of 127.0.0.1 that sends and reads bytes as they are. Reading fails after ten seconds without a byte.
class CRawClient {
public:
    /// @throws std::runtime_error if the connection is refused; std::system_error
    explicit CRawClient(unsigned short port);

    /// @throws std::system_error
    void send(std::string_view bytes);

    /// @return the bytes that one read gets, at most 64 KiB; empty when the peer has closed its sending side
    /// @throws std::system_error, with ECONNRESET if the peer reset the connection
    std::string readOnce();

    /// @return everything up to and including the terminator, and what came with it; up to the end if it does not come
    std::string readUntil(std::string_view terminator);

    /// @return everything up to the end
    std::string readToEnd();

    /// @return what each read got, up to the end
    std::vector<std::string> readPieces();

    /// Reads these bytes as soon as they are there, without sleeping.
    /// @return whether the end can be read the very moment that the last of them was
    bool endsTogetherWith(std::string_view bytes);

    /// Ends the sending side.
    void shutdown();

    /// Closes the connection.
    void close();

    /// @return whether the connection ends with a reset, after any bytes
    bool endsWithReset();

private:
    CDescriptor m_socket;
};

} // namespace support
