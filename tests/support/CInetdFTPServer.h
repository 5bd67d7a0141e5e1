#pragma once

#include "tests/support/CServerProcess.h"
#include "tests/support/CTemporaryFolder.h"
#include "tests/support/IFTPServer.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace support {

/// What the FTP servers have in common that are programs of inetd's kind: one process for each connection, which is its
/// standard input and output. The socket that listens is the test's own, so that nobody else can take its port, and the
/// programs need not fork, nap or write process ids.
class CInetdFTPServer : public IFTPServer {
public:
    Security getSecurity() const override;
    unsigned short getPort() const override;
    std::filesystem::path root() const override;
    std::string log() const override;

    /// @return "user"
    std::string userName() const override;

    /// @return "secret"
    std::string password() const override;

protected:
    /// Makes the folder and its files, and starts nothing.
    explicit CInetdFTPServer(Security security);

    const CTemporaryFolder& folder() const;

    /// Writes a file of tests/servers into the folder, with these values and those that all have: FOLDER,
    /// SERVER_CERTIFICATE and SERVER_KEY.
    /// @return its path
    std::filesystem::path configure(const std::string& name, std::map<std::string, std::string> values = {}) const;

    /// Whether the test is not root, so that the programs get the rights of root, which they all want, in a user
    /// namespace, where there is no other user.
    static bool isInNamespace();

    /// Blocks until the server listens.
    /// @param program the program that serves a connection, and its arguments. It logs to server.log in the folder.
    /// @param namespaceUser the number of the test's user in the namespace, if there is one
    /// @throws std::runtime_error if it cannot be started
    void start(const std::vector<std::string>& program, const std::string& namespaceUser = "0");

private:
    Security m_security;
    CTemporaryFolder m_folder;
    unsigned short m_port = 0;
    std::unique_ptr<CServerProcess> m_process;
};

} // namespace support
