#pragma once

#include "kx/base/P.h"
#include "kx/containers/TMap.h"
#include "kx/text/String.h"
#include "norla/s3/CS3Checksum.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace sela {
class CDigest;
}

namespace norla {

/// The digest of the bytes of an object, block by block.
class CS3BodyDigest {
public:
    using HeaderMap = kx::TMap<kx::String, kx::String>;

    /// @param kind not None @throws kx::CError where OpenSSL does not have it
    explicit CS3BodyDigest(CS3Checksum kind);
    ~CS3BodyDigest();
    CS3BodyDigest(CS3BodyDigest&&) noexcept;
    CS3BodyDigest& operator=(CS3BodyDigest&&) noexcept;

    CS3Checksum getKind() const noexcept { return m_kind; }
    void update(std::string_view bytes);

    /// Ends the digest, as the following; both may be called. Nothing more may be added behind it.
    kx::String toBase64();
    kx::String toHex();

    /// Whether the ETag of an answer speaks of the bytes: of keys that are not the store's own it is no digest.
    static bool isETagOfBytes(const HeaderMap& headers);

    /// What an answer says that this digest is, as said() writes it; nothing when it does not say, or speaks of
    /// something else: an ETag of parts or of an encrypted object, a checksum of the checksums of parts.
    static std::optional<kx::String> saidIn(const HeaderMap& headers, CS3Checksum kind);

    /// Where the answer says another one, both are named.
    /// @param what is spoken of, such as "the object 'k'"
    /// @throws kx::CError
    void requireAsSaid(const HeaderMap& headers, const kx::String& what);

private:
    std::string finished();

    CS3Checksum m_kind;
    kx::P<sela::CDigest> m_digest; // null for CRC32C
    std::uint32_t m_crc = 0;
};

/// The header in which the digest is sent; empty for None.
kx::String nameOfChecksumHeader(CS3Checksum kind);

} // namespace norla
