#pragma once

#include "tests/support/CProxyServer.h"

namespace support {

/// A real SOCKS5 proxy (microsocks) for TCP to any port. Its log has the line "client[5] 127.0.0.1: connected to
/// NAME:PORT" for each connection that it has made for a client, with the name or the address that the client gave, and
/// nothing else: a refused login leaves no trace.
class CMicrosocksServer : public CProxyServer {
public:
    /// @throws std::runtime_error if it cannot be started
    explicit CMicrosocksServer(const CLogin& login = {});
};

} // namespace support
