#pragma once

#include "tests/support/CServerProcess.h"
#include "tests/support/CTemporaryFolder.h"

#include <array>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace support {

/// A real nginx on free ports of 127.0.0.1: HTTP, and HTTPS with HTTP/2 and three certificates of CTestCertificates,
/// all with the same locations:
///
/// | Path | Answer |
/// |---|---|
/// | /digits.txt and every other file in root() | the file; "0123456789" |
/// | /dav/... | GET, PUT, DELETE, MKCOL, COPY, MOVE; folders are made as needed, bodies of any size |
/// | /echo, /post | any method, reads the whole body: 200 "METHOD length\n" |
/// | /store/NAME | any method: the body becomes the file store/NAME in root(), 201 or 204 |
/// | /redirect/301 302 303 307 308 | redirects to /echo |
/// | /chain/3 | redirects to /chain/2, /chain/1 and then to /digits.txt |
/// | /loop | redirects to itself |
/// | /drop | closes without an answer |
/// | /slow.bin | 200 KB at 20 KB a second |
/// | /noranges/digits.txt | ignores ranges |
/// | /private/digits.txt | 401 without basic authentication as "user" with "secret", realm "private" |
/// | /token | 401 without the bearer token "abc.def" |
/// | /cookies | the cookies that came; sets the cookie "visit" to "yes", for the session |
/// | /gzip/text.txt | compressed if asked for, 10000 letters |
/// | /headers | X-Repeated: one and X-Repeated: two, X-Header-1 to X-Header-10: value 1 to value 10, body "headers\n" |
/// | /status/404 | 404 text/html "<html><body><h1>Not here</h1></body></html>" |
/// | /status/500 503 | with nginx's own page |
class CNginxServer {
public:
    /// Blocks until nginx serves.
    /// @throws std::runtime_error if it cannot be started
    CNginxServer();
    CNginxServer(const CNginxServer&) = delete;
    CNginxServer& operator=(const CNginxServer&) = delete;

    /// @param path starts with "/"
    std::string url(std::string_view path = "/") const;

    /// At 127.0.0.1, with HTTP/2, signed by CTestCertificates::caFile().
    std::string httpsURL(std::string_view path = "/") const;

    /// As httpsURL(), with the certificate for wrong.example.
    std::string wrongHostURL(std::string_view path = "/") const;

    /// As httpsURL(), with the expired certificate.
    std::string expiredURL(std::string_view path = "/") const;

    /// As httpsURL(), without HTTP/2 and with TLS 1.3 too, for those alone who show a certificate of
    /// CTestCertificates::caFile(). /client answers with the
    /// certificate's subject, such as "CN=client".
    std::string mutualURL(std::string_view path = "/") const;

    /// As httpsURL(), with nothing newer than TLS 1.1.
    std::string oldTLSURL(std::string_view path = "/") const;

    /// As httpsURL(), at a server that closes each connection behind its seventh request.
    std::string impatientURL(std::string_view path = "/") const;

    unsigned short getPort() const;
    unsigned short getHTTPSPort() const;

    /// @return the folder of the files
    std::filesystem::path root() const;

    /// Makes a file of so many zero bytes, which takes no space on the disk, at "/big-SIZE.bin".
    /// @return its path for url()
    std::string big(std::uintmax_t size) const;

    /// A line for each request that was answered or dropped, oldest first: "METHOD URI PROTOCOL STATUS range=RANGE
    /// length=REQUEST-BODY-LENGTH auth=USER", such as "GET /digits.txt HTTP/1.1 206 range=bytes=3-6 length=- auth=-".
    /// Blocks until requests whose answers the client has read to the end are logged.
    /// @throws std::runtime_error if nginx does not answer
    std::vector<std::string> accessLog() const;

    /// @return the last line of accessLog(), empty if there is none
    std::string lastAccess() const;

private:
    enum Listener { Plain, Secure, WrongHost, Expired, Mutual, OldTLS, Impatient, ListenerCount };

    void writeFiles() const;
    void writeConfiguration() const;
    std::unique_ptr<CServerProcess> start();

    CTemporaryFolder m_folder;
    std::array<unsigned short, ListenerCount> m_ports{};
    std::unique_ptr<CServerProcess> m_process;
};

} // namespace support
