#pragma once

#include "kx/base/CBase.h"
#include "norla/s3/IS3Signer.h"

#include <memory>
#include <mutex>
#include <string>

namespace norla {

/// Signatures "AWS4-HMAC-SHA256", version 4, which every store of today takes. The key is derived once for each day,
/// so that a signature costs little more than its digests. Any thread.
class KX_EXPORT CS3SignerV4 : public kx::CBase, public IS3Signer {
public:
    /// @param region as the store calls it, such as "eu-central-1"; many stores take any
    /// @param service what is asked, in the store's own word for it
    /// @throws kx::CInvalidArgError when one of them is empty or holds anything else than letters, digits, "-", "_" and
    /// "."
    explicit CS3SignerV4(const kx::String& region, const kx::String& service = "s3");
    CS3SignerV4(const CS3SignerV4&) = delete;
    CS3SignerV4& operator=(const CS3SignerV4&) = delete;
    ~CS3SignerV4() override;

    /// Adds "x-amz-content-sha256", "x-amz-date", for credentials with a token "x-amz-security-token", and
    /// "Authorization". Credentials without an access key id sign nothing.
    /// @throws kx::CInvalidArgError also when one of these is there already
    void sign(CS3RequestToSign& request, const CS3Credentials& credentials) override;

    [[nodiscard]] std::vector<std::string> getHeaderNames() const override;

    /// @param lifetime at most seven days
    [[nodiscard]] std::string presign(
        const CS3RequestToSign& request, const CS3Credentials& credentials, kx::CTimeSpan lifetime) override;

    /// The signature of a chunk of a body whose request was signed with CS3RequestToSign::streamingPayload.
    /// @param timestamp the request's "x-amz-date"
    /// @param previousSignature of the chunk before, or of the request
    /// @param chunkSHA256 of the chunk's bytes, 64 lower-case hexadecimal digits
    /// @return as many digits
    std::string signChunk(const std::string& timestamp, const std::string& previousSignature,
        const std::string& chunkSHA256, const CS3Credentials& credentials);

private:
    class CKey;

    struct CScope {
        std::string timestamp; // "20130524T000000Z"
        std::string text;      // "20130524/us-east-1/s3/aws4_request"
    };

    CScope scopeAt(const std::string& timestamp) const;
    std::string signatureFor(const std::string& text, const CScope& scope, const kx::String& secretAccessKey);
    std::string signatureOf(
        const std::string& canonicalRequest, const CScope& scope, const kx::String& secretAccessKey);

    const std::string m_region;
    const std::string m_service;
    std::mutex m_mutex;
    std::unique_ptr<CKey> m_key; // of the last signature
};

} // namespace norla
