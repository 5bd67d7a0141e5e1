#include "norla/s3/CS3Error.h"

#include "kx/text/numbers.h"
#include "norla/s3/CS3ErrorResponse.h"
#include "norla/s3/httpStatus.h"

#include <utility>

namespace norla {

namespace {

kx::CProps propsOf(const CS3ErrorResponse& response, int httpResponseCode)
{
    kx::CProps props;
    props.set("responseCode", kx::toString(httpResponseCode));
    props.set("s3-code", response.getCode());
    props.set("s3-requestID", response.getRequestId());
    props.set("s3-resource", response.getResource());
    if (!response.getHostId().isEmpty())
        props.set("s3-hostID", response.getHostId());
    if (!response.getRegion().isEmpty())
        props.set("s3-region", response.getRegion());
    return props;
}

} // namespace

CS3Error::CS3Error(const CS3ErrorResponse& response, int httpResponseCode, kx::PC<kx::CError> cause)
    : CError("Amazon S3 error: " + response.getMessage() + "(" + response.getCode() + ")", "http", httpResponseCode,
        propsOf(response, httpResponseCode), std::move(cause))
    , m_s3Code(response.getCode())
{
}

CS3Error::~CS3Error() = default;

kx::P<CS3Error> CS3Error::createObjectNotFoundError(const kx::String& resource)
{
    return kx::newObj<CS3Error>(*CS3ErrorResponse::createObjectNotFoundResponse(resource), httpNotFound);
}

kx::P<kx::CError> CS3Error::clone() const
{
    return kx::newObj<CS3Error>(*this);
}

void CS3Error::throwClone() const
{
    throw CS3Error(*this);
}

} // namespace norla
