#include "tests/support/CTLSChannel.h"

#include "tests/support/openSSLError.h"

#include <openssl/err.h>

#include <poll.h>

namespace support {

CTLSChannel::CTLSChannel(int socket, const std::filesystem::path& certificateFile, const std::filesystem::path& keyFile)
    : m_context(checkedOpenSSL(SSL_CTX_new(TLS_server_method()), "SSL_CTX_new"), &SSL_CTX_free)
    , m_session(nullptr, &SSL_free)
{
    SSL_CTX* const context = m_context.get();
    checkOpenSSL(SSL_CTX_use_certificate_chain_file(context, certificateFile.c_str()), "certificate file");
    checkOpenSSL(SSL_CTX_use_PrivateKey_file(context, keyFile.c_str(), SSL_FILETYPE_PEM), "key file");
    SSL_CTX_set_options(context, SSL_OP_IGNORE_UNEXPECTED_EOF);
    SSL_CTX_set_mode(context, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
    SSL_CTX_set_num_tickets(context, 0);
    m_session.reset(checkedOpenSSL(SSL_new(context), "SSL_new"));
    checkOpenSSL(SSL_set_fd(m_session.get(), socket), "SSL_set_fd");
}

CAttempt CTLSChannel::shakeHands()
{
    ERR_clear_error();
    const int result = SSL_accept(m_session.get());
    return result == 1 ? CAttempt{} : unfinished(result, "TLS handshake");
}

CAttempt CTLSChannel::read(std::span<char> block)
{
    ERR_clear_error();
    size_t count = 0;
    const int result = SSL_read_ex(m_session.get(), block.data(), block.size(), &count);
    return result == 1 ? CAttempt{.count = count} : unfinished(result, "TLS read");
}

CAttempt CTLSChannel::write(std::string_view bytes)
{
    ERR_clear_error();
    size_t count = 0;
    const int result = SSL_write_ex(m_session.get(), bytes.data(), bytes.size(), &count);
    return result == 1 ? CAttempt{.count = count} : unfinished(result, "TLS write");
}

CAttempt CTLSChannel::sayGoodbye()
{
    ERR_clear_error();
    // 0: sent, the peer's own goodbye has not come yet.
    const int result = SSL_shutdown(m_session.get());
    return result >= 0 ? CAttempt{} : unfinished(result, "TLS goodbye");
}

CAttempt CTLSChannel::unfinished(int result, const char* what)
{
    switch (SSL_get_error(m_session.get(), result)) {
    case SSL_ERROR_WANT_READ:
        return {.waitFor = POLLIN};
    case SSL_ERROR_WANT_WRITE:
        return {.waitFor = POLLOUT};
    case SSL_ERROR_ZERO_RETURN:
    case SSL_ERROR_SYSCALL:
        return {.isEnded = true};
    default:
        throwOpenSSLError(what);
    }
}

} // namespace support
