#pragma once

#include "tests/support/CTemporaryFolder.h"

#include <filesystem>
#include <string>

namespace support {

class CIdentity;

/// Certificates and keys in PEM files, made once by each test program that asks for them; their folder is removed when
/// the program ends. All but the other authority come from one test authority. Any thread.
class CTestCertificates {
public:
    /// @throws std::runtime_error if they cannot be made
    static const CTestCertificates& get();

    /// The authority that signed all the certificates here.
    std::filesystem::path caFile() const;

    /// An authority that signed none of them.
    std::filesystem::path otherCAFile() const;

    /// For localhost and 127.0.0.1.
    std::filesystem::path serverCertificate() const;
    std::filesystem::path serverKey() const;

    /// For wrong.example alone.
    std::filesystem::path wrongHostCertificate() const;
    std::filesystem::path wrongHostKey() const;

    /// For localhost and 127.0.0.1, invalid since yesterday.
    std::filesystem::path expiredCertificate() const;
    std::filesystem::path expiredKey() const;

    /// With the common name "client".
    std::filesystem::path clientCertificate() const;
    std::filesystem::path clientKey() const;

    /// The same key in PEM, encrypted, and both as PKCS#12, with the password "open sesame".
    std::filesystem::path encryptedClientKey() const;
    std::filesystem::path clientPKCS12() const;

private:
    CTestCertificates();

    void write(const CIdentity& identity, const std::string& name) const;
    std::filesystem::path certificate(const std::string& name) const;
    std::filesystem::path key(const std::string& name) const;

    CTemporaryFolder m_folder;
};

} // namespace support
