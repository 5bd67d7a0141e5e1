#pragma once

#include "norla/core/CCURLError.h"
#include "norla/ftp/CFTPClient.h"
#include "norla/ftp/CFTPGetInfoResult.h"
#include "tests/live/liveRequest.h"
#include "tests/support/CFTPServer.h"
#include "tests/support/CProFTPDServer.h"
#include "tests/support/CPureFTPdServer.h"
#include "tests/support/CTestCertificates.h"
#include "tests/support/CVsftpdServer.h"
#include "tests/support/errorOf.h"

#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <ostream>
#include <sstream>
#include <string>

namespace live {

using norla::CFTPClient;
using norla::CFTPDirEntry;
using support::IFTPServer;
using Security = IFTPServer::Security;

inline std::unique_ptr<IFTPServer> makePyftpdlib(Security security)
{
    return std::make_unique<support::CFTPServer>(security);
}

inline std::unique_ptr<IFTPServer> makePureFTPd(Security security)
{
    return std::make_unique<support::CPureFTPdServer>(support::CPureFTPdServer::CSettings{.security = security});
}

/// A server that takes TLS data connections of any session. See FTPSessionReuseTest for the others.
template <typename TServer>
std::unique_ptr<IFTPServer> makeLenient(Security security)
{
    return std::make_unique<TServer>(typename TServer::CSettings{.security = security, .requiresSessionReuse = false});
}

template <typename TServer>
std::unique_ptr<IFTPServer> makeStrict(Security security)
{
    return std::make_unique<TServer>(typename TServer::CSettings{.security = security, .requiresSessionReuse = true});
}

struct CServerRow {
    const char* name;
    std::unique_ptr<IFTPServer> (*make)(Security security);
    Security security;
};

inline void PrintTo(const CServerRow& row, std::ostream* out)
{
    *out << row.name;
}

inline CFTPClient::ConnectType connectTypeOf(Security security)
{
    switch (security) {
    case Security::Explicit:
        return CFTPClient::ConnectExplicitTLS;
    case Security::Implicit:
        return CFTPClient::ConnectImplicitTLS;
    case Security::None:
        break;
    }
    return CFTPClient::ConnectUnencrypted;
}

inline kx::String hostOf(const IFTPServer& server)
{
    return kx::String::fromLatin1("127.0.0.1:" + std::to_string(server.getPort()));
}

inline kx::P<CFTPClient> clientFor(const IFTPServer& server, const kx::String& password = "secret")
{
    auto client = kx::newObj<CFTPClient>(hostOf(server), "user", password, connectTypeOf(server.getSecurity()));
    client->setRootCertBundlePath(
        norla::CNetRequest::Path::fromBytes(support::CTestCertificates::get().caFile().native()));
    return client;
}

inline std::string contentOf(const std::filesystem::path& file)
{
    std::ifstream in(file, std::ios::binary);
    return (std::ostringstream() << in.rdbuf()).str();
}

/// What a test needs of one server.
class CSession {
public:
    explicit CSession(const CServerRow& row)
        : m_server(row.make(row.security))
        , m_client(clientFor(*m_server))
    {
    }

    IFTPServer& server() { return *m_server; }
    CFTPClient& client() { return *m_client; }
    norla::CNetRequest& request() { return *m_request; }
    std::filesystem::path onDisk(const std::string& name) const { return m_server->root() / name; }
    bool exists(const std::string& name) const { return std::filesystem::exists(onDisk(name)); }

    void write(const std::string& name, const std::string& content) const
    {
        std::filesystem::create_directories(onDisk(name).parent_path());
        std::ofstream(onDisk(name), std::ios::binary) << content;
    }

    void upload(const kx::String& path, const std::string& content, bool createMissingDirs = false)
    {
        m_client->prepareUploadRequest(
            *m_request, path, content.data(), static_cast<int>(content.size()), createMissingDirs);
        m_request->perform();
    }

    std::string download(const kx::String& path, long long offset = 0, long long length = -1)
    {
        m_client->prepareDownloadRequest(*m_request, path, offset, length);
        m_request->perform();
        return live::bodyOf(*m_request);
    }

    kx::P<CFTPDirEntry> info(const kx::String& path)
    {
        m_client->prepareGetInfoRequest(*m_request, path);
        m_request->perform();
        return norla::CFTPGetInfoResult(*m_request->getResponseInfo()).getEntry();
    }

    void moveFile(const kx::String& from, const kx::String& to, bool createMissingDirs = false)
    {
        m_client->prepareMoveFileRequest(*m_request, from, to, createMissingDirs);
        m_request->perform();
    }

    void moveDir(const kx::String& from, const kx::String& to, bool createMissingDirs = false)
    {
        m_client->prepareMoveDirRequest(*m_request, from, to, createMissingDirs);
        m_request->perform();
    }

    /// Without the directory itself and its parent, which some servers list.
    std::map<kx::String, kx::P<CFTPDirEntry>> list(const kx::String& path)
    {
        const auto listing = m_client->listDir(*m_request, path);
        std::map<kx::String, kx::P<CFTPDirEntry>> entries;
        for (const auto& entry : listing->getEntries()) {
            if (entry->getName() != "." && entry->getName() != "..")
                entries[entry->getName()] = entry;
        }
        return entries;
    }

private:
    const std::unique_ptr<IFTPServer> m_server;
    const kx::P<CFTPClient> m_client;
    const kx::P<norla::CNetRequest> m_request = kx::newObj<norla::CNetRequest>();
};

} // namespace live
