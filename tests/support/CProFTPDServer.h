#pragma once

#include "tests/support/CInetdFTPServer.h"

#include <string>

namespace support {

/// ProFTPD. It lists with LIST, NLST, MLSD and MLST. In the folder "read-only" below root(), if the test makes one, the
/// user may change nothing.
class CProFTPDServer : public CInetdFTPServer {
public:
    struct CSettings {
        /// Explicit TLS is demanded, on both connections.
        Security security = Security::None;
        /// Whether a data connection must resume the TLS session of its control connection.
        bool requiresSessionReuse = true;
        /// The directory in which a log-in begins, from root() on, which stays the user's "/".
        std::string loginFolder = "/";
    };

    /// Blocks until the server listens. TLS uses CTestCertificates::serverCertificate().
    /// @throws std::runtime_error if it cannot be started
    explicit CProFTPDServer(const CSettings& settings);
    CProFTPDServer();
};

} // namespace support
