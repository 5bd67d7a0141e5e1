#include "sela/CPeerRecord.h"

#include "kx/containers/TBuffer.h"
#include "sela/CDigest.h"
#include "sela/CErrorMark.h"
#include "sela/base64.h"

#include <openssl/bio.h>
#include <openssl/crypto.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <new>
#include <string>

namespace sela {

namespace {

using RecordPointer = std::shared_ptr<CPeerRecord>;
using BIOPointer = std::unique_ptr<BIO, decltype(&BIO_free)>;

void freeRecord(void* /*parent*/, void* pointer, CRYPTO_EX_DATA* /*all*/, int /*index*/, long /*number*/,
    void* /*argument*/) noexcept
{
    delete static_cast<RecordPointer*>(pointer);
}

int recordIndex() noexcept
{
    static const int index = SSL_CTX_get_ex_new_index(0, nullptr, nullptr, nullptr, &freeRecord);
    return index;
}

/// What a server writes about itself may be of any length.
template <typename TWrite>
kx::String written(TWrite write)
{
    constexpr size_t most = 300;
    const BIOPointer stream(BIO_new(BIO_s_mem()), &BIO_free);
    if (!stream)
        return kx::String();
    write(stream.get());
    char* text = nullptr;
    const long size = BIO_get_mem_data(stream.get(), &text);
    const kx::String all = kx::String::fromUTF8({text, static_cast<size_t>(std::max(size, 0L))});
    return all.size() > most ? all.substr(0, most) + "..." : all;
}

kx::String textOf(const X509_NAME* name)
{
    constexpr unsigned long flags = XN_FLAG_ONELINE & ~ASN1_STRFLGS_ESC_MSB; // UTF-8 without control characters
    return written([name](BIO* stream) { X509_NAME_print_ex(stream, name, 0, flags); });
}

kx::String textOf(const ASN1_TIME* time)
{
    return written([time](BIO* stream) { ASN1_TIME_print(stream, time); });
}

void writeName(BIO* stream, GENERAL_NAME* name)
{
    if (name->type != GEN_DNS) {
        GENERAL_NAME_print(stream, name);
        return;
    }
    BIO_puts(stream, "DNS:");
    ASN1_STRING_print_ex(stream, name->d.ia5, ASN1_STRFLGS_ESC_CTRL | ASN1_STRFLGS_UTF8_CONVERT);
}

kx::String namesOf(X509* certificate)
{
    auto* const names
        = static_cast<GENERAL_NAMES*>(X509_get_ext_d2i(certificate, NID_subject_alt_name, nullptr, nullptr));
    const std::unique_ptr<GENERAL_NAMES, decltype(&GENERAL_NAMES_free)> owned(names, &GENERAL_NAMES_free);
    return written([names](BIO* stream) {
        for (int i = 0; i < sk_GENERAL_NAME_num(names); ++i) { // -1 for null
            BIO_puts(stream, i > 0 ? ", " : "");
            writeName(stream, sk_GENERAL_NAME_value(names, i));
        }
    });
}

kx::String pinOf(X509* certificate)
{
    unsigned char* bytes = nullptr;
    const int size = i2d_X509_PUBKEY(X509_get_X509_PUBKEY(certificate), &bytes);
    const std::unique_ptr<unsigned char, void (*)(unsigned char*)> owned(
        bytes, [](unsigned char* key) { OPENSSL_free(key); });
    if (size <= 0)
        return kx::String();
    CDigest digest("SHA256");
    digest.update(bytes, static_cast<size_t>(size));
    digest.finish();
    return "sha256//" + base64Encode(digest.getBytes(), digest.getLength(), true, false);
}

/// Changes nothing: whether a certificate is fine has been judged already.
int notice(int isFine, X509_STORE_CTX* verification) noexcept
{
    try {
        const CErrorMark mark;
        const auto* const connection
            = static_cast<const SSL*>(X509_STORE_CTX_get_ex_data(verification, SSL_get_ex_data_X509_STORE_CTX_idx()));
        const bool isLast = !isFine || X509_STORE_CTX_get_error_depth(verification) == 0;
        auto* const record = connection && isLast
            ? static_cast<RecordPointer*>(SSL_CTX_get_ex_data(SSL_get_SSL_CTX(connection), recordIndex()))
            : nullptr;
        if (record)
            (*record)->notice(X509_STORE_CTX_get0_cert(verification));
    } catch (const std::exception&) {
        // The handshake goes on as it would; an error says less.
    }
    return isFine;
}

} // namespace

bool CPeerRecord::canWatch(std::string_view tlsVersion) noexcept
{
    constexpr std::string_view kind = "OpenSSL/";
    return tlsVersion.starts_with(kind) && tlsVersion.substr(kind.size()) == OpenSSL_version(OPENSSL_VERSION_STRING);
}

bool CPeerRecord::watch(void* context, const std::shared_ptr<CPeerRecord>& record) noexcept
{
    const CErrorMark mark;
    auto* const tls = static_cast<SSL_CTX*>(context);
    std::unique_ptr<RecordPointer> kept(new (std::nothrow) RecordPointer(record));
    if (!kept || recordIndex() < 0 || SSL_CTX_set_ex_data(tls, recordIndex(), kept.get()) != 1)
        return false;
    static_cast<void>(kept.release());
    if (!SSL_CTX_get_verify_callback(tls))
        SSL_CTX_set_verify(tls, SSL_CTX_get_verify_mode(tls), &sela::notice);
    return true;
}

void CPeerRecord::forget() noexcept
{
    const std::lock_guard lock(m_mutex);
    m_certificate.reset();
}

std::optional<CPeerRecord::CCertificate> CPeerRecord::get() const
{
    const std::lock_guard lock(m_mutex);
    return m_certificate;
}

void CPeerRecord::notice(void* certificate)
{
    auto* const shown = static_cast<X509*>(certificate);
    if (!shown)
        return;
    CCertificate seen{.subject = textOf(X509_get_subject_name(shown)),
        .issuer = textOf(X509_get_issuer_name(shown)),
        .names = namesOf(shown),
        .publicKeyPin = pinOf(shown),
        .validFrom = textOf(X509_get0_notBefore(shown)),
        .validUntil = textOf(X509_get0_notAfter(shown))};
    const std::lock_guard lock(m_mutex);
    m_certificate = std::move(seen);
}

} // namespace sela
