#include "tests/support/CPureFTPdServer.h"

#include "tests/support/CProcessRun.h"
#include "tests/support/CTestCertificates.h"
#include "tests/support/files.h"
#include "tests/support/packages.h"

#include <stdexcept>

namespace support {

namespace {

const char* const pureFTPdPackage = "pure-ftpd";

/// It never lets root in, so that root needs another user: "nobody" and "nogroup".
const char* const nobody = "65534";
const char* const namespaceUser = "1";

void run(const std::vector<std::string>& arguments, const std::string& owner)
{
    const CProcessRun run({.arguments = arguments, .package = owner});
    if (run.exitStatus() != 0)
        throw std::runtime_error(arguments[0] + " fails: " + run.errors());
}

std::string tlsLevel(IFTPServer::Security security)
{
    switch (security) {
    case IFTPServer::Security::None:
        return "0";
    case IFTPServer::Security::Explicit:
        return "3";
    default:
        throw std::runtime_error("Pure-FTPd has no implicit TLS");
    }
}

} // namespace

CPureFTPdServer::CPureFTPdServer()
    : CPureFTPdServer(CSettings())
{
}

CPureFTPdServer::CPureFTPdServer(const CSettings& settings)
    : CInetdFTPServer(settings.security)
{
    const CTestCertificates& certificates = CTestCertificates::get();
    folder().write(
        "certificate-and-key.pem", readFile(certificates.serverCertificate()) + readFile(certificates.serverKey()));
    std::filesystem::create_directories(root() / std::filesystem::path(settings.loginFolder).relative_path());
    if (!isInNamespace())
        openToNobody();
    makeUser(settings.loginFolder);
    start({packageFile(pureFTPdPackage, "usr/sbin/pure-ftpd"),
              configure("pure-ftpd.conf", {{"TLS", tlsLevel(settings.security)}})},
        namespaceUser);
}

/// Also what the test will make in the folder: a default access list counts more than the test's umask.
void CPureFTPdServer::openToNobody() const
{
    std::filesystem::permissions(folder().path(), std::filesystem::perms{0755});
    run({"setfacl", "--recursive", "--modify", "other::rwX,default:other::rwX", root()}, "acl");
}

void CPureFTPdServer::makeUser(const std::string& loginFolder) const
{
    const std::string number = isInNamespace() ? namespaceUser : nobody;
    const std::string users
        = configure("pure-ftpd.passwd", {{"UID", number}, {"GID", number}, {"LOGIN_FOLDER", loginFolder}});
    run({packageFile(pureFTPdPackage, "usr/bin/pure-pw"), "mkdb", folder().path() / "pure-ftpd.pdb", "-f", users},
        pureFTPdPackage);
}

} // namespace support
