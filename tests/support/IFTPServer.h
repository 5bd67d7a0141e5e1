#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace support {

/// A real FTP server on a free port of 127.0.0.1 that runs as long as the object lives, for one user who may do
/// everything below root(). Several may run at once, each serves many connections at once.
class IFTPServer {
public:
    enum class Security {
        /// No TLS.
        None,
        /// TLS after AUTH TLS. Whether the server demands it is said by its class.
        Explicit,
        /// TLS from the first byte.
        Implicit,
    };

    IFTPServer() = default;
    IFTPServer(const IFTPServer&) = delete;
    IFTPServer& operator=(const IFTPServer&) = delete;
    virtual ~IFTPServer() = default;

    virtual Security getSecurity() const = 0;
    virtual unsigned short getPort() const = 0;

    /// @param path starts with "/"
    /// @param scheme empty means "ftps" if TLS is implicit, and "ftp" if it is not
    /// @return "ftp://127.0.0.1:port/path"
    std::string url(std::string_view path = "/", std::string_view scheme = {}) const;

    /// @return the folder that the user sees as "/". It has a file digits.txt with "0123456789"; the user may also
    /// change files and folders that the test puts there.
    virtual std::filesystem::path root() const = 0;

    /// @return what the server has logged so far, in its own words: at least the paths of the files that were
    /// transferred
    virtual std::string log() const = 0;

    virtual std::string userName() const = 0;
    virtual std::string password() const = 0;
};

} // namespace support
