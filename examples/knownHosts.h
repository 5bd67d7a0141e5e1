#pragma once

#include "examples/text.h"
#include "norla/core/CNetRequest.h"

#include <cstdlib>

/// The user's file of known SSH hosts, as of the command ssh.
inline Path usersKnownHosts()
{
    const char* const home = std::getenv("HOME");
    return home ? Path::fromBytes(home) / Path(".ssh/known_hosts") : Path("/dev/null");
}
