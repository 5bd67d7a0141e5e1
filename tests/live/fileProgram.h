#pragma once

#include "norla/core/CDeadlines.h"
#include "norla/core/CNetRequest.h"

#include <cstdlib>

namespace live {

inline norla::CNetRequest::Path pathIn(const char* variable, const char* end = "")
{
    const char* const folder = std::getenv(variable);
    return norla::CNetRequest::Path::fromBytes(folder ? std::string(folder) + end : std::string());
}

/// Of a program that transfers one file beside servers that may say nothing at all: the limits, and whom it believes.
/// NORLA_CA_FILE: the roots of TLS. NORLA_SSH_KEY: the private key, beside which the public one has the end ".pub"; the
/// known hosts are those of HOME.
inline void prepareFile(norla::CNetRequest& request, const kx::String& url)
{
    request.setURL(url);
    request.setDeadlines(
        {.connect = kx::CTimeSpan::fromSeconds(5), .inactivity = kx::CTimeSpan::fromSeconds(2), .total = {}});
    if (std::getenv("NORLA_CA_FILE"))
        request.setRootCertBundlePath(pathIn("NORLA_CA_FILE"));
    if (!std::getenv("NORLA_SSH_KEY"))
        return;
    request.setSSHKnownHostsPath(pathIn("HOME", "/.ssh/known_hosts"));
    request.setOptionString(CURLOPT_SSH_PRIVATE_KEYFILE, pathIn("NORLA_SSH_KEY").toString());
    request.setOptionString(CURLOPT_SSH_PUBLIC_KEYFILE, pathIn("NORLA_SSH_KEY", ".pub").toString());
    request.setOptionInt(CURLOPT_SSH_AUTH_TYPES, CURLSSH_AUTH_PUBLICKEY);
}

} // namespace live
