#include "norla/pool/hostOf.h"

#include "norla/core/CNetRequest.h"
#include "norla/core/COrigin.h"

namespace norla {

std::string hostOf(const CNetRequest& request)
{
    const std::optional<COrigin> origin = COrigin::of(request.getURL().toUTF8().c_str());
    return origin ? origin->scheme + "://" + origin->host + ":" + std::to_string(origin->port) : std::string();
}

} // namespace norla
