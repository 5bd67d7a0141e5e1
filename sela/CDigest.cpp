#include "sela/CDigest.h"

#include "kx/base/CError.h"
#include "sela/CErrorMark.h"

#include <openssl/evp.h>

namespace sela {

static_assert(EVP_MAX_MD_SIZE <= 64);

void CDigest::CFree::operator()(evp_md_ctx_st* context) const noexcept
{
    EVP_MD_CTX_free(context);
}

CDigest::CDigest(const char* algorithm)
    : m_algorithm(algorithm)
    , m_context(EVP_MD_CTX_new())
{
    check(m_context ? 1 : 0);
    reset();
}

CDigest::~CDigest() = default;

void CDigest::reset()
{
    const CErrorMark mark;
    m_length = 0;
    check(EVP_DigestInit_ex(m_context.get(), EVP_get_digestbyname(m_algorithm.c_str()), nullptr));
}

void CDigest::update(const void* data, size_t size)
{
    if (m_length > 0)
        throw kx::CError("The " + kx::String::fromLatin1(m_algorithm) + " digest is finished and takes no more bytes.");
    const CErrorMark mark;
    check(EVP_DigestUpdate(m_context.get(), data, size));
}

void CDigest::finish()
{
    if (m_length > 0)
        return; // OpenSSL would overwrite it
    const CErrorMark mark;
    unsigned int length = 0;
    check(EVP_DigestFinal_ex(m_context.get(), m_bytes.data(), &length));
    m_length = length;
}

void CDigest::check(int result) const
{
    if (result != 1)
        throw kx::CError("OpenSSL cannot calculate " + kx::String::fromLatin1(m_algorithm) + ".");
}

} // namespace sela
