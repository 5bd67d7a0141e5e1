#include "tests/support/CPureFTPdServer.h"

#include "tests/support/curlFTP.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using support::CProcessRun;
using support::CPureFTPdServer;
using support::curlFTP;
using Security = support::IFTPServer::Security;

namespace {

TEST(CPureFTPdServerTest, demandsTLSWhereItIsOffered)
{
    const CPureFTPdServer server({.security = Security::Explicit});
    const CProcessRun run = curlFTP(server, {"--no-ssl-reqd", server.url("/digits.txt")});
    EXPECT_EQ(run.exitStatus(), 28) << run.errors();
    EXPECT_EQ(run.output(), "");
}

TEST(CPureFTPdServerTest, demandsTLSOnDataConnections)
{
    const CPureFTPdServer server({.security = Security::Explicit});
    const CProcessRun run = curlFTP(server, {"--no-ssl-reqd", "--ftp-ssl-control", server.url("/digits.txt")});
    EXPECT_EQ(run.exitStatus(), 19) << run.errors();
    EXPECT_EQ(run.output(), "");
}

TEST(CPureFTPdServerTest, hasNoImplicitTLS)
{
    EXPECT_THROW(CPureFTPdServer({.security = Security::Implicit}), std::runtime_error);
}

} // namespace
