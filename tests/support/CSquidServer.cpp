#include "tests/support/CSquidServer.h"

#include "tests/support/CProcessRun.h"
#include "tests/support/configuration.h"
#include "tests/support/files.h"
#include "tests/support/isRoot.h"
#include "tests/support/systemError.h"

#include <map>
#include <stdexcept>
#include <sys/mman.h>
#include <unistd.h>

namespace support {

namespace {

const char* const squidUser = "proxy";

/// With the line feed behind it.
std::string hashOf(const std::string& password)
{
    const CProcessRun run(
        {.arguments = {"openssl", "passwd", "-apr1", "-stdin"}, .package = "openssl", .input = password + "\n"});
    if (run.exitStatus() != 0)
        throw std::runtime_error("openssl passwd fails: " + run.errors());
    return run.output();
}

/// Squid makes them for workers that it does not have here, and they would outlive it.
void removeSharedMemory(const std::string& service)
{
    for (const char* part : {"metadata", "queues", "readers"})
        checked(shm_unlink(("/" + service + "-cf__" + part + ".shm").c_str()), "shm_unlink");
}

} // namespace

CSquidServer::CSquidServer(const CLogin& login)
{
    makeFiles(login);
    const std::string service = "norla" + std::to_string(getPort());
    start({.arguments = {"/usr/sbin/squid", "-N", "-n", service, "-f", writeConfiguration()},
              .package = "squid",
              .logFile = logFile(),
              .stopLimit = std::chrono::milliseconds(0)}, // it would take two seconds, and has nothing to keep
        "Accepting HTTP Socket connections at ");
    removeSharedMemory(service);
}

void CSquidServer::makeFiles(const CLogin& login) const
{
    folder().write("passwords", login.user + ":" + hashOf(login.password));
    writeFile(logFile(), "");
    if (isRoot())
        giveToUser(folder().path(), squidUser);
}

std::string CSquidServer::writeConfiguration() const
{
    const std::map<std::string, std::string> values{
        {"USER", isRoot() ? std::string("cache_effective_user ") + squidUser : ""},
        {"FOLDER", folder().path()},
        {"LOG_FILE", logFile()},
        {"PORT", std::to_string(getPort())},
    };
    return folder().write("squid.conf", expandConfiguration("squid.conf", values));
}

} // namespace support
