#include "tests/support/CProFTPDServer.h"

#include "tests/support/packages.h"

#include <unistd.h>

namespace support {

namespace {

std::string tlsOptions(const CProFTPDServer::CSettings& settings)
{
    std::string options;
    if (!settings.requiresSessionReuse)
        options += "TLSOptions NoSessionReuseRequired\n";
    if (settings.security == IFTPServer::Security::Implicit)
        options += "TLSOptions UseImplicitSSL\n";
    return options;
}

} // namespace

CProFTPDServer::CProFTPDServer()
    : CProFTPDServer(CSettings())
{
}

CProFTPDServer::CProFTPDServer(const CSettings& settings)
    : CInetdFTPServer(settings.security)
{
    const std::map<std::string, std::string> user{
        {"UID", std::to_string(geteuid())}, {"GID", std::to_string(getegid())}};
    for (const char* file : {"proftpd.passwd", "proftpd.group"})
        std::filesystem::permissions(configure(file, user), std::filesystem::perms{0600});
    const std::string configuration = configure("proftpd.conf",
        {{"USER", geteuid() == 0 ? "User root\nGroup root" : ""},
            {"MODULES", packageFile("proftpd-mod-crypto", "usr/lib/proftpd")},
            {"TLS", settings.security == Security::None ? "off" : "on"}, {"TLS_OPTIONS", tlsOptions(settings)}});
    start({packageFile("proftpd-core", "usr/sbin/proftpd"), "--config", configuration});
}

} // namespace support
