#pragma once

#include "kx/base/visibility.h"
#include "kx/containers/TArray.h"
#include "kx/files/CUnixPathTraits.h"
#include "kx/files/TPathImpl.h"
#include "kx/text/String.h"

namespace norla {

enum class TLSVersion { TLS1_0, TLS1_1, TLS1_2, TLS1_3 };

/// How a certificate and its private key are stored.
enum class CertificateFormat { PEM, PKCS12 };

/// How the two sides of a TLS connection prove who they are; of HTTPS, and of the other protocols with TLS. A plain
/// value. What is left out is as safe as it can be for everybody.
///
/// Proxies of scheme "https" are not meant: their TLS is what libcurl's options for proxies make of it.
struct KX_EXPORT CTLSOptions {
    using Path = kx::TPathImpl<kx::CUnixPathTraits>;

    /// Nothing older is spoken. The system's OpenSSL may demand more (Debian's: TLS 1.2).
    TLSVersion leastVersion = TLSVersion::TLS1_2;

    /// Who is believed: a file of certificates in PEM, a folder of them under the names that "openssl rehash" gives
    /// them, or both, in place of those that the system believes. Empty, both: those of the system.
    Path rootsFile = {};
    Path rootsFolder = {};

    /// The certificate that the server is shown when it asks for one, the file of its key, where that is another one,
    /// and the password of the key. Empty: none.
    Path certificateFile = {};
    Path keyFile = {};
    kx::String keyPassword = {};
    CertificateFormat certificateFormat = CertificateFormat::PEM;

    /// Digests of public keys, "sha256//" and 44 characters of Base64 each, of which the server's has to be one, beside
    /// everything else that is demanded. Empty: any key.
    kx::TArray<kx::String> pinnedKeys = {};

    /// False believes a certificate of any issuer and any age.
    bool verifyCertificate = true;

    /// False believes a certificate that is for another host.
    bool verifyHostName = true;
};

} // namespace norla
