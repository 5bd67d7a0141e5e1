#pragma once

#include "tests/support/CServerProcess.h"
#include "tests/support/CTemporaryFolder.h"

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

namespace support {

/// What the proxy servers have in common: a port of 127.0.0.1, a log, a folder of their own. It runs as long as the
/// object lives.
class CProxyServer {
public:
    /// Who is let in. Everybody, without a question, if the user is empty.
    struct CLogin {
        std::string user = {};
        std::string password = {};
    };

    CProxyServer(const CProxyServer&) = delete;
    CProxyServer& operator=(const CProxyServer&) = delete;

    unsigned short getPort() const;

    /// @return "127.0.0.1:port"
    std::string host() const;

    /// @return what the server has logged so far. A line may come later than the answer that it is about.
    std::string log() const;

    /// Blocks until the log contains the text.
    /// @throws std::runtime_error with the log if 15 seconds have passed
    void waitUntilLogged(std::string_view text) const;

protected:
    /// Keeps a port.
    CProxyServer();
    ~CProxyServer() = default;

    const CTemporaryFolder& folder() const;

    /// In the folder.
    std::filesystem::path logFile() const;

    /// Blocks until the server accepts a connection.
    /// @param settings with logFile()
    /// @param readyText what the server logs before it serves; may be empty. It does not tell that the server listens:
    /// Squid logs so a moment before.
    /// @throws std::runtime_error if it cannot be started
    void start(const CServerProcess::CSettings& settings, std::string_view readyText);

private:
    CTemporaryFolder m_folder;
    CDescriptor m_reservedPort;
    std::unique_ptr<CServerProcess> m_process;
};

} // namespace support
