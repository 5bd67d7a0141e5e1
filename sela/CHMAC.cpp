#include "sela/CHMAC.h"

#include "kx/base/CError.h"
#include "sela/CErrorMark.h"

#include <openssl/core_names.h>
#include <openssl/evp.h>

#include <array>

namespace sela {

namespace {

struct CFreeMAC {
    void operator()(EVP_MAC* mac) const noexcept { EVP_MAC_free(mac); }
};

const unsigned char* bytesOf(std::string_view text)
{
    return reinterpret_cast<const unsigned char*>(text.data());
}

} // namespace

void CHMAC::CFree::operator()(evp_mac_ctx_st* context) const noexcept
{
    EVP_MAC_CTX_free(context);
}

CHMAC::CHMAC(const char* algorithm, std::string_view key)
    : m_algorithm(algorithm)
{
    const CErrorMark mark;
    const std::unique_ptr<EVP_MAC, CFreeMAC> mac(EVP_MAC_fetch(nullptr, "HMAC", nullptr));
    m_context.reset(mac ? EVP_MAC_CTX_new(mac.get()) : nullptr);
    check(m_context ? 1 : 0);
    std::string name = m_algorithm; // which OpenSSL only reads
    const std::array parameters{
        OSSL_PARAM_construct_utf8_string(OSSL_MAC_PARAM_DIGEST, name.data(), 0), OSSL_PARAM_construct_end()};
    const unsigned char nothing = 0; // null would mean the key of before
    check(EVP_MAC_init(m_context.get(), key.empty() ? &nothing : bytesOf(key), key.size(), parameters.data()));
}

CHMAC::~CHMAC() = default;

std::string CHMAC::calculate(std::string_view message)
{
    const CErrorMark mark;
    std::array<unsigned char, EVP_MAX_MD_SIZE> made{};
    size_t size = 0;
    check(EVP_MAC_init(m_context.get(), nullptr, 0, nullptr)); // with the same key
    check(EVP_MAC_update(m_context.get(), bytesOf(message), message.size()));
    check(EVP_MAC_final(m_context.get(), made.data(), &size, made.size()));
    return {reinterpret_cast<const char*>(made.data()), size};
}

void CHMAC::check(int result) const
{
    if (result != 1)
        throw kx::CError("OpenSSL cannot calculate HMAC-" + kx::String::fromLatin1(m_algorithm) + ".");
}

} // namespace sela
