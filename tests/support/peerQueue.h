#pragma once

namespace support {

/// @return whether the peer of this connection, on the same machine, has read everything that was sent to it. True also
/// if that cannot be found out, for example because the peer is gone.
/// @throws std::system_error if the descriptor is no connected IPv4 socket
bool hasPeerReadEverything(int socket);

} // namespace support
