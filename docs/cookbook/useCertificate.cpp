#include "norla/core/CNetRequest.h"
#include "norla/core/CTLSOptions.h"

// Shows the server a certificate of one's own, and believes the servers of one's own authority alone.
void performWithCertificate(norla::CNetRequest& request, const norla::CNetRequest::Path& certificate,
    const norla::CNetRequest::Path& key, const kx::String& keyPassword, const norla::CNetRequest::Path& authority)
{
    request.setSafeDefaults();
    request.setTLSOptions(
        {.rootsFile = authority, .certificateFile = certificate, .keyFile = key, .keyPassword = keyPassword});
    request.perform();
}
