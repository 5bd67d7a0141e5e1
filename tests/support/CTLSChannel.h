#pragma once

#include "tests/support/IByteChannel.h"

#include <openssl/ssl.h>

#include <filesystem>
#include <memory>

namespace support {

/// The server's side of TLS on a connected non-blocking socket, which it does not own. Sends no session tickets,
/// accepts every client. Writing to a closed socket raises SIGPIPE, which the thread that uses this has to block.
class CTLSChannel : public IByteChannel {
public:
    /// @param certificateFile and @param keyFile in PEM
    /// @throws std::runtime_error if the files cannot be used
    CTLSChannel(int socket, const std::filesystem::path& certificateFile, const std::filesystem::path& keyFile);

    /// One attempt to go on with the handshake, which is finished when there is nothing to wait for and the peer has
    /// not ended.
    /// @throws std::runtime_error if it fails, for example because the client does not trust the certificate
    CAttempt shakeHands();

    CAttempt read(std::span<char> block) override;
    CAttempt write(std::string_view bytes) override;
    CAttempt sayGoodbye() override;

private:
    CAttempt unfinished(int result, const char* what);

    std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> m_context;
    std::unique_ptr<SSL, decltype(&SSL_free)> m_session;
};

} // namespace support
