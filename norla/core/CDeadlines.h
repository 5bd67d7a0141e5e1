#pragma once

#include "kx/time/CTimeSpan.h"

namespace norla {

/// How long a transfer may take: CNetRequest::setDeadlines(). Zero and the infinite span mean that there is no such
/// limit.
struct CDeadlines {
    /// Name lookup, connection, TLS, and the login of FTP, mail and SSH servers; after a redirect anew. In whole
    /// milliseconds, rounded up.
    kx::CTimeSpan connect = kx::CTimeSpan::fromSeconds(30);

    /// While no byte moves, or an FTP or mail server owes a reply. In whole seconds, rounded up. libcurl looks at the
    /// speed of the last five seconds: behind a body that was fast, the end may come as many later. Without this limit
    /// FTP and mail servers have libcurl's two minutes for a reply. Within the commands of SFTP it does not count.
    kx::CTimeSpan inactivity = kx::CTimeSpan::fromSeconds(30);

    /// From the start to the end. In whole milliseconds, rounded up.
    kx::CTimeSpan total = {};
};

} // namespace norla
