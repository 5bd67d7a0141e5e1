#include "norla/core/CAcceptEncoding.h"
#include "norla/core/CNetRequest.h"
#include "norla/core/CSafeDefaults.h"

// Lets the server compress its answer, of at most 100 MiB; returns how many bytes have come over the network.
long long performCompressed(norla::CNetRequest& request)
{
    request.setSafeDefaults({.maxReceiveBuffer = 100 << 20});
    request.setAcceptEncoding({});
    request.perform(); // the body arrives unpacked
    return static_cast<long long>(request.getDownloadedBytes());
}
