#include "tests/support/CTestCertificates.h"

#include "tests/support/CIdentity.h"

namespace support {

namespace {

constexpr long day = 24 * 3600;
const char* const localNames = "DNS:localhost,DNS:*.s3.localhost,IP:127.0.0.1";

} // namespace

const CTestCertificates& CTestCertificates::get()
{
    static const CTestCertificates certificates;
    return certificates;
}

CTestCertificates::CTestCertificates()
{
    const CIdentity authority({.commonName = "test authority", .isAuthority = true});
    write(authority, "ca");
    write(CIdentity({.commonName = "other authority", .isAuthority = true}), "other-ca");
    write(CIdentity({.commonName = "localhost", .subjectAltName = localNames}, &authority), "server");
    write(CIdentity({.commonName = "wrong.example", .subjectAltName = "DNS:wrong.example"}, &authority), "wrong-host");
    write(CIdentity({.commonName = "localhost", .subjectAltName = localNames, .validFrom = -2 * day, .validTo = -day},
              &authority),
        "expired");
    const CIdentity client({.commonName = "client"}, &authority);
    write(client, "client");
    const char* const password = "open sesame";
    client.writeKey(encryptedClientKey(), password);
    client.writePKCS12(clientPKCS12(), password);
}

std::filesystem::path CTestCertificates::caFile() const
{
    return certificate("ca");
}

std::filesystem::path CTestCertificates::otherCAFile() const
{
    return certificate("other-ca");
}

std::filesystem::path CTestCertificates::serverCertificate() const
{
    return certificate("server");
}

std::filesystem::path CTestCertificates::serverKey() const
{
    return key("server");
}

std::filesystem::path CTestCertificates::wrongHostCertificate() const
{
    return certificate("wrong-host");
}

std::filesystem::path CTestCertificates::wrongHostKey() const
{
    return key("wrong-host");
}

std::filesystem::path CTestCertificates::expiredCertificate() const
{
    return certificate("expired");
}

std::filesystem::path CTestCertificates::expiredKey() const
{
    return key("expired");
}

std::filesystem::path CTestCertificates::clientCertificate() const
{
    return certificate("client");
}

std::filesystem::path CTestCertificates::clientKey() const
{
    return key("client");
}

std::filesystem::path CTestCertificates::encryptedClientKey() const
{
    return key("client-encrypted");
}

std::filesystem::path CTestCertificates::clientPKCS12() const
{
    return m_folder.path() / "client.p12";
}

void CTestCertificates::write(const CIdentity& identity, const std::string& name) const
{
    identity.writeCertificate(certificate(name));
    identity.writeKey(key(name));
}

std::filesystem::path CTestCertificates::certificate(const std::string& name) const
{
    return m_folder.path() / (name + ".pem");
}

std::filesystem::path CTestCertificates::key(const std::string& name) const
{
    return m_folder.path() / (name + ".key");
}

} // namespace support
