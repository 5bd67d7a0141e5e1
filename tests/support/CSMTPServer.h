#pragma once

#include "tests/support/CServerProcess.h"
#include "tests/support/CTemporaryFolder.h"

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace support {

/// A real mail server (aiosmtpd) on a free port of 127.0.0.1 that keeps every message. It refuses recipients that start
/// with "reject@" (550) and "tempfail@" (451), and whatever else its settings say. Messages of up to 200 MiB pass, in
/// lines of at most 998 bytes.
class CSMTPServer {
public:
    enum class Security {
        /// No TLS.
        None,
        /// TLS after STARTTLS, which is offered and not demanded.
        StartTLS,
        /// TLS from the first byte.
        Implicit,
    };

    /// AUTH PLAIN and LOGIN, for "user" with "secret".
    enum class Authentication {
        None,
        /// Whoever does not log in may send too.
        Offered,
        /// MAIL is answered with 530 before a login.
        Demanded,
    };

    struct CSettings {
        /// With CTestCertificates::serverCertificate().
        Security security = Security::None;
        Authentication authentication = Authentication::None;
        /// What is answered to a command line that starts with the key, such as {"RCPT TO:<a@", "550 5.1.1 Unknown"},
        /// in place of carrying it out; letters may be of any case. The key "." stands for the end of a message. An
        /// empty answer closes the connection.
        std::map<std::string, std::string> replies = {};
        /// Closes the connection when more bytes of a message have come. Negative: never.
        std::int64_t disconnectAfter = -1;
    };

    struct CMessage {
        /// The envelope's addresses, without angle brackets.
        std::string from;
        std::vector<std::string> recipients;
        /// As it was sent, after the dots of transparency are taken away, with the line end before the final dot.
        std::string body;
        /// Who has logged in, empty if nobody has.
        std::string user;
        /// Whether it came through TLS.
        bool isSecure = false;
    };

    /// Blocks until the server listens.
    /// @throws std::runtime_error if it cannot be started
    CSMTPServer();
    explicit CSMTPServer(const CSettings& settings);

    unsigned short getPort() const;

    /// @return "smtp://127.0.0.1:port", "smtps://127.0.0.1:port" for implicit TLS
    std::string url() const;

    /// @return the messages in order of arrival. A message is there when the server has accepted it.
    std::vector<CMessage> messages() const;

    /// @return the folder of the messages, for other programs: N.body and others for the N-th message, from 000000 on
    std::filesystem::path messageFolder() const;

private:
    std::unique_ptr<CServerProcess> start();

    CSettings m_settings;
    CTemporaryFolder m_folder;
    unsigned short m_port = 0;
    std::unique_ptr<CServerProcess> m_process;
};

} // namespace support
