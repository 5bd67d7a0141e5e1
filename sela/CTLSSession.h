#pragma once

#include "kx/containers/TArray.h"
#include "kx/text/String.h"

#include <memory>

struct ssl_session_st; // OpenSSL's SSL_SESSION
struct stack_st_X509;  // OpenSSL's STACK_OF(X509)

namespace sela {

/// What the two sides of a TLS connection have agreed on, and who the other side said it is. It outlives the
/// connection. A value; copies share what never changes. Used by one thread at a time.
class CTLSSession {
public:
    CTLSSession() = default; ///< of no connection

    /// Takes references alone, so that it costs nothing beside a handshake. Nothing while that is not done.
    /// @param ssl OpenSSL's SSL of a living connection, as libcurl hands it out; null: none
    /// @throws std::bad_alloc
    explicit CTLSSession(void* ssl);

    bool isThere() const noexcept { return m_session != nullptr; }

    /// Whether this is still what that connection has agreed on.
    /// @param ssl as for the constructor
    bool isOf(void* ssl) const noexcept;

    /// Such as "TLSv1.3"; empty of no connection.
    kx::String getVersion() const { return kx::String::fromLatin1(m_version); }

    /// OpenSSL's name of it, such as "TLS_AES_256_GCM_SHA384"; empty of no connection.
    kx::String getCipher() const { return kx::String::fromLatin1(m_cipher); }

    /// The subjects of the certificates that the other side has sent, its own one first, as RFC 4514 writes them
    /// ("CN=example.org,O=Example"). A session that was resumed may have kept the first alone.
    kx::TArray<kx::String> getSubjects() const;

private:
    std::shared_ptr<ssl_session_st> m_session;
    std::shared_ptr<stack_st_X509> m_chain; // null: none
    const char* m_version = "";             // both are OpenSSL's own, for ever
    const char* m_cipher = "";
};

} // namespace sela
