#pragma once

#include "tests/support/CDescriptor.h"

#include <string>
#include <string_view>

namespace support {

/// A port of 127.0.0.1 that answers nobody: whoever connects to it waits until the object goes.
class CBusyPort {
public:
    /// @throws std::system_error
    CBusyPort();

    unsigned short getPort() const;

    /// @return "http://127.0.0.1:port/path"
    std::string url(std::string_view path = "/", std::string_view scheme = "http") const;

private:
    CDescriptor m_listener;
    CDescriptor m_waiting; // the only one for whom there is room
};

} // namespace support
