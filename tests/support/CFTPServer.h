#pragma once

#include "tests/support/CServerProcess.h"
#include "tests/support/CTemporaryFolder.h"
#include "tests/support/IFTPServer.h"

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace support {

/// pyftpdlib, for the user "user" with the password "secret". It lists with LIST, NLST, MLSD and MLST. With explicit
/// TLS it also serves clients that do not ask for TLS.
class CFTPServer : public IFTPServer {
public:
    /// Blocks until the server listens. TLS uses CTestCertificates::serverCertificate().
    /// @throws std::runtime_error if it cannot be started
    explicit CFTPServer(Security security = Security::None);

    Security getSecurity() const override;
    unsigned short getPort() const override;
    std::filesystem::path root() const override;

    /// @return the lines of commands()
    std::string log() const override;

    std::string userName() const override;
    std::string password() const override;

    /// @return the lines that the clients have sent so far, such as "USER user" and "RETR digits.txt". A line is there
    /// when the server answers it; a last QUIT may come later.
    std::vector<std::string> commands() const;

private:
    std::unique_ptr<CServerProcess> start();

    Security m_security;
    CTemporaryFolder m_folder;
    unsigned short m_port = 0;
    std::unique_ptr<CServerProcess> m_process;
};

} // namespace support
