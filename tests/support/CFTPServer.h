#pragma once

#include "tests/support/CServerProcess.h"
#include "tests/support/CTemporaryFolder.h"

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace support {

/// A real FTP server (pyftpdlib) on a free port of 127.0.0.1 for the user "user" with the password "secret", who may do
/// everything below root(), which is the server's "/". It lists with LIST, NLST, MLSD and MLST.
class CFTPServer {
public:
    enum class Security {
        /// No TLS.
        None,
        /// TLS after AUTH TLS, which is offered and not demanded.
        Explicit,
        /// TLS from the first byte.
        Implicit,
    };

    /// Blocks until the server listens. TLS uses CTestCertificates::serverCertificate().
    /// @throws std::runtime_error if it cannot be started
    explicit CFTPServer(Security security = Security::None);

    unsigned short getPort() const;

    /// @return "ftp://127.0.0.1:port/path"
    std::string url(std::string_view path = "/", std::string_view scheme = "ftp") const;

    /// @return the folder of the files, which has a file digits.txt with "0123456789"
    std::filesystem::path root() const;

    /// @return the lines that the clients have sent so far, such as "USER user" and "RETR digits.txt". A line is there
    /// when the server answers it; a last QUIT may come later.
    std::vector<std::string> commands() const;

private:
    std::unique_ptr<CServerProcess> start(Security security);

    CTemporaryFolder m_folder;
    unsigned short m_port = 0;
    std::unique_ptr<CServerProcess> m_process;
};

} // namespace support
