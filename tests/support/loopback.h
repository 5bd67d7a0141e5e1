#pragma once

#include "tests/support/CDescriptor.h"

#include <string>
#include <string_view>

namespace support {

/// @return a TCP socket bound to a free port of 127.0.0.1, not listening: whoever connects to it is refused.
/// Close-on-exec, blocking.
/// @throws std::system_error
CDescriptor bindToLoopback();

/// @return as bindToLoopback(), and as long as the socket lives nobody can bind to its port but a program that sets
/// SO_REUSEADDR and asks for just this port: the one that the port is kept for.
/// @throws std::system_error
CDescriptor reserveOnLoopback();

/// @return a TCP socket that listens on a free port of 127.0.0.1. Close-on-exec, blocking.
/// @throws std::system_error
CDescriptor listenOnLoopback();

/// @return the local port of a bound socket
/// @throws std::system_error
unsigned short portOf(int socket);

/// @return a connected socket, close-on-exec, blocking; empty if the connection is refused
/// @throws std::system_error if something else goes wrong
CDescriptor connectToLoopback(unsigned short port);

/// @return "scheme://127.0.0.1:port" and the path
std::string loopbackURL(std::string_view scheme, unsigned short port, std::string_view path);

} // namespace support
