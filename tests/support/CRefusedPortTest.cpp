#include "tests/support/CRefusedPort.h"

#include "tests/support/CScriptedServer.h"
#include "tests/support/loopback.h"

#include <gtest/gtest.h>

namespace {

TEST(CRefusedPortTest, refusesConnections)
{
    const support::CRefusedPort refused;
    EXPECT_FALSE(support::connectToLoopback(refused.getPort()));
    EXPECT_EQ(refused.url("/x"), "http://127.0.0.1:" + std::to_string(refused.getPort()) + "/x");
}

TEST(CRefusedPortTest, aListenerDoesNotRefuse)
{
    const support::CScriptedServer server;
    EXPECT_TRUE(support::connectToLoopback(server.getPort()));
}

} // namespace
