#include "tests/support/IFTPServer.h"

#include "tests/support/loopback.h"

namespace support {

std::string IFTPServer::url(std::string_view path, std::string_view scheme) const
{
    const std::string_view ownScheme = getSecurity() == Security::Implicit ? "ftps" : "ftp";
    return loopbackURL(scheme.empty() ? ownScheme : scheme, getPort(), path);
}

} // namespace support
