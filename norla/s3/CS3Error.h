#pragma once

#include "kx/base/CError.h"

namespace norla {

class CS3ErrorResponse;

/// The service has refused a request and said why. Domain "http" with the HTTP status as code, 0 when the status was
/// that of a success. Properties: "responseCode", the status in decimal; "s3-code", "s3-requestID" and "s3-resource"
/// from the service's answer, and where it names them "s3-hostID" and "s3-region".
class KX_EXPORT CS3Error : public virtual kx::CError {
public:
    /// @param cause of which transfer it is: a CCURLError whose details name host and path, for explain(); null when
    /// nothing is known of it
    CS3Error(const CS3ErrorResponse& response, int httpResponseCode, kx::PC<kx::CError> cause = nullptr);
    CS3Error(const CS3Error&) = default;
    ~CS3Error() override;

    /// The error that a missing object gives, for callers who find out by other means.
    static kx::P<CS3Error> createObjectNotFoundError(const kx::String& resource);

    kx::P<kx::CError> clone() const override;
    [[noreturn]] void throwClone() const override;

    /// The service's own code, such as "NoSuchKey".
    const kx::String& getS3Code() const noexcept { return m_s3Code; }

private:
    kx::String m_s3Code;
};

} // namespace norla
