#pragma once

#include "tests/support/CProxyServer.h"

namespace support {

/// A real HTTP proxy (Squid) for requests and for CONNECT to any port, that wants basic authentication, realm "proxy",
/// and stores nothing. It forbids port 9 with 403, asked by anybody. Its log has the line "request: METHOD URL STATUS
/// user=USER" for each request that it has answered, and for each tunnel that has ended, such as "request: CONNECT
/// 127.0.0.1:443 200 user=user"; 407 if the login is missing ("user=-") or wrong.
class CSquidServer : public CProxyServer {
public:
    /// @param login with a user, without ":" in its name
    /// @throws std::runtime_error if it cannot be started
    explicit CSquidServer(const CLogin& login = {.user = "user", .password = "secret"});

private:
    void makeFiles(const CLogin& login) const;
    std::string writeConfiguration() const;
};

} // namespace support
