#include "tests/support/CEximServer.h"

#include "tests/support/CTestCertificates.h"
#include "tests/support/configuration.h"
#include "tests/support/files.h"
#include "tests/support/isRoot.h"
#include "tests/support/loopback.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <stdexcept>
#include <tuple>
#include <unistd.h>

namespace support {

namespace {

/// Exim, started as root, serves as its own user; nobody else may let it change users.
const char* const eximUser = "Debian-exim";

/// @return the ids of the accepted messages in order of arrival: "DATE TIME ID <= SENDER ..."
std::vector<std::string> acceptedIds(const std::string& log)
{
    std::vector<std::string> ids;
    for (const std::string& line : splitLines(log)) {
        const size_t arrow = line.find(" <= ");
        if (arrow != std::string::npos)
            ids.push_back(line.substr(0, arrow).substr(line.rfind(' ', arrow - 1) + 1));
    }
    return ids;
}

/// @return the end of the names that the configuration's maildir_tag gives
std::string idOf(const std::filesystem::path& file)
{
    const std::string name = file.filename();
    return name.substr(name.rfind(',') + 1);
}

} // namespace

CEximServer::CEximServer(Authentication authentication)
    : m_process(start(authentication))
{
}

unsigned short CEximServer::getPort() const
{
    return m_port;
}

unsigned short CEximServer::tlsPort() const
{
    return m_tlsPort;
}

std::string CEximServer::url() const
{
    return loopbackURL("smtp", m_port, "");
}

std::string CEximServer::tlsURL() const
{
    return loopbackURL("smtps", m_tlsPort, "");
}

std::vector<std::string> CEximServer::waitForMessages(size_t count) const
{
    m_process->waitUntil([this, count] { return storedFiles().size() >= count; },
        "did not store " + std::to_string(count) + " messages");
    std::vector<std::string> messages;
    for (const std::filesystem::path& file : storedFiles())
        messages.push_back(readFile(file));
    return messages;
}

std::string CEximServer::log() const
{
    return m_process->log();
}

void CEximServer::waitUntilLogged(std::string_view text) const
{
    m_process->waitUntilLogged(text);
}

/// In order of arrival. A file that is here is complete: it was renamed into this folder.
std::vector<std::filesystem::path> CEximServer::storedFiles() const
{
    const std::filesystem::directory_iterator folder(m_folder.path() / "mail/new");
    std::vector<std::filesystem::path> files;
    std::transform(
        begin(folder), end(folder), std::back_inserter(files), [](const auto& entry) { return entry.path(); });
    const std::vector<std::string> ids = acceptedIds(log());
    const auto position = [&ids](const auto& file) { return std::find(ids.begin(), ids.end(), idOf(file)); };
    std::sort(files.begin(), files.end(), [&](const auto& left, const auto& right) {
        return std::tuple(position(left), left) < std::tuple(position(right), right);
    });
    return files;
}

void CEximServer::makeFiles() const
{
    const CTestCertificates& certificates = CTestCertificates::get();
    copy_file(certificates.serverCertificate(), m_folder.path() / "server.pem");
    copy_file(certificates.serverKey(), m_folder.path() / "server.key");
    for (const char* folder : {"mail/cur", "mail/new", "mail/tmp"})
        create_directories(m_folder.path() / folder);
    m_folder.write("main.log", "");
    if (isRoot())
        giveToUser(m_folder.path(), eximUser);
}

/// It stays with the user who runs the test: Exim refuses a configuration that others may write.
std::filesystem::path CEximServer::writeConfiguration(Authentication authentication) const
{
    const bool demanded = authentication == Authentication::Demanded;
    const std::map<std::string, std::string> values{
        {"USER", isRoot() ? eximUser : std::to_string(geteuid())},
        {"GROUP", isRoot() ? eximUser : std::to_string(getegid())},
        {"FOLDER", m_folder.path()},
        {"PORT", std::to_string(m_port)},
        {"TLS_PORT", std::to_string(m_tlsPort)},
        {"FIRST_CONDITION_OF_SENDERS",
            demanded ? "deny !authenticated = *\n         message = 530 5.7.0 Authentication required" : ""},
    };
    return m_folder.write("exim.conf", expandConfiguration("exim.conf", values));
}

std::unique_ptr<CServerProcess> CEximServer::start(Authentication authentication)
{
    const CDescriptor reserved = reserveOnLoopback();
    const CDescriptor reservedForTLS = reserveOnLoopback();
    m_port = portOf(reserved.get());
    m_tlsPort = portOf(reservedForTLS.get());
    makeFiles();
    const std::filesystem::path configuration = writeConfiguration(authentication);
    auto server = std::make_unique<CServerProcess>(
        CServerProcess::CSettings{.arguments = {"/usr/sbin/exim4", "-C", configuration, "-bdf"},
            .package = "exim4-daemon-light",
            .logFile = m_folder.path() / "main.log"});
    server->waitUntilLogged("listening for SMTP on ");
    return server;
}

} // namespace support
