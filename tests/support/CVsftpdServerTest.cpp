#include "tests/support/CVsftpdServer.h"

#include "tests/support/curlFTP.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using support::CProcessRun;
using support::curlFTP;
using support::CVsftpdServer;
using Security = support::IFTPServer::Security;

namespace {

TEST(CVsftpdServerTest, demandsTLSWhereItIsOffered)
{
    const CVsftpdServer server({.security = Security::Explicit});
    const CProcessRun run = curlFTP(server, {"--no-ssl-reqd", server.url("/digits.txt")});
    EXPECT_EQ(run.exitStatus(), 67) << run.errors();
    EXPECT_EQ(run.output(), "");
}

TEST(CVsftpdServerTest, demandsTLSOnDataConnections)
{
    const CVsftpdServer server({.security = Security::Explicit});
    const CProcessRun run = curlFTP(server, {"--no-ssl-reqd", "--ftp-ssl-control", server.url("/digits.txt")});
    EXPECT_EQ(run.exitStatus(), 19) << run.errors();
    EXPECT_EQ(run.output(), "");
}

TEST(CVsftpdServerTest, refusesDataConnectionsWithoutTheSession)
{
    const CVsftpdServer server({.security = Security::Explicit});
    const CProcessRun run = curlFTP(server, {"--no-sessionid", server.url("/digits.txt")});
    EXPECT_EQ(run.exitStatus(), 18) << run.errors();
    EXPECT_EQ(run.output(), "");
}

TEST(CVsftpdServerTest, takesDataConnectionsWithoutTheSessionIfTold)
{
    const CVsftpdServer server({.security = Security::Explicit, .requiresSessionReuse = false});
    const CProcessRun run = curlFTP(server, {"--no-sessionid", server.url("/digits.txt")});
    EXPECT_EQ(run.output(), "0123456789") << run.errors();
}

} // namespace
