#include "tests/support/CTinyproxyServer.h"

#include "tests/support/configuration.h"

#include <map>

namespace support {

CTinyproxyServer::CTinyproxyServer(const CLogin& login)
{
    const std::map<std::string, std::string> values{
        {"PORT", std::to_string(getPort())},
        {"AUTHENTICATION", login.user.empty() ? "" : "BasicAuth " + login.user + " " + login.password},
    };
    const std::string configuration = folder().write("tinyproxy.conf", expandConfiguration("tinyproxy.conf", values));
    start(
        {.arguments = {"/usr/bin/tinyproxy", "-d", "-c", configuration}, .package = "tinyproxy", .logFile = logFile()},
        "Accepting connections.");
}

} // namespace support
