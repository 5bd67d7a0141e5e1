#include "tests/support/CVsftpdServer.h"

#include "tests/support/packages.h"

namespace support {

namespace {

std::string yesIf(bool condition)
{
    return condition ? "YES" : "NO";
}

} // namespace

CVsftpdServer::CVsftpdServer()
    : CVsftpdServer(CSettings())
{
}

CVsftpdServer::CVsftpdServer(const CSettings& settings)
    : CInetdFTPServer(settings.security)
{
    const std::string configuration = configure("vsftpd.conf",
        {{"NOBODY", isInNamespace() ? "root" : "nobody"}, {"TLS", yesIf(settings.security != Security::None)},
            {"TLS_IMPLICIT", yesIf(settings.security == Security::Implicit)},
            {"TLS_REUSE", yesIf(settings.requiresSessionReuse)}});
    start({packageFile("vsftpd", "usr/sbin/vsftpd"), configuration});
}

} // namespace support
