#pragma once

#include "kx/files/CUnixPathTraits.h"
#include "kx/files/TPathImpl.h"
#include "kx/text/String.h"

// Files for TLS, looked at before a connection fails for them. Errors name the file and the reason, never a password.

namespace sela {

/// The certificates (PEM) of those who are believed.
/// @throws kx::CError when the file cannot be read, holds none, or one that is broken
KX_EXPORT void requireRootCertificates(const kx::TPathImpl<kx::CUnixPathTraits>& file);

/// A certificate and the private key to it (PEM).
/// @param keyFile may be the same file
/// @param password of the key; empty when it has none
/// @throws kx::CError when a file cannot be read or holds no such thing, the password is wrong or missing, or the key
/// belongs to another certificate
KX_EXPORT void requireCertificateWithKey(const kx::TPathImpl<kx::CUnixPathTraits>& certificateFile,
    const kx::TPathImpl<kx::CUnixPathTraits>& keyFile, const kx::String& password);

/// Both in one PKCS#12 file. @throws kx::CError as above
KX_EXPORT void requirePKCS12(const kx::TPathImpl<kx::CUnixPathTraits>& file, const kx::String& password);

/// The private key of an SSH login, in PEM or in OpenSSH's own format, of which only is looked at whether it needs a
/// passphrase.
/// @throws kx::CError when the file cannot be read or holds none, or the passphrase is wrong or missing
KX_EXPORT void requirePrivateKey(const kx::TPathImpl<kx::CUnixPathTraits>& file, const kx::String& passphrase);

} // namespace sela
