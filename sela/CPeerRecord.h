#pragma once

#include "kx/base/visibility.h"
#include "kx/text/String.h"

#include <memory>
#include <mutex>
#include <optional>
#include <string_view>

namespace sela {

/// The certificate that the server of a TLS connection has shown last, for errors: what a handshake leaves behind that
/// fails for the certificate. Any thread.
class KX_EXPORT CPeerRecord {
public:
    /// What a server's certificate says, as texts to show. A value.
    struct CCertificate {
        kx::String subject;      ///< such as "CN = localhost"
        kx::String issuer;       ///< the same
        kx::String names;        ///< "DNS:localhost, IP:127.0.0.1"; empty when there are none
        kx::String publicKeyPin; ///< "sha256//" and the digest of the public key in Base64
        kx::String validFrom;    ///< such as "Nov 22 04:03:16 2026 GMT"
        kx::String validUntil;   ///< the same
    };

    /// Whether the connections of somebody who says that their TLS is of this kind and version, such as
    /// "OpenSSL/3.0.17", can be watched: those of the OpenSSL that is used here.
    static bool canWatch(std::string_view tlsVersion) noexcept;

    /// Notices what the connections show that are made with the context, also after everybody else has forgotten the
    /// record. What is accepted stays the same.
    /// @param context SSL_CTX of OpenSSL
    /// @return false when OpenSSL has no memory for it
    static bool watch(void* context, const std::shared_ptr<CPeerRecord>& record) noexcept;

    void forget() noexcept;
    std::optional<CCertificate> get() const;

    /// For watch() alone. @param certificate X509 of OpenSSL
    void notice(void* certificate);

private:
    mutable std::mutex m_mutex;
    std::optional<CCertificate> m_certificate;
};

} // namespace sela
