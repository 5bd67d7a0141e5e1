#include "tests/support/CCephServer.h"

#include "tests/support/CProcessRun.h"
#include "tests/support/CRawClient.h"
#include "tests/support/CTestCertificates.h"
#include "tests/support/configuration.h"
#include "tests/support/files.h"
#include "tests/support/loopback.h"
#include "tests/support/signedS3Path.h"

#include <algorithm>
#include <map>
#include <stdexcept>

namespace support {

namespace {

std::string newUUID()
{
    return readFile("/proc/sys/kernel/random/uuid").substr(0, 36);
}

} // namespace

CCephServer::CCephServer()
    : CCephServer(CSettings())
{
}

CCephServer::CCephServer(const CSettings& settings)
    : m_storageDaemonCount(settings.storageDaemons)
    , m_storageBytes(settings.storageBytes)
    , m_monitorSocket(reserveOnLoopback())
    , m_httpSocket(reserveOnLoopback())
    , m_httpsSocket(reserveOnLoopback())
{
    writeConfiguration();
    writeKeyring();
    makeCluster();
    startDaemons();
}

/// Their data goes with the folder: nobody has to end in order.
CCephServer::~CCephServer()
{
    m_gateway->kill();
    for (const auto& daemon : m_storageDaemons)
        daemon->kill();
    m_monitor->kill();
}

std::string CCephServer::host() const
{
    return "127.0.0.1:" + std::to_string(getPort());
}

std::string CCephServer::tlsHost() const
{
    return "127.0.0.1:" + std::to_string(portOf(m_httpsSocket.get()));
}

unsigned short CCephServer::getPort() const
{
    return portOf(m_httpSocket.get());
}

std::string CCephServer::accessKeyId() const
{
    return "FIRSTUSERSACCESSKEY1";
}

std::string CCephServer::secretAccessKey() const
{
    return "first/secret+of/forty+characters/0123456";
}

std::string CCephServer::otherAccessKeyId() const
{
    return "OTHERUSERSACCESSKEY2";
}

std::string CCephServer::otherSecretAccessKey() const
{
    return "other/secret+of/forty+characters/6543210";
}

void CCephServer::makeBucket(const std::string& name)
{
    CRawClient client(getPort());
    client.send("PUT " + signedS3Path("PUT", "/" + name, accessKeyId(), secretAccessKey())
        + " HTTP/1.1\r\nHost: " + host() + "\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
    const std::string answer = client.readToEnd();
    if (!answer.starts_with("HTTP/1.1 200 "))
        throw std::runtime_error("there is no bucket " + name + ": " + answer);
}

void CCephServer::collectGarbage() const
{
    run({"radosgw-admin", "gc", "process", "--include-all"});
}

void CCephServer::killStorageDaemon(int index)
{
    m_storageDaemons.at(static_cast<size_t>(index))->kill();
}

std::string CCephServer::log() const
{
    return m_gateway->log();
}

void CCephServer::waitUntilLogged(std::string_view text) const
{
    m_gateway->waitUntilLogged(text);
}

void CCephServer::writeConfiguration() const
{
    const CTestCertificates& certificates = CTestCertificates::get();
    const std::map<std::string, std::string> values{
        {"CLUSTER", newUUID()},
        {"FOLDER", m_folder.path()},
        {"MONITOR_PORT", std::to_string(portOf(m_monitorSocket.get()))},
        {"HTTP_PORT", std::to_string(getPort())},
        {"HTTPS_PORT", std::to_string(portOf(m_httpsSocket.get()))},
        {"STORAGE_BYTES", std::to_string(m_storageBytes)},
        {"COPIES", std::to_string(m_storageDaemonCount)},
        {"COPIES_NEEDED", std::to_string(std::max(1, m_storageDaemonCount - 1))},
        {"CERTIFICATE", certificates.serverCertificate()},
        {"KEY", certificates.serverKey()},
    };
    m_folder.write("ceph.conf", expandConfiguration("ceph.conf", values));
}

/// One key for all the daemons, who may do everything.
void CCephServer::writeKeyring() const
{
    std::vector<std::string> names{"mon.", "client.admin", "client.rgw.a"};
    for (int i = 0; i < m_storageDaemonCount; ++i)
        names.push_back("osd." + std::to_string(i));
    const std::string key = run({"ceph-authtool", "--gen-print-key"});
    std::string keyring;
    for (const std::string& name : names)
        keyring += "[" + name + "]\nkey = " + key + "caps mon = allow *\ncaps osd = allow *\n";
    m_folder.write("keyring", keyring);
}

/// Makes the first maps of the cluster, with all storage daemons in them, and everybody's empty store.
void CCephServer::makeCluster() const
{
    const std::string monitors = m_folder.path() / "monmap";
    const std::string daemons = m_folder.path() / "osdmap";
    const std::string address = "[v2:127.0.0.1:" + std::to_string(portOf(m_monitorSocket.get())) + "]";
    run({"monmaptool", "--create", "--addv", "a", address, monitors});
    run({"osdmaptool", "--createsimple", std::to_string(m_storageDaemonCount), daemons});
    run({"ceph-mon", "-i", "a", "--mkfs", "--monmap", monitors, "--osdmap", daemons});
    for (int i = 0; i < m_storageDaemonCount; ++i) {
        std::filesystem::create_directory(m_folder.path() / ("osd." + std::to_string(i)));
        run({"ceph-osd", "-i", std::to_string(i), "--mkfs", "--no-mon-config"});
    }
}

/// The zone keeps all kinds of data in one pool: each pool more takes up to a second to get ready, some of them not
/// before the first bucket and the first object are made.
void CCephServer::startDaemons()
{
    m_monitor = startDaemon("ceph-mon", "mon.a");
    m_monitor->waitUntilConnectable(portOf(m_monitorSocket.get()));
    for (int i = 0; i < m_storageDaemonCount; ++i)
        m_storageDaemons.push_back(startDaemon("ceph-osd", "osd." + std::to_string(i)));
    for (const auto& daemon : m_storageDaemons)
        daemon->waitUntilLogged("state: booting -> active");
    run({"radosgw-admin", "zone", "set", "--rgw-zone", "default", "--infile", serverFile("ceph-zone.json")});
    makeUser("first", accessKeyId(), secretAccessKey());
    makeUser("other", otherAccessKeyId(), otherSecretAccessKey());
    m_gateway = startDaemon("radosgw", "client.rgw.a");
    for (const CDescriptor* socket : {&m_httpSocket, &m_httpsSocket})
        m_gateway->waitUntilConnectable(portOf(socket->get()));
}

void CCephServer::makeUser(
    const std::string& name, const std::string& accessKeyId, const std::string& secretAccessKey) const
{
    run({"radosgw-admin", "user", "create", "--uid", name, "--display-name", name, "--access-key", accessKeyId,
        "--secret", secretAccessKey});
}

std::unique_ptr<CServerProcess> CCephServer::startDaemon(const std::string& program, const std::string& name) const
{
    return std::make_unique<CServerProcess>(
        CServerProcess::CSettings{.arguments = {"/usr/bin/" + program, "-f", "-n", name, "-c", configurationFile()},
            .package = program,
            .logFile = m_folder.path() / (name + ".log")});
}

std::string CCephServer::run(std::vector<std::string> arguments) const
{
    arguments.insert(arguments.end(), {"-c", configurationFile()});
    const CProcessRun process({.arguments = arguments, .package = "ceph-mon ceph-osd radosgw"});
    if (process.exitStatus() != 0)
        throw std::runtime_error(arguments[0] + " fails: " + process.errors());
    return process.output();
}

std::filesystem::path CCephServer::configurationFile() const
{
    return m_folder.path() / "ceph.conf";
}

} // namespace support
