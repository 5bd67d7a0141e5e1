#pragma once

#include "tests/support/CProxyServer.h"

namespace support {

/// A real HTTP proxy (Tinyproxy) for requests and for CONNECT to any port. Its log has a line with "GET
/// http://127.0.0.1:80/path HTTP/1.1" or "CONNECT 127.0.0.1:443 HTTP/1.1" for each request, also for those that it
/// refuses: with 407 if no login came, and with 401 if a wrong one came. It does not answer Expect: 100-continue.
class CTinyproxyServer : public CProxyServer {
public:
    /// @param login in letters, digits and "-", ".", "_", for which it wants basic authentication
    /// @throws std::runtime_error if it cannot be started
    explicit CTinyproxyServer(const CLogin& login = {});
};

} // namespace support
