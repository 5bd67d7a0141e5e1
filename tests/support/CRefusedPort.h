#pragma once

#include "tests/support/CDescriptor.h"

#include <string>
#include <string_view>

namespace support {

/// A port of 127.0.0.1 on which nothing listens and which nobody else can take while the object lives: connections are
/// refused.
class CRefusedPort {
public:
    /// @throws std::system_error
    CRefusedPort();

    unsigned short getPort() const;

    /// @return "http://127.0.0.1:port/path"
    std::string url(std::string_view path = "/", std::string_view scheme = "http") const;

private:
    CDescriptor m_bound;
};

} // namespace support
