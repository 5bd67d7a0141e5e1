#include "tests/support/CSSHServer.h"

#include "tests/support/CProcessRun.h"
#include "tests/support/CTemporaryFolder.h"
#include "tests/support/files.h"
#include "tests/support/runCurl.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using support::CProcessRun;
using support::CSSHServer;
using testing::HasSubstr;

namespace {

CProcessRun curl(const CSSHServer& server, const std::filesystem::path& key, std::vector<std::string> arguments)
{
    const std::vector<std::string> login{
        "-u", server.userName() + ":", "--key", key, "--pubkey", server.publicKeyFile()};
    arguments.insert(arguments.begin(), login.begin(), login.end());
    return support::runCurl(arguments);
}

TEST(CSSHServerTest, transfersByKey)
{
    const CSSHServer server;
    const std::string digits = (server.root() / "digits.txt").string();
    EXPECT_EQ(curl(server, server.privateKeyFile(), {"-k", server.url(digits)}).output(), "0123456789");
    const std::string upload = (server.root() / "upload.txt").string();
    EXPECT_EQ(curl(server, server.privateKeyFile(), {"-k", "-T", digits, server.url(upload)}).exitStatus(), 0);
    EXPECT_EQ(support::readFile(upload), "0123456789");
    EXPECT_THAT(server.log(), HasSubstr("Accepted publickey for " + server.userName()));
}

TEST(CSSHServerTest, refusesAnotherKey)
{
    const CSSHServer server;
    const CSSHServer other;
    const CProcessRun run = curl(server, other.privateKeyFile(), {"-k", server.url("/etc/hostname")});
    EXPECT_EQ(run.exitStatus(), 67) << run.errors();
}

TEST(CSSHServerTest, isKnownByItsHostKey)
{
    const CSSHServer server;
    const support::CTemporaryFolder folder;
    const std::string knownHosts = folder.write("known-hosts", server.knownHostsLine());
    const CProcessRun run({.arguments
        = {"sftp", "-b", "-", "-P", std::to_string(server.getPort()), "-i", server.privateKeyFile(), "-o",
            "UserKnownHostsFile=" + knownHosts, "-o", "StrictHostKeyChecking=yes", server.userName() + "@127.0.0.1"},
        .package = "openssh-client",
        .input = "get " + (server.root() / "digits.txt").string() + " " + (folder.path() / "copy").string() + "\n"});
    EXPECT_EQ(run.exitStatus(), 0) << run.errors();
    EXPECT_EQ(folder.read("copy"), "0123456789");
}

} // namespace
