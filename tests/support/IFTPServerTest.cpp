// What all FTP servers have in common, each with every kind of security that it has.
#include "tests/support/IFTPServer.h"

#include "tests/support/CFTPServer.h"
#include "tests/support/CProFTPDServer.h"
#include "tests/support/CPureFTPdServer.h"
#include "tests/support/CRawClient.h"
#include "tests/support/CVsftpdServer.h"
#include "tests/support/curlFTP.h"
#include "tests/support/files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>

using support::CProcessRun;
using support::curlFTP;
using support::IFTPServer;
using testing::HasSubstr;
using Security = IFTPServer::Security;

namespace {

template <typename TServer>
std::unique_ptr<IFTPServer> make(Security security)
{
    if constexpr (std::is_constructible_v<TServer, Security>)
        return std::make_unique<TServer>(security);
    else
        return std::make_unique<TServer>(typename TServer::CSettings{.security = security});
}

struct CServerRow {
    const char* name;
    std::unique_ptr<IFTPServer> (*make)(Security security);
    Security security;
    bool knowsMLSD;
};

void PrintTo(const CServerRow& row, std::ostream* out)
{
    *out << row.name;
}

class IFTPServerTest : public testing::TestWithParam<CServerRow> {
protected:
    std::unique_ptr<IFTPServer> m_server = GetParam().make(GetParam().security);
};

INSTANTIATE_TEST_SUITE_P(All, IFTPServerTest,
    testing::Values(CServerRow{"pyftpdlib", make<support::CFTPServer>, Security::None, true},
        CServerRow{"pyftpdlibExplicit", make<support::CFTPServer>, Security::Explicit, true},
        CServerRow{"pyftpdlibImplicit", make<support::CFTPServer>, Security::Implicit, true},
        CServerRow{"ProFTPD", make<support::CProFTPDServer>, Security::None, true},
        CServerRow{"ProFTPDExplicit", make<support::CProFTPDServer>, Security::Explicit, true},
        CServerRow{"ProFTPDImplicit", make<support::CProFTPDServer>, Security::Implicit, true},
        CServerRow{"PureFTPd", make<support::CPureFTPdServer>, Security::None, true},
        CServerRow{"PureFTPdExplicit", make<support::CPureFTPdServer>, Security::Explicit, true},
        CServerRow{"vsftpd", make<support::CVsftpdServer>, Security::None, false},
        CServerRow{"vsftpdExplicit", make<support::CVsftpdServer>, Security::Explicit, false},
        CServerRow{"vsftpdImplicit", make<support::CVsftpdServer>, Security::Implicit, false}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_P(IFTPServerTest, sendsAFileOfItsRoot)
{
    const CProcessRun run = curlFTP(*m_server, {m_server->url("/digits.txt")});
    EXPECT_EQ(run.output(), "0123456789") << run.errors() << m_server->log();
    EXPECT_EQ(run.exitStatus(), 0) << run.errors();
}

TEST_P(IFTPServerTest, storesAFileInANewFolder)
{
    const CProcessRun run = curlFTP(
        *m_server, {"--ftp-create-dirs", "-T", m_server->root() / "digits.txt", m_server->url("/new/digits.txt")});
    EXPECT_EQ(run.exitStatus(), 0) << run.errors() << m_server->log();
    EXPECT_EQ(support::readFile(m_server->root() / "new/digits.txt"), "0123456789");
}

TEST_P(IFTPServerTest, changesWhatTheTestPutThere)
{
    support::writeFile(m_server->root() / "sub/old.txt", "old");
    support::writeFile(m_server->root() / "sub/away.txt", "away");
    const CProcessRun run = curlFTP(
        *m_server, {"-T", m_server->root() / "digits.txt", m_server->url("/sub/old.txt"), "-Q", "-DELE away.txt"});
    EXPECT_EQ(run.exitStatus(), 0) << run.errors() << m_server->log();
    EXPECT_EQ(support::readFile(m_server->root() / "sub/old.txt"), "0123456789");
    EXPECT_FALSE(exists(m_server->root() / "sub/away.txt"));
}

TEST_P(IFTPServerTest, listsByMLSDWhereItIsKnown)
{
    const CProcessRun run = curlFTP(*m_server, {"-X", "MLSD", m_server->url()});
    if (!GetParam().knowsMLSD) {
        EXPECT_EQ(run.exitStatus(), 19) << run.errors();
        return;
    }
    EXPECT_EQ(run.exitStatus(), 0) << run.errors();
    EXPECT_THAT(run.output(), testing::ContainsRegex("type=file;[^\n]*; digits.txt\r?\n"));
}

TEST_P(IFTPServerTest, refusesAWrongPassword)
{
    const CProcessRun run = curlFTP(*m_server, {"-u", m_server->userName() + ":wrong", m_server->url("/digits.txt")});
    EXPECT_EQ(run.exitStatus(), 67) << run.errors();
    EXPECT_EQ(run.output(), "");
}

TEST_P(IFTPServerTest, logsWhatWasTransferred)
{
    curlFTP(*m_server, {m_server->url("/digits.txt")});
    EXPECT_THAT(m_server->log(), HasSubstr("digits.txt"));
}

TEST_P(IFTPServerTest, servesManyClientsAtOnce)
{
    std::vector<std::future<std::string>> downloads;
    for (int i = 0; i < 8; ++i) {
        downloads.push_back(std::async(
            std::launch::async, [this] { return curlFTP(*m_server, {m_server->url("/digits.txt")}).output(); }));
    }
    for (auto& download : downloads)
        EXPECT_EQ(download.get(), "0123456789");
}

TEST_P(IFTPServerTest, endsItsConnectionsWithTheObject)
{
    support::CRawClient client(m_server->getPort());
    if (GetParam().security != Security::Implicit) {
        EXPECT_THAT(client.readUntil("220"), HasSubstr("220"));
    }
    m_server.reset();
    EXPECT_NO_THROW(client.endsWithReset());
}

} // namespace
