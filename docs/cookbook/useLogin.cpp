#include "norla/core/CNetRequest.h"

// Logs in with a name and a password, in the safest way that the server knows (HTTP: Digest before Basic).
void performWithLogin(norla::CNetRequest& request, const kx::String& name, const kx::String& password)
{
    request.setSafeDefaults();
    request.setHTTPAuthMethods(CURLAUTH_BASIC | CURLAUTH_DIGEST);
    request.setUserName(name);
    request.setUserPassword(password);
    request.perform();
}
