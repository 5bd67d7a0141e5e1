#include "tests/support/CIdentity.h"

#include "tests/support/openSSLError.h"

#include <openssl/bio.h>
#include <openssl/pem.h>
#include <openssl/pkcs12.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

namespace support {

namespace {

using BIOPointer = std::unique_ptr<BIO, decltype(&BIO_free)>;

BIOPointer openForWriting(const std::filesystem::path& file)
{
    return BIOPointer(checkedOpenSSL(BIO_new_file(file.c_str(), "w"), file.c_str()), &BIO_free);
}

uint64_t randomSerialNumber()
{
    uint64_t number = 0;
    checkOpenSSL(RAND_bytes(reinterpret_cast<unsigned char*>(&number), sizeof number), "RAND_bytes");
    return number >> 1;
}

} // namespace

CIdentity::CIdentity(const CSettings& settings, const CIdentity* issuer)
    : m_key(checkedOpenSSL(EVP_EC_gen("P-256"), "EVP_EC_gen"), &EVP_PKEY_free)
    , m_certificate(checkedOpenSSL(X509_new(), "X509_new"), &X509_free)
{
    const CIdentity& signer = issuer ? *issuer : *this;
    X509* const certificate = m_certificate.get();
    checkOpenSSL(X509_set_version(certificate, X509_VERSION_3), "X509_set_version");
    checkOpenSSL(
        ASN1_INTEGER_set_uint64(X509_get_serialNumber(certificate), randomSerialNumber()), "ASN1_INTEGER_set_uint64");
    checkOpenSSL(X509_set_pubkey(certificate, m_key.get()), "X509_set_pubkey");
    setNames(settings, signer);
    setValidity(settings);
    setExtensions(settings, signer);
    checkOpenSSL(X509_sign(certificate, signer.m_key.get(), EVP_sha256()), "X509_sign");
}

void CIdentity::writeCertificate(const std::filesystem::path& file) const
{
    const BIOPointer stream = openForWriting(file);
    checkOpenSSL(PEM_write_bio_X509(stream.get(), m_certificate.get()), file.c_str());
}

void CIdentity::writeKey(const std::filesystem::path& file) const
{
    const BIOPointer stream = openForWriting(file);
    checkOpenSSL(
        PEM_write_bio_PrivateKey(stream.get(), m_key.get(), nullptr, nullptr, 0, nullptr, nullptr), file.c_str());
}

void CIdentity::writeKey(const std::filesystem::path& file, const std::string& password) const
{
    const BIOPointer stream = openForWriting(file);
    checkOpenSSL(PEM_write_bio_PrivateKey(stream.get(), m_key.get(), EVP_aes_256_cbc(),
                     reinterpret_cast<const unsigned char*>(password.data()), static_cast<int>(password.size()),
                     nullptr, nullptr),
        file.c_str());
}

void CIdentity::writePKCS12(const std::filesystem::path& file, const std::string& password) const
{
    const std::unique_ptr<PKCS12, decltype(&PKCS12_free)> store(
        checkedOpenSSL(
            PKCS12_create(password.c_str(), "identity", m_key.get(), m_certificate.get(), nullptr, 0, 0, 0, 0, 0),
            "PKCS12_create"),
        &PKCS12_free);
    checkOpenSSL(i2d_PKCS12_bio(openForWriting(file).get(), store.get()), file.c_str());
}

void CIdentity::setNames(const CSettings& settings, const CIdentity& issuer)
{
    X509_NAME* const subject = X509_get_subject_name(m_certificate.get());
    const auto* const text = reinterpret_cast<const unsigned char*>(settings.commonName.c_str());
    checkOpenSSL(X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_UTF8, text, -1, -1, 0), "common name");
    checkOpenSSL(
        X509_set_issuer_name(m_certificate.get(), X509_get_subject_name(issuer.m_certificate.get())), "issuer");
}

void CIdentity::setValidity(const CSettings& settings)
{
    checkedOpenSSL(X509_gmtime_adj(X509_getm_notBefore(m_certificate.get()), settings.validFrom), "notBefore");
    checkedOpenSSL(X509_gmtime_adj(X509_getm_notAfter(m_certificate.get()), settings.validTo), "notAfter");
}

void CIdentity::setExtensions(const CSettings& settings, const CIdentity& issuer)
{
    X509V3_CTX context;
    X509V3_set_ctx(&context, issuer.m_certificate.get(), m_certificate.get(), nullptr, nullptr, 0);
    addExtension(context, NID_basic_constraints, settings.isAuthority ? "critical,CA:TRUE" : "critical,CA:FALSE");
    addExtension(context, NID_subject_key_identifier, "hash");
    addExtension(context, NID_authority_key_identifier, "keyid");
    addExtension(context, NID_key_usage, settings.isAuthority ? "critical,keyCertSign,cRLSign" : "digitalSignature");
    if (!settings.isAuthority)
        addExtension(context, NID_ext_key_usage, "serverAuth,clientAuth");
    if (!settings.subjectAltName.empty())
        addExtension(context, NID_subject_alt_name, settings.subjectAltName);
}

void CIdentity::addExtension(X509V3_CTX& context, int nid, const std::string& value)
{
    X509_EXTENSION* const made = X509V3_EXT_conf_nid(nullptr, &context, nid, value.c_str());
    const std::unique_ptr<X509_EXTENSION, decltype(&X509_EXTENSION_free)> extension(
        checkedOpenSSL(made, value.c_str()), &X509_EXTENSION_free);
    checkOpenSSL(X509_add_ext(m_certificate.get(), extension.get(), -1), value.c_str());
}

} // namespace support
