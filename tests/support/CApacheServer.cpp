#include "tests/support/CApacheServer.h"

#include "tests/support/CRawClient.h"
#include "tests/support/configuration.h"
#include "tests/support/files.h"
#include "tests/support/isRoot.h"
#include "tests/support/loopback.h"
#include "tests/support/openSSLError.h"

#include <openssl/evp.h>

#include <array>
#include <cstdio>
#include <map>
#include <stdexcept>

namespace support {

namespace {

const char* const apacheUser = "www-data";

std::string md5(const std::string& text)
{
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    size_t size = 0;
    checkOpenSSL(EVP_Q_digest(nullptr, "MD5", nullptr, text.data(), text.size(), digest.data(), &size), "MD5");
    std::string hex(2 * size, '0');
    for (size_t i = 0; i < size; ++i)
        std::snprintf(&hex[2 * i], 3, "%02x", unsigned{digest[i]});
    return hex;
}

} // namespace

CApacheServer::CApacheServer()
    : m_process(start())
{
}

unsigned short CApacheServer::getPort() const
{
    return m_port;
}

std::string CApacheServer::url(std::string_view path) const
{
    return loopbackURL("http", m_port, path);
}

std::filesystem::path CApacheServer::root() const
{
    return m_folder.path() / "root";
}

std::vector<std::string> CApacheServer::accessLog() const
{
    CRawClient client(m_port);
    client.send("GET /log-barrier HTTP/1.0\r\n\r\n");
    if (!client.readToEnd().starts_with("HTTP/1.1 404"))
        throw std::runtime_error("Apache does not answer; its log: " + m_process->log());
    return splitLines(m_folder.read("access.log"));
}

void CApacheServer::makeFiles() const
{
    m_folder.write("root/digest/digits.txt", "0123456789");
    m_folder.write("digest-passwords", "user:digest:" + md5("user:digest:secret") + "\n");
    std::filesystem::create_directory(m_folder.path() / "locks");
    if (!isRoot())
        return;
    std::filesystem::permissions(m_folder.path(), std::filesystem::perms{0755});
    giveToUser(root(), apacheUser);
    giveToUser(m_folder.path() / "locks", apacheUser);
}

std::unique_ptr<CServerProcess> CApacheServer::start()
{
    makeFiles();
    const std::string user = std::string("User ") + apacheUser + "\nGroup " + apacheUser;
    const auto settingsFor = [&](unsigned short port) {
        const std::map<std::string, std::string> values{{"USER", isRoot() ? user : ""}, {"FOLDER", m_folder.path()},
            {"MODULES", "/usr/lib/apache2/modules"}, {"PORT", std::to_string(port)}};
        const std::filesystem::path configuration
            = m_folder.write("apache.conf", expandConfiguration("apache.conf", values));
        return CServerProcess::CSettings{.arguments = {"/usr/sbin/apache2", "-DFOREGROUND", "-f", configuration},
            .package = "apache2-bin",
            .logFile = m_folder.path() / "output.log"};
    };
    return CServerProcess::startOnFreePort(settingsFor, "resuming normal operations", m_port);
}

} // namespace support
