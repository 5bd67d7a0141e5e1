#include "tests/support/CInetdFTPServer.h"

#include "tests/support/CTestCertificates.h"
#include "tests/support/configuration.h"
#include "tests/support/loopback.h"

#include <unistd.h>

namespace support {

CInetdFTPServer::CInetdFTPServer(Security security)
    : m_security(security)
{
    m_folder.write("root/digits.txt", "0123456789");
    m_folder.write("server.log", "");
}

IFTPServer::Security CInetdFTPServer::getSecurity() const
{
    return m_security;
}

unsigned short CInetdFTPServer::getPort() const
{
    return m_port;
}

std::filesystem::path CInetdFTPServer::root() const
{
    return m_folder.path() / "root";
}

std::string CInetdFTPServer::log() const
{
    return m_folder.read("server.log");
}

std::string CInetdFTPServer::userName() const
{
    return "user";
}

std::string CInetdFTPServer::password() const
{
    return "secret";
}

const CTemporaryFolder& CInetdFTPServer::folder() const
{
    return m_folder;
}

std::filesystem::path CInetdFTPServer::configure(
    const std::string& name, std::map<std::string, std::string> values) const
{
    const CTestCertificates& certificates = CTestCertificates::get();
    values.insert({{"FOLDER", m_folder.path()}, {"SERVER_CERTIFICATE", certificates.serverCertificate()},
        {"SERVER_KEY", certificates.serverKey()}});
    return m_folder.write(name, expandConfiguration(name, values));
}

bool CInetdFTPServer::isInNamespace()
{
    return geteuid() != 0;
}

void CInetdFTPServer::start(const std::vector<std::string>& program, const std::string& namespaceUser)
{
    const CDescriptor listener = listenOnLoopback();
    m_port = portOf(listener.get());
    std::vector<std::string> arguments;
    if (isInNamespace())
        arguments = {"unshare", "--map-user=" + namespaceUser, "--map-group=" + namespaceUser, "--keep-caps"};
    arguments.insert(arguments.end(),
        {"/usr/bin/python3", serverFile("inetd.py"), "--socket", std::to_string(listener.get()), "--", "/usr/bin/env",
            std::string("LD_PRELOAD=") + NORLA_TEST_PRELOAD});
    arguments.insert(arguments.end(), program.begin(), program.end());
    m_process = std::make_unique<CServerProcess>(CServerProcess::CSettings{.arguments = arguments,
        .package = "python3",
        .logFile = m_folder.path() / "output.log",
        .inheritedDescriptors = {listener.get()}});
    m_process->waitUntilLogged("ready\n");
}

} // namespace support
