#include "tests/support/CProFTPDServer.h"

#include "tests/support/curlFTP.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using support::CProcessRun;
using support::CProFTPDServer;
using support::curlFTP;
using Security = support::IFTPServer::Security;

namespace {

TEST(CProFTPDServerTest, demandsTLSWhereItIsOffered)
{
    const CProFTPDServer server({.security = Security::Explicit});
    const CProcessRun run = curlFTP(server, {"--no-ssl-reqd", server.url("/digits.txt")});
    EXPECT_EQ(run.exitStatus(), 67) << run.errors();
    EXPECT_EQ(run.output(), "");
}

TEST(CProFTPDServerTest, demandsTLSOnDataConnections)
{
    const CProFTPDServer server({.security = Security::Explicit});
    const CProcessRun run = curlFTP(server, {"-Q", "PROT C", server.url("/digits.txt")});
    EXPECT_EQ(run.exitStatus(), 21) << run.errors();
    EXPECT_EQ(run.output(), "");
}

TEST(CProFTPDServerTest, refusesDataConnectionsWithoutTheSession)
{
    const CProFTPDServer server({.security = Security::Explicit});
    const CProcessRun run = curlFTP(server, {"--no-sessionid", server.url("/digits.txt")});
    EXPECT_EQ(run.exitStatus(), 18) << run.errors();
    EXPECT_EQ(run.output(), "");
}

TEST(CProFTPDServerTest, takesDataConnectionsWithoutTheSessionIfTold)
{
    const CProFTPDServer server({.security = Security::Explicit, .requiresSessionReuse = false});
    const CProcessRun run = curlFTP(server, {"--no-sessionid", server.url("/digits.txt")});
    EXPECT_EQ(run.output(), "0123456789") << run.errors();
}

} // namespace
