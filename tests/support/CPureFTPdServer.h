#pragma once

#include "tests/support/CInetdFTPServer.h"

#include <string>

namespace support {

/// Pure-FTPd. It lists with LIST, NLST, MLSD and MLST, and takes up to six seconds to refuse a password. The user's
/// files are nobody's if the test is root.
class CPureFTPdServer : public CInetdFTPServer {
public:
    struct CSettings {
        /// Explicit TLS is demanded, on both connections. There is no implicit TLS.
        Security security = Security::None;
        /// The directory in which a log-in begins, from root() on, which stays the user's "/".
        std::string loginFolder = "/";
    };

    /// Blocks until the server listens. TLS uses CTestCertificates::serverCertificate().
    /// @throws std::runtime_error if it cannot be started
    explicit CPureFTPdServer(const CSettings& settings);
    CPureFTPdServer();

private:
    void openToNobody() const;
    void makeUser(const std::string& loginFolder) const;
};

} // namespace support
