#pragma once

#include "tests/support/CInetdFTPServer.h"

namespace support {

/// vsftpd. It lists with LIST and NLST alone.
class CVsftpdServer : public CInetdFTPServer {
public:
    struct CSettings {
        /// Explicit TLS is demanded, on both connections.
        Security security = Security::None;
        /// Whether a data connection must resume the TLS session of its control connection.
        bool requiresSessionReuse = true;
    };

    /// Blocks until the server listens. TLS uses CTestCertificates::serverCertificate().
    /// @throws std::runtime_error if it cannot be started
    explicit CVsftpdServer(const CSettings& settings);
    CVsftpdServer();
};

} // namespace support
