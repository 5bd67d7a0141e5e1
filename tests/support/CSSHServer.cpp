#include "tests/support/CSSHServer.h"

#include "tests/support/CProcessRun.h"
#include "tests/support/configuration.h"
#include "tests/support/files.h"
#include "tests/support/loopback.h"

#include <map>
#include <pwd.h>
#include <stdexcept>
#include <unistd.h>

namespace support {

namespace {

void makeKey(const std::filesystem::path& file, const std::string& type)
{
    const CProcessRun run({.arguments = {"ssh-keygen", "-q", "-t", type, "-N", "", "-C", "test", "-f", file},
        .package = "openssh-client"});
    if (run.exitStatus() != 0)
        throw std::runtime_error("ssh-keygen fails: " + run.errors());
}

/// sshd that runs as root gives up its rights in this folder, which the system otherwise makes when it starts.
void makeSystemFolder()
{
    if (geteuid() == 0)
        std::filesystem::create_directories("/run/sshd");
}

} // namespace

CSSHServer::CSSHServer(const std::vector<std::string>& hostKeyTypes, Access access)
    : m_process(start(hostKeyTypes, access))
{
}

unsigned short CSSHServer::getPort() const
{
    return m_port;
}

std::string CSSHServer::url(std::string_view absolutePath) const
{
    return loopbackURL("sftp", m_port, absolutePath);
}

std::string CSSHServer::userName() const
{
    const passwd* const user = getpwuid(geteuid());
    if (!user)
        throw std::runtime_error("the user who runs the test has no name");
    return user->pw_name;
}

std::filesystem::path CSSHServer::privateKeyFile() const
{
    return m_folder.path() / "user-key";
}

std::filesystem::path CSSHServer::publicKeyFile() const
{
    return m_folder.path() / "user-key.pub";
}

std::string CSSHServer::knownHostsLine(const std::string& hostKeyType) const
{
    const std::string key = readFile(hostKeyFile(hostKeyType).string() + ".pub");
    return "[127.0.0.1]:" + std::to_string(m_port) + " " + key.substr(0, key.find('\n'));
}

std::string CSSHServer::fingerprint(const std::string& hostKeyType) const
{
    const CProcessRun run({.arguments = {"ssh-keygen", "-lf", hostKeyFile(hostKeyType)}, .package = "openssh-client"});
    const size_t start = run.output().find("SHA256:");
    if (run.exitStatus() != 0 || start == std::string::npos)
        throw std::runtime_error("ssh-keygen fails: " + run.errors());
    return run.output().substr(start, run.output().find(' ', start) - start);
}

std::filesystem::path CSSHServer::hostKeyFile(const std::string& hostKeyType) const
{
    return m_folder.path() / ("host-key-" + hostKeyType);
}

std::filesystem::path CSSHServer::root() const
{
    return m_folder.path() / "root";
}

std::string CSSHServer::log() const
{
    return m_process->log();
}

std::unique_ptr<CServerProcess> CSSHServer::start(const std::vector<std::string>& hostKeyTypes, Access access)
{
    makeSystemFolder();
    std::string hostKeys;
    for (const std::string& type : hostKeyTypes) {
        makeKey(hostKeyFile(type), type);
        hostKeys += "HostKey " + hostKeyFile(type).string() + "\n";
    }
    makeKey(privateKeyFile(), "ed25519");
    m_folder.write("root/digits.txt", "0123456789");
    const auto settingsFor = [this, &hostKeys, access](unsigned short port) {
        const std::map<std::string, std::string> values{{"FOLDER", m_folder.path()}, {"PORT", std::to_string(port)},
            {"HOST_KEYS", hostKeys}, {"SFTP", access == Access::ReadOnly ? "internal-sftp -R" : "internal-sftp"}};
        const std::filesystem::path configuration
            = m_folder.write("sshd.conf", expandConfiguration("sshd.conf", values));
        return CServerProcess::CSettings{.arguments = {"/usr/sbin/sshd", "-D", "-e", "-f", configuration},
            .package = "openssh-server",
            .logFile = m_folder.path() / "output.log"};
    };
    return CServerProcess::startOnFreePort(settingsFor, "Server listening on 127.0.0.1 port ", m_port);
}

} // namespace support
