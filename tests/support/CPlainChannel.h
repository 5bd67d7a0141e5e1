#pragma once

#include "tests/support/IByteChannel.h"

namespace support {

/// A connected non-blocking socket as it is. Does not own the socket.
class CPlainChannel : public IByteChannel {
public:
    explicit CPlainChannel(int socket) noexcept;

    CAttempt read(std::span<char> block) override;
    CAttempt write(std::string_view bytes) override;
    CAttempt sayGoodbye() override;

private:
    int m_socket;
};

} // namespace support
