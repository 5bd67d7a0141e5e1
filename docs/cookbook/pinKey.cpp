#include "norla/core/CNetRequest.h"
#include "norla/core/CTLSOptions.h"

// Talks to one server alone, whose key is known: whatever an authority says of another key is not believed. The pin is
// "sha256//..."; when it is wrong the error tells which key has come.
void performWithPin(norla::CNetRequest& request, const kx::String& pin, const norla::CNetRequest::Path& authority)
{
    request.setSafeDefaults();
    request.setTLSOptions({.rootsFile = authority, .pinnedKeys = {pin}});
    request.perform();
}
