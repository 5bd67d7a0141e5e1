#include "norla/core/CNetRequest.h"

// Asks a service for something that only its users get. No redirect takes the token to another host.
void performWithToken(norla::CNetRequest& request, const kx::String& token)
{
    request.setSafeDefaults();
    request.setBearerToken(token);
    request.perform();
}
