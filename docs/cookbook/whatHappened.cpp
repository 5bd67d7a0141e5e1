#include "norla/core/CNetRequest.h"
#include "norla/core/CTransferInfo.h"

#include <ostream>

// Writes down where the time has gone, after a success as after a failure: "h2 from 192.0.2.7, TLSv1.3, connected after
// 31 ms, answered after 58 ms, done after 94 ms".
void writeDown(const norla::CNetRequest& request, std::ostream& log)
{
    const norla::CTransferInfo info = request.getTransferInfo();
    log << info.protocol << " from " << info.remoteAddress;
    if (info.tls)
        log << ", " << info.tls->version;
    if (info.times.connect) // empty over a connection that was open
        log << ", connected after " << info.times.connect->getMicroseconds() / 1000 << " ms";
    if (info.times.firstByte)
        log << ", answered after " << info.times.firstByte->getMicroseconds() / 1000 << " ms";
    log << ", done after " << info.times.total.getMicroseconds() / 1000 << " ms";
}
