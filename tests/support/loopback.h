#pragma once

#include "tests/support/CDescriptor.h"

#include <string>
#include <string_view>

namespace support {

/// @return a TCP socket bound to a free port of 127.0.0.1, not listening: whoever connects to it is refused.
/// Close-on-exec, blocking.
/// @throws std::system_error
CDescriptor bindToLoopback();

/// @return a TCP socket that listens on a free port of 127.0.0.1. Close-on-exec, blocking.
/// @throws std::system_error
CDescriptor listenOnLoopback();

/// Keeps a free port of 127.0.0.1 for a server that opens it itself and sets SO_REUSEADDR, as servers do: nobody else
/// is given the port while the socket lives, and until that server listens, whoever connects is refused.
/// @return a bound TCP socket, not listening. Close-on-exec, blocking.
/// @throws std::system_error
CDescriptor reserveOnLoopback();

/// @return the local port of a bound socket
/// @throws std::system_error
unsigned short portOf(int socket);

/// @return a connected socket, close-on-exec, blocking; empty if the connection is refused
/// @throws std::system_error if something else goes wrong
CDescriptor connectToLoopback(unsigned short port);

/// @return "scheme://127.0.0.1:port" and the path
std::string loopbackURL(std::string_view scheme, unsigned short port, std::string_view path);

} // namespace support
