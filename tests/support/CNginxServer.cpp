#include "tests/support/CNginxServer.h"

#include "tests/support/CRawClient.h"
#include "tests/support/CTestCertificates.h"
#include "tests/support/configuration.h"
#include "tests/support/files.h"
#include "tests/support/loopback.h"

#include <map>
#include <stdexcept>
#include <unistd.h>

namespace support {

CNginxServer::CNginxServer()
    : m_process(start())
{
    m_process->waitUntilLogged("start worker process ");
}

std::string CNginxServer::url(std::string_view path) const
{
    return loopbackURL("http", m_ports[Plain], path);
}

std::string CNginxServer::httpsURL(std::string_view path) const
{
    return loopbackURL("https", m_ports[Secure], path);
}

std::string CNginxServer::wrongHostURL(std::string_view path) const
{
    return loopbackURL("https", m_ports[WrongHost], path);
}

std::string CNginxServer::expiredURL(std::string_view path) const
{
    return loopbackURL("https", m_ports[Expired], path);
}

std::string CNginxServer::mutualURL(std::string_view path) const
{
    return loopbackURL("https", m_ports[Mutual], path);
}

std::string CNginxServer::oldTLSURL(std::string_view path) const
{
    return loopbackURL("https", m_ports[OldTLS], path);
}

std::string CNginxServer::impatientURL(std::string_view path) const
{
    return loopbackURL("https", m_ports[Impatient], path);
}

unsigned short CNginxServer::getPort() const
{
    return m_ports[Plain];
}

unsigned short CNginxServer::getHTTPSPort() const
{
    return m_ports[Secure];
}

std::filesystem::path CNginxServer::root() const
{
    return m_folder.path() / "root";
}

std::string CNginxServer::big(std::uintmax_t size) const
{
    const std::string name = "big-" + std::to_string(size) + ".bin";
    writeFile(root() / name, "");
    std::filesystem::resize_file(root() / name, size);
    return "/" + name;
}

std::vector<std::string> CNginxServer::accessLog() const
{
    CRawClient client(m_ports[Plain]);
    client.send("GET /log-barrier HTTP/1.0\r\n\r\n");
    if (!client.readToEnd().starts_with("HTTP/1.1 204"))
        throw std::runtime_error("nginx does not answer; its log: " + m_process->log());
    return splitLines(m_folder.read("access.log"));
}

std::string CNginxServer::lastAccess() const
{
    const std::vector<std::string> lines = accessLog();
    return lines.empty() ? std::string() : lines.back();
}

void CNginxServer::writeFiles() const
{
    const char* const digits = "0123456789";
    for (const char* file : {"digits.txt", "noranges/digits.txt", "private/digits.txt"})
        writeFile(root() / file, digits);
    writeFile(root() / "slow.bin", std::string(200'000, 's'));
    writeFile(root() / "gzip/text.txt", std::string(10'000, 'g'));
    std::filesystem::create_directories(root() / "dav");
    m_folder.write("passwords", "user:{PLAIN}secret\n");
}

void CNginxServer::writeConfiguration() const
{
    const CTestCertificates& certificates = CTestCertificates::get();
    const std::map<std::string, std::string> values{
        {"USER", geteuid() == 0 ? "user root;" : ""},
        {"FOLDER", m_folder.path()},
        {"HTTP_PORT", std::to_string(m_ports[Plain])},
        {"HTTPS_PORT", std::to_string(m_ports[Secure])},
        {"WRONG_HOST_PORT", std::to_string(m_ports[WrongHost])},
        {"EXPIRED_PORT", std::to_string(m_ports[Expired])},
        {"MUTUAL_PORT", std::to_string(m_ports[Mutual])},
        {"OLD_TLS_PORT", std::to_string(m_ports[OldTLS])},
        {"IMPATIENT_PORT", std::to_string(m_ports[Impatient])},
        {"CA_CERTIFICATE", certificates.caFile()},
        {"SERVER_CERTIFICATE", certificates.serverCertificate()},
        {"SERVER_KEY", certificates.serverKey()},
        {"WRONG_HOST_CERTIFICATE", certificates.wrongHostCertificate()},
        {"WRONG_HOST_KEY", certificates.wrongHostKey()},
        {"EXPIRED_CERTIFICATE", certificates.expiredCertificate()},
        {"EXPIRED_KEY", certificates.expiredKey()},
    };
    for (const char* file : {"nginx.conf", "nginx-locations.conf"})
        m_folder.write(file, expandConfiguration(file, values));
}

/// The sockets are ours until nginx has them, so that nobody else can take their ports.
std::unique_ptr<CServerProcess> CNginxServer::start()
{
    std::array<CDescriptor, ListenerCount> listeners;
    std::vector<int> descriptors;
    std::string variable = "NGINX=";
    for (size_t i = 0; i < listeners.size(); ++i) {
        listeners[i] = listenOnLoopback();
        m_ports[i] = portOf(listeners[i].get());
        descriptors.push_back(listeners[i].get());
        variable += std::to_string(descriptors.back()) + ";";
    }
    writeFiles();
    writeConfiguration();
    const std::string folder = m_folder.path();
    return std::make_unique<CServerProcess>(CServerProcess::CSettings{
        .arguments = {"/usr/sbin/nginx", "-p", folder, "-c", folder + "/nginx.conf", "-e", "stderr"},
        .package = "nginx-light",
        .logFile = m_folder.path() / "output.log",
        .environment = {variable},
        .inheritedDescriptors = descriptors});
}

} // namespace support
