#pragma once

#include "kx/base/CInvalidArgError.h"
#include "kx/text/String.h"

namespace norla {

class CNetRequest;
class CS3Client;

/// What every class is made with that performs calls of a client.
/// @throws kx::CInvalidArgError when one of them is null @param className in whose name it is thrown
inline void requireClientAndRequest(const CS3Client* client, const CNetRequest* request, const kx::String& className)
{
    if (!client || !request)
        throw kx::CInvalidArgError("client or request is null", className);
}

} // namespace norla
