#include "tests/support/CMicrosocksServer.h"

namespace support {

CMicrosocksServer::CMicrosocksServer(const CLogin& login)
{
    std::vector<std::string> arguments{"/usr/bin/microsocks", "-i", "127.0.0.1", "-p", std::to_string(getPort())};
    if (!login.user.empty())
        arguments.insert(arguments.end(), {"-u", login.user, "-P", login.password});
    start({.arguments = arguments, .package = "microsocks", .logFile = logFile()}, "");
}

} // namespace support
