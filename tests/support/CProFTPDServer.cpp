#include "tests/support/CProFTPDServer.h"

#include "tests/support/packages.h"

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
    std::filesystem::create_directories(root() / std::filesystem::path(settings.loginFolder).relative_path());
    for (const char* file : {"proftpd.passwd", "proftpd.group"})
        std::filesystem::permissions(
            configure(file, {{"LOGIN_FOLDER", settings.loginFolder}}), std::filesystem::perms{0600});
    const std::string configuration = configure("proftpd.conf",
        {{"MODULES", packageFile("proftpd-mod-crypto", "usr/lib/proftpd/mod_tls.so").parent_path()},
            {"TLS", settings.security == Security::None ? "off" : "on"}, {"TLS_OPTIONS", tlsOptions(settings)}});
    start({packageFile("proftpd-core", "usr/sbin/proftpd"), "--config", configuration});
}

} // namespace support
