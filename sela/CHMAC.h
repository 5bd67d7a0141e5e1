#pragma once

#include "kx/base/CBase.h"

#include <memory>
#include <string>
#include <string_view>

struct evp_mac_ctx_st; // OpenSSL's EVP_MAC_CTX

namespace sela {

/// Message authentication codes with one key (HMAC, RFC 2104), any number of them. The key is prepared once, so that a
/// short message costs little more than its digest. Used by one thread at a time.
class KX_EXPORT CHMAC : public kx::CBase {
public:
    /// @param algorithm OpenSSL's name of the digest, such as "SHA256"
    /// @param key any bytes, of any number; none is allowed
    /// @throws kx::CError naming the algorithm when OpenSSL does not have it; the message says nothing about the key
    CHMAC(const char* algorithm, std::string_view key);
    CHMAC(const CHMAC&) = delete;
    CHMAC& operator=(const CHMAC&) = delete;
    ~CHMAC() override;

    /// @return the code's bytes, as many as the digest has, such as 32
    /// @throws kx::CError when OpenSSL fails; the object may be used again
    std::string calculate(std::string_view message);

private:
    struct CFree {
        void operator()(evp_mac_ctx_st* context) const noexcept;
    };

    void check(int result) const;

    const std::string m_algorithm;
    std::unique_ptr<evp_mac_ctx_st, CFree> m_context;
};

} // namespace sela
