#pragma once

#include "kx/base/CBase.h"

#include <array>
#include <cstddef>
#include <memory>
#include <string>

struct evp_md_ctx_st; // OpenSSL's EVP_MD_CTX

namespace sela {

/// The digest of a stream of bytes. One object makes any number of digests, one after the other: update() as often as
/// needed, finish(), read it, reset(). Used by one thread at a time.
class KX_EXPORT CDigest : public kx::CBase {
public:
    /// @param algorithm OpenSSL's name, such as "MD5"
    /// @throws kx::CError naming the algorithm when OpenSSL does not have it
    explicit CDigest(const char* algorithm);
    CDigest(const CDigest&) = delete;
    CDigest& operator=(const CDigest&) = delete;
    ~CDigest() override;

    /// Starts anew.
    void reset();

    /// @throws kx::CError after finish(), until the next reset()
    void update(const void* data, size_t size);

    /// Ends the digest; afterwards getBytes() holds it until the next reset(). Once more changes nothing.
    void finish();

    /// In bytes; 0 before finish().
    size_t getLength() const noexcept { return m_length; }
    const unsigned char* getBytes() const noexcept { return m_bytes.data(); }

private:
    struct CFree {
        void operator()(evp_md_ctx_st* context) const noexcept;
    };

    void check(int result) const;

    const std::string m_algorithm;
    std::unique_ptr<evp_md_ctx_st, CFree> m_context;
    std::array<unsigned char, 64> m_bytes{}; // EVP_MAX_MD_SIZE
    size_t m_length = 0;
};

} // namespace sela
