#pragma once

#include "tests/support/CDescriptor.h"
#include "tests/support/CServerProcess.h"
#include "tests/support/CTemporaryFolder.h"

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace support {

/// A real S3 store on free ports of 127.0.0.1: a Ceph cluster of one monitor and some storage daemons, which keep
/// everything in memory, with one gateway and two users. Used by one thread at a time, see CChildProcess for the thread
/// that starts it.
class CCephServer {
public:
    struct CSettings {
        /// One to ten. Each of them has a copy of each object. Of two or more one may die: requests then wait for about
        /// a tenth of a second and go on.
        int storageDaemons = 1;

        /// What each of them can hold, in bytes; it is taken as it is needed. Nothing that is removed or replaced gives
        /// its room back before collectGarbage().
        long long storageBytes = 4LL << 30;
    };

    /// Blocks until the gateway serves: half a second with one storage daemon, one and a half with three, on an idle
    /// machine.
    /// @throws std::runtime_error if it cannot be started
    explicit CCephServer(const CSettings& settings);
    CCephServer();
    CCephServer(const CCephServer&) = delete;
    CCephServer& operator=(const CCephServer&) = delete;

    /// Kills all the daemons.
    ~CCephServer();

    /// @return "127.0.0.1:port" for HTTP; a bucket may stand in front of "s3.localhost:port"
    std::string host() const;

    /// @return "127.0.0.1:port" for HTTPS with the server certificate of CTestCertificates, also with a bucket
    std::string tlsHost() const;

    unsigned short getPort() const;

    /// The user who owns the buckets. The secret contains "/" and "+".
    std::string accessKeyId() const;
    std::string secretAccessKey() const;

    /// A user who may not see those buckets.
    std::string otherAccessKeyId() const;
    std::string otherSecretAccessKey() const;

    /// Makes an empty bucket that belongs to the first user.
    /// @param name three letters at least
    /// @throws std::runtime_error with the gateway's answer if that fails
    void makeBucket(const std::string& name);

    /// Gives the room of objects that were removed or replaced back. Blocks until that is done.
    /// @throws std::runtime_error with the reason if that fails
    void collectGarbage() const;

    /// Kills a storage daemon at once. Nothing happens the second time.
    /// @param index from zero
    /// @throws std::out_of_range
    void killStorageDaemon(int index);

    /// @return what the gateway has logged so far, with a line for each request: its user, method, path and status
    std::string log() const;

    /// Blocks until the gateway's log contains the text. A line may come later than the answer that it is about.
    /// @throws std::runtime_error with the log if 15 seconds have passed
    void waitUntilLogged(std::string_view text) const;

private:
    void writeConfiguration() const;
    void writeKeyring() const;
    void makeCluster() const;
    void startDaemons();
    void makeUser(const std::string& name, const std::string& accessKeyId, const std::string& secretAccessKey) const;
    std::unique_ptr<CServerProcess> startDaemon(const std::string& program, const std::string& name) const;
    /// @return what the program wrote
    std::string run(std::vector<std::string> arguments) const;
    std::filesystem::path configurationFile() const;

    CTemporaryFolder m_folder;
    const int m_storageDaemonCount;
    const long long m_storageBytes;
    CDescriptor m_monitorSocket;
    CDescriptor m_httpSocket;
    CDescriptor m_httpsSocket;
    std::unique_ptr<CServerProcess> m_monitor;
    std::vector<std::unique_ptr<CServerProcess>> m_storageDaemons;
    std::unique_ptr<CServerProcess> m_gateway;
};

} // namespace support
