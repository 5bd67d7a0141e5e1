#pragma once

#include "kx/base/CBase.h"
#include "norla/s3/IS3Signer.h"

#include <string>

namespace norla {

/// Signatures "AWS", version 2 (HMAC-SHA1), for stores of before 2014. Nothing of the body is signed. Any thread.
class KX_EXPORT CS3SignerV2 : public kx::CBase, public IS3Signer {
public:
    CS3SignerV2();
    ~CS3SignerV2() override;

    /// Adds "Date" where neither that nor "x-amz-date" is there, for credentials with a token "x-amz-security-token",
    /// and "Authorization". Credentials without an access key id sign nothing.
    /// @throws kx::CInvalidArgError also when "Authorization" is there already
    void sign(CS3RequestToSign& request, const CS3Credentials& credentials) override;

    [[nodiscard]] std::vector<std::string> getHeaderNames() const override;

    /// @param lifetime may be any number of seconds up to the year 9999; stores have limits of their own
    [[nodiscard]] std::string presign(
        const CS3RequestToSign& request, const CS3Credentials& credentials, kx::CTimeSpan lifetime) override;

    /// What the store will compute from the request too. Public for those who look for a difference.
    /// @param date the text of the "Date" header, or the seconds since 1970 at which a presigned URL ends
    static std::string getStringToSign(const CS3RequestToSign& request, const std::string& date);

    /// Bucket and path, with the sub-resources of the query in order of their names: "acl", "uploadId",
    /// "response-content-type" and the like. A query of one name without a value counts as one of them.
    static std::string getCanonicalizedResource(const CS3RequestToSign& request);
};

} // namespace norla
