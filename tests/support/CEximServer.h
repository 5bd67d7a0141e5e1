#pragma once

#include "tests/support/CServerProcess.h"
#include "tests/support/CTemporaryFolder.h"

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace support {

/// A real mail transfer agent (Exim) on free ports of 127.0.0.1 that keeps every message and sends none on. STARTTLS is
/// offered, implicit TLS has a port of its own, both with CTestCertificates::serverCertificate(). It knows AUTH PLAIN,
/// LOGIN and CRAM-MD5 for "user" with "secret", and refuses the recipients reject@... with 550 and tempfail@... with
/// 451. Messages of up to 200 MB pass. Without TLS its answer to QUIT takes 0.2 s.
class CEximServer {
public:
    enum class Authentication {
        /// Whoever does not log in may send too.
        Offered,
        /// MAIL is answered with 530 before a login.
        Demanded,
    };

    /// Blocks until the server listens.
    /// @throws std::runtime_error if it cannot be started
    explicit CEximServer(Authentication authentication = Authentication::Offered);

    unsigned short getPort() const;
    unsigned short tlsPort() const;

    /// @return "smtp://127.0.0.1:port"
    std::string url() const;

    /// @return "smtps://127.0.0.1:port", for implicit TLS
    std::string tlsURL() const;

    /// Blocks until so many messages are stored. Each recipient has a copy, which counts as a message.
    /// @return all that are stored, in order of arrival. A header, an empty line and a body, in lines that end with
    /// CRLF, come out byte for byte: without the dots of transparency, with the line end before the final dot, nothing
    /// added. Anything else, such as a bare line feed, may have been mended.
    /// @throws std::runtime_error with the server's log if 15 seconds have passed
    std::vector<std::string> waitForMessages(size_t count) const;

    /// @return the server's main log so far: a line with "<=" for each message that was accepted, with the envelope's
    /// addresses ("from <a@b> for c@d e@f"), "P=esmtpsa" and the like, "A=plain:user" after a login and "X=TLS..." for
    /// TLS. It is there before the client has its answer. What was refused has a line too, which may come later.
    std::string log() const;

    /// Blocks until the log contains the text.
    /// @throws std::runtime_error with the server's log if 15 seconds have passed
    void waitUntilLogged(std::string_view text) const;

private:
    std::vector<std::filesystem::path> storedFiles() const;
    void makeFiles() const;
    std::filesystem::path writeConfiguration(Authentication authentication) const;
    std::unique_ptr<CServerProcess> start(Authentication authentication);

    CTemporaryFolder m_folder;
    unsigned short m_port = 0;
    unsigned short m_tlsPort = 0;
    std::unique_ptr<CServerProcess> m_process;
};

} // namespace support
