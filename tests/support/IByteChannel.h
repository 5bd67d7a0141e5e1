#pragma once

#include <cstddef>
#include <span>
#include <string_view>

namespace support {

/// What one attempt to read or write on a non-blocking connection came to.
struct CAttempt {
    /// Bytes that were moved.
    size_t count = 0;
    /// The poll() event to wait for before the next attempt; 0 if there is nothing to wait for.
    short waitFor = 0;
    /// The peer has closed or reset the connection.
    bool isEnded = false;
};

/// Bytes in and out of a non-blocking connection, plain or through TLS. Nothing here blocks.
class IByteChannel {
public:
    virtual ~IByteChannel() = default;

    /// @throws std::runtime_error if the connection is broken in another way than by the peer's end
    virtual CAttempt read(std::span<char> block) = 0;

    /// Writes some of the bytes.
    /// @throws std::runtime_error as above
    virtual CAttempt write(std::string_view bytes) = 0;

    /// Says goodbye in the channel's own words: TLS's close_notify; nothing on a plain connection.
    virtual CAttempt sayGoodbye() = 0;
};

} // namespace support
