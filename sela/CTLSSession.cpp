#include "sela/CTLSSession.h"

#include "kx/base/CError.h"
#include "sela/CErrorMark.h"

#include <openssl/bio.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

#include <string>
#include <string_view>

namespace sela {

namespace {

using Chain = std::shared_ptr<stack_st_X509>;

void freeChain(stack_st_X509* chain) noexcept
{
    sk_X509_pop_free(chain, &X509_free);
}

/// The server's own certificate alone, where a resumed session has no more.
stack_st_X509* ownCertificateOf(const SSL* ssl)
{
    X509* const certificate = SSL_get0_peer_certificate(ssl);
    stack_st_X509* const chain = certificate ? sk_X509_new_null() : nullptr;
    if (!chain)
        return nullptr;
    if (X509_up_ref(certificate) == 1 && sk_X509_push(chain, certificate) > 0)
        return chain;
    sk_X509_free(chain);
    return nullptr;
}

Chain chainOf(const SSL* ssl)
{
    stack_st_X509* const sent = SSL_get_peer_cert_chain(ssl);
    return {sent ? X509_chain_up_ref(sent) : ownCertificateOf(ssl), &freeChain};
}

std::string printed(const X509_NAME* name, unsigned long flags)
{
    const std::unique_ptr<BIO, decltype(&BIO_free)> text(BIO_new(BIO_s_mem()), &BIO_free);
    if (!text || X509_NAME_print_ex(text.get(), name, 0, flags) < 0)
        return {};
    char* bytes = nullptr;
    const long size = BIO_get_mem_data(text.get(), &bytes);
    return {bytes, static_cast<size_t>(size)};
}

kx::String subjectOf(const X509* certificate)
{
    const X509_NAME* const name = X509_get_subject_name(certificate);
    constexpr unsigned long readable = XN_FLAG_RFC2253 & ~static_cast<unsigned long>(ASN1_STRFLGS_ESC_MSB);
    try {
        return kx::String::fromUTF8(printed(name, readable));
    } catch (const kx::CError&) {
        return kx::String::fromLatin1(printed(name, XN_FLAG_RFC2253)); // with every such byte escaped
    }
}

} // namespace

CTLSSession::CTLSSession(void* ssl)
{
    const auto* const connection = static_cast<const SSL*>(ssl);
    if (!connection || !SSL_is_init_finished(connection))
        return;
    const CErrorMark mark;
    m_session.reset(SSL_get1_session(static_cast<SSL*>(ssl)), [](SSL_SESSION* session) { SSL_SESSION_free(session); });
    m_chain = chainOf(connection);
    m_version = SSL_get_version(connection);
    m_cipher = SSL_get_cipher_name(connection);
}

bool CTLSSession::isOf(void* ssl) const noexcept
{
    return ssl && m_session && SSL_get_session(static_cast<const SSL*>(ssl)) == m_session.get();
}

kx::TArray<kx::String> CTLSSession::getSubjects() const
{
    const CErrorMark mark;
    kx::TArray<kx::String> subjects;
    const int count = m_chain ? sk_X509_num(m_chain.get()) : 0;
    for (int i = 0; i < count; ++i)
        subjects.push_back(subjectOf(sk_X509_value(m_chain.get(), i)));
    return subjects;
}

} // namespace sela
