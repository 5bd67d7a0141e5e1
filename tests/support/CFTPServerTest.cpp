#include "tests/support/CFTPServer.h"

#include "tests/support/CTestCertificates.h"
#include "tests/support/files.h"
#include "tests/support/runCurl.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using support::CFTPServer;
using support::CProcessRun;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;

namespace {

CProcessRun curl(std::vector<std::string> arguments)
{
    const std::string authority = support::CTestCertificates::get().caFile();
    arguments.insert(arguments.begin(), {"-u", "user:secret", "--cacert", authority});
    return support::runCurl(arguments);
}

/// A download, a listing and an upload, in this order.
void expectTransfers(const CFTPServer& server, const std::string& scheme, const std::vector<std::string>& options)
{
    const auto run = [&](std::vector<std::string> arguments, std::string_view path) {
        arguments.insert(arguments.end(), options.begin(), options.end());
        arguments.push_back(server.url(path, scheme));
        const CProcessRun result = curl(arguments);
        EXPECT_EQ(result.exitStatus(), 0) << result.errors();
        return result.output();
    };
    EXPECT_EQ(run({}, "/digits.txt"), "0123456789");
    EXPECT_THAT(run({"-X", "MLSD"}, "/"), HasSubstr("size=10;type=file;"));
    run({"--ftp-create-dirs", "-T", server.root() / "digits.txt"}, "/new/digits.txt");
    EXPECT_EQ(support::readFile(server.root() / "new/digits.txt"), "0123456789");
    EXPECT_THAT(server.commands(), Contains("STOR digits.txt"));
}

TEST(CFTPServerTest, transfersInTheClear)
{
    const CFTPServer server;
    expectTransfers(server, "ftp", {});
    EXPECT_THAT(server.commands(), Contains("USER user"));
    EXPECT_THAT(server.commands(), Contains("PASS secret"));
    EXPECT_THAT(server.commands(), Contains("RETR digits.txt"));
}

TEST(CFTPServerTest, transfersAfterAuthTLS)
{
    const CFTPServer server(CFTPServer::Security::Explicit);
    expectTransfers(server, "ftp", {"--ssl-reqd"});
    EXPECT_THAT(server.commands(), Contains("AUTH SSL"));
    EXPECT_THAT(server.commands(), Contains("PROT P"));
}

TEST(CFTPServerTest, transfersWithoutTLSWhereItIsOnlyOffered)
{
    const CFTPServer server(CFTPServer::Security::Explicit);
    expectTransfers(server, "ftp", {});
    EXPECT_THAT(server.commands(), Not(Contains("AUTH SSL")));
}

TEST(CFTPServerTest, transfersThroughImplicitTLS)
{
    const CFTPServer server(CFTPServer::Security::Implicit);
    expectTransfers(server, "ftps", {});
    EXPECT_THAT(server.commands(), Contains("PROT P"));
}

TEST(CFTPServerTest, refusesAWrongPasswordAtOnce)
{
    const CFTPServer server;
    EXPECT_EQ(curl({"-u", "user:wrong", server.url("/digits.txt")}).exitStatus(), 67);
}

} // namespace
