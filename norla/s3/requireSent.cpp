#include "norla/s3/requireSent.h"

#include "kx/base/CError.h"
#include "kx/text/numbers.h"
#include "norla/s3/CS3ChunkedSource.h"

namespace norla {

void requireSent(CNetRequest& request, long long size, const kx::String& what)
{
    const long long wanted = CS3ChunkedSource::in(request) ? CS3ChunkedSource::encodedSize(size) : size;
    const auto sent = static_cast<long long>(request.getUploadedBytes());
    if (sent < wanted)
        throw kx::CError("The store has answered when " + kx::toString(sent) + " of the " + kx::toString(wanted)
            + " bytes of " + what + " were sent.");
}

} // namespace norla
