#pragma once

#include "tests/support/CServerProcess.h"
#include "tests/support/CTemporaryFolder.h"

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace support {

/// A real Apache HTTP server on a free port of 127.0.0.1, for what nginx cannot do: below /digest/ it wants digest
/// authentication as "user" with "secret", realm "digest", and lets in GET, PUT and DELETE. There is
/// /digest/digits.txt.
class CApacheServer {
public:
    /// Blocks until the server listens.
    /// @throws std::runtime_error if it cannot be started
    CApacheServer();

    unsigned short getPort() const;

    /// @param path starts with "/"
    std::string url(std::string_view path = "/") const;

    /// @return the folder of the files
    std::filesystem::path root() const;

    /// A line for each request, oldest first: "METHOD PATH PROTOCOL STATUS auth=USER", such as "GET /digest/digits.txt
    /// HTTP/1.1 200 auth=user". Blocks until requests whose answers the client has read to the end are logged.
    /// @throws std::runtime_error if Apache does not answer
    std::vector<std::string> accessLog() const;

private:
    void makeFiles() const;
    std::unique_ptr<CServerProcess> start();

    CTemporaryFolder m_folder;
    unsigned short m_port = 0;
    std::unique_ptr<CServerProcess> m_process;
};

} // namespace support
