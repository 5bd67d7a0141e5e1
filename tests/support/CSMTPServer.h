#pragma once

#include "tests/support/CServerProcess.h"
#include "tests/support/CTemporaryFolder.h"

#include <memory>
#include <string>
#include <vector>

namespace support {

/// A real mail server (aiosmtpd) on a free port of 127.0.0.1 that keeps every message. It refuses recipients that start
/// with "reject@" (550) and "tempfail@" (451).
class CSMTPServer {
public:
    struct CMessage {
        /// The envelope's addresses, without angle brackets.
        std::string from;
        std::vector<std::string> recipients;
        /// As it was sent, after the dots of transparency are taken away, with the line end before the final dot.
        std::string body;
    };

    /// Blocks until the server listens.
    /// @throws std::runtime_error if it cannot be started
    CSMTPServer();

    unsigned short getPort() const;

    /// @return "smtp://127.0.0.1:port"
    std::string url() const;

    /// @return the messages in order of arrival. A message is there when the server has accepted it.
    std::vector<CMessage> messages() const;

private:
    std::unique_ptr<CServerProcess> start();

    CTemporaryFolder m_folder;
    unsigned short m_port = 0;
    std::unique_ptr<CServerProcess> m_process;
};

} // namespace support
