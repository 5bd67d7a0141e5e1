#include "tests/support/CFTPServer.h"

#include "tests/support/CTestCertificates.h"
#include "tests/support/configuration.h"
#include "tests/support/files.h"
#include "tests/support/loopback.h"

namespace support {

namespace {

const char* nameOf(CFTPServer::Security security)
{
    switch (security) {
    case CFTPServer::Security::Explicit:
        return "explicit";
    case CFTPServer::Security::Implicit:
        return "implicit";
    default:
        return "none";
    }
}

} // namespace

CFTPServer::CFTPServer(Security security)
    : m_security(security)
    , m_process(start())
{
    m_process->waitUntilLogged("ready\n");
}

IFTPServer::Security CFTPServer::getSecurity() const
{
    return m_security;
}

unsigned short CFTPServer::getPort() const
{
    return m_port;
}

std::filesystem::path CFTPServer::root() const
{
    return m_folder.path() / "root";
}

std::string CFTPServer::log() const
{
    return m_folder.read("commands");
}

std::string CFTPServer::userName() const
{
    return "user";
}

std::string CFTPServer::password() const
{
    return "secret";
}

std::vector<std::string> CFTPServer::commands() const
{
    return splitLines(log());
}

std::unique_ptr<CServerProcess> CFTPServer::start()
{
    const CDescriptor listener = listenOnLoopback();
    m_port = portOf(listener.get());
    m_folder.write("root/digits.txt", "0123456789");
    const CTestCertificates& certificates = CTestCertificates::get();
    return std::make_unique<CServerProcess>(CServerProcess::CSettings{
        .arguments = {"/usr/bin/python3", serverFile("ftp_server.py"), "--socket", std::to_string(listener.get()),
            "--root", root(), "--commands", m_folder.path() / "commands", "--tls", nameOf(m_security), "--certificate",
            certificates.serverCertificate(), "--key", certificates.serverKey()},
        .package = "python3-pyftpdlib",
        .logFile = m_folder.path() / "output.log",
        .inheritedDescriptors = {listener.get()}});
}

} // namespace support
