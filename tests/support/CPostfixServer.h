#pragma once

#include "tests/support/CServerProcess.h"
#include "tests/support/CTemporaryFolder.h"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace support {

/// Postfix on a free port of 127.0.0.1: a mail transfer agent that keeps every message and sends none on. STARTTLS is
/// offered, with CTestCertificates::serverCertificate(); there is no login. It takes bare line feeds for line ends,
/// also around the dot that ends a message.
class CPostfixServer {
public:
    /// Blocks until the server listens.
    /// @throws std::runtime_error if it cannot be started
    CPostfixServer();

    unsigned short getPort() const;

    /// @return "smtp://127.0.0.1:port"
    std::string url() const;

    /// Blocks until so many messages are stored. Each recipient has a copy, which counts as a message.
    /// @return all that are stored, in no particular order: in lines that end with line feeds, headers of the server
    /// first, one of which has "with ESMTP id" for a message that came in clear and "with ESMTPS id" for one over TLS
    /// @throws std::runtime_error with the server's log if 15 seconds have passed
    std::vector<std::string> waitForMessages(size_t count) const;

    /// @return the server's log so far: a line with ": client=" for each message whose first recipient was accepted, a
    /// line with ": disconnect from " and the number of each command for each connection that has ended
    std::string log() const;

    /// Blocks until the log contains the text.
    /// @throws std::runtime_error with the server's log if 15 seconds have passed
    void waitUntilLogged(std::string_view text) const;

private:
    std::vector<std::string> storedMessages() const;
    void makeFiles() const;
    void configure() const;
    std::unique_ptr<CServerProcess> start();

    CTemporaryFolder m_folder;
    unsigned short m_port = 0;
    std::unique_ptr<CServerProcess> m_process;
};

} // namespace support
