#pragma once

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <filesystem>
#include <memory>
#include <string>

namespace support {

/// An EC P-256 key with its certificate, made with libcrypto.
class CIdentity {
public:
    struct CSettings {
        std::string commonName;
        /// Such as "DNS:localhost,IP:127.0.0.1"; none if empty.
        std::string subjectAltName = {};
        /// May sign other certificates.
        bool isAuthority = false;
        /// The validity, in seconds from now.
        long validFrom = -3600;
        long validTo = 24 * 3600;
    };

    /// @param issuer signs the certificate; null for a certificate signed with its own key
    /// @throws std::runtime_error if libcrypto fails
    explicit CIdentity(const CSettings& settings, const CIdentity* issuer = nullptr);

    /// Writes the certificate or the private key in PEM.
    /// @throws std::runtime_error if the file cannot be written
    void writeCertificate(const std::filesystem::path& file) const;
    void writeKey(const std::filesystem::path& file) const;

    /// Writes the private key in PEM, encrypted.
    void writeKey(const std::filesystem::path& file, const std::string& password) const;

    /// Writes both as PKCS#12.
    void writePKCS12(const std::filesystem::path& file, const std::string& password) const;

private:
    void setNames(const CSettings& settings, const CIdentity& issuer);
    void setValidity(const CSettings& settings);
    void setExtensions(const CSettings& settings, const CIdentity& issuer);
    void addExtension(X509V3_CTX& context, int nid, const std::string& value);

    std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> m_key;
    std::unique_ptr<X509, decltype(&X509_free)> m_certificate;
};

} // namespace support
