#pragma once

#include "tests/support/CServerProcess.h"
#include "tests/support/CTemporaryFolder.h"

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace support {

/// A real OpenSSH server on a free port of 127.0.0.1 with keys of its own, for SFTP alone. It lets in the user who runs
/// the test, with privateKeyFile(), to all files that this user may see.
class CSSHServer {
public:
    enum class Access { All, ReadOnly };

    /// Blocks until the server listens.
    /// @param hostKeyTypes which keys it has, as ssh-keygen calls them
    /// @throws std::runtime_error if it cannot be started
    explicit CSSHServer(const std::vector<std::string>& hostKeyTypes = {"ed25519"}, Access access = Access::All);

    unsigned short getPort() const;

    /// @param absolutePath on this machine, such as root() / "digits.txt"
    /// @return "sftp://127.0.0.1:port/absolute/path"
    std::string url(std::string_view absolutePath) const;

    /// @return the name to log in with
    std::string userName() const;

    /// The Ed25519 key, without a passphrase, in OpenSSH's formats.
    std::filesystem::path privateKeyFile() const;
    std::filesystem::path publicKeyFile() const;

    /// @return the line "127.0.0.1 ssh-ed25519 KEY" of a known-hosts file ("[127.0.0.1]:port" stands before the key)
    std::string knownHostsLine(const std::string& hostKeyType = "ed25519") const;

    /// @return "SHA256:..." as ssh-keygen tells it
    std::string fingerprint(const std::string& hostKeyType = "ed25519") const;

    /// @return a folder with a file digits.txt with "0123456789"
    std::filesystem::path root() const;

    /// @return what the server has logged so far (LogLevel VERBOSE)
    std::string log() const;

private:
    std::filesystem::path hostKeyFile(const std::string& hostKeyType) const;
    std::unique_ptr<CServerProcess> start(const std::vector<std::string>& hostKeyTypes, Access access);

    CTemporaryFolder m_folder;
    unsigned short m_port = 0;
    std::unique_ptr<CServerProcess> m_process;
};

} // namespace support
