// How the two sides of an SSH connection prove who they are, with OpenSSH.
#include "norla/async/CAsyncNetRequestThread.h"
#include "norla/core/CSSHOptions.h"
#include "tests/live/liveRequest.h"
#include "tests/support/CProcessRun.h"
#include "tests/support/CSSHServer.h"
#include "tests/support/CTemporaryFolder.h"
#include "tests/support/errorOf.h"
#include "tests/support/pathOf.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>

namespace {

using live::failureOf;
using live::messageOf;
using norla::CSSHHostKey;
using norla::CSSHOptions;
using norla::SSHHostAnswer;
using norla::UnknownSSHHost;
using support::pathOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

/// An agent of OpenSSH that holds nothing at first, for this process.
class CAgent {
public:
    CAgent()
        : m_process({.arguments = {"ssh-agent", "-D", "-a", socket()},
            .package = "openssh-client",
            .logFile = m_folder.path() / "agent.log"})
    {
        m_process.waitUntil([this] { return std::filesystem::exists(socket()); }, "made no socket");
        setenv("SSH_AUTH_SOCK", socket().c_str(), 1);
    }
    CAgent(const CAgent&) = delete;
    CAgent& operator=(const CAgent&) = delete;
    ~CAgent() { unsetenv("SSH_AUTH_SOCK"); }

    void add(const std::filesystem::path& key) const
    {
        const support::CProcessRun run({.arguments = {"ssh-add", "-q", key},
            .package = "openssh-client",
            .environment = {"SSH_AUTH_SOCK=" + socket()}});
        EXPECT_EQ(run.exitStatus(), 0) << run.errors();
    }

private:
    std::string socket() const { return m_folder.path() / "agent"; }

    const support::CTemporaryFolder m_folder;
    support::CServerProcess m_process;
};

class SSHOptionsTest : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        unsetenv("SSH_AUTH_SOCK");
        s_server = std::make_unique<support::CSSHServer>(std::vector<std::string>{"ed25519", "ecdsa"});
        s_another = std::make_unique<support::CSSHServer>();
    }
    static void TearDownTestSuite()
    {
        s_server.reset();
        s_another.reset();
    }

    const support::CSSHServer& server() const { return *s_server; }

    /// What knows the hosts of these lines, and can log in.
    CSSHOptions knowing(const std::string& lines) const
    {
        return {.knownHostsFile = pathOf(m_folder.write("known_hosts", lines)),
            .privateKeyFile = pathOf(server().privateKeyFile())};
    }

    CSSHOptions asking(std::function<SSHHostAnswer(const CSSHHostKey&)> ask) const
    {
        CSSHOptions options = knowing("");
        options.unknownHost = UnknownSSHHost::Ask;
        options.ask = std::move(ask);
        return options;
    }

    CSSHOptions remembering() const
    {
        CSSHOptions options = knowing("");
        options.unknownHost = UnknownSSHHost::Remember;
        return options;
    }

    /// The line that says that the server has a key which is another one's.
    std::string changedLine() const
    {
        const std::string line = s_another->knownHostsLine();
        return hostText() + line.substr(line.find(' '));
    }

    std::string hostText() const { return "[127.0.0.1]:" + std::to_string(server().getPort()); }

    /// As errors name the server.
    std::string title() const { return "the server 127.0.0.1 (port " + std::to_string(server().getPort()) + ") "; }

    void prepare(norla::CNetRequest& request, const CSSHOptions& options) const
    {
        request.setURL(kx::String::fromUTF8(server().url((server().root() / "digits.txt").string())));
        request.setFullRequestTimeout(kx::CTimeSpan::fromSeconds(60));
        request.setUserName(kx::String::fromUTF8(server().userName()));
        request.setSSHOptions(options);
    }

    kx::P<norla::CNetRequest> requestFor(const CSSHOptions& options) const
    {
        auto request = kx::newObj<norla::CNetRequest>();
        prepare(*request, options);
        return request;
    }

    std::string outcomeOf(const CSSHOptions& options) const { return messageOf(*requestFor(options)); }

    /// How a transfer ends that must not succeed, without libcurl's own words.
    std::string reasonOf(const CSSHOptions& options) const
    {
        const auto request = requestFor(options);
        const auto error = failureOf(*request);
        if (!error)
            return "success";
        EXPECT_EQ(error->getCode(), CURLE_PEER_FAILED_VERIFICATION);
        const std::string message = error->getMessage().toUTF8();
        const size_t start = message.find(": ");
        return start == std::string::npos ? message : message.substr(start + 2);
    }

    std::string outcomeBy(norla::CAsyncNetRequestThread& thread, const CSSHOptions& options) const
    {
        const auto request = requestFor(options);
        thread.addRequest(request.get());
        EXPECT_TRUE(request->waitAsyncDone(60'000));
        const auto error = support::errorOf([&request] { request->checkAsyncResult(); });
        return error ? error->getMessage().toUTF8() : "success";
    }

    std::string knownHosts() const { return m_folder.read("known_hosts"); }
    std::string quotedFile() const { return "'" + (m_folder.path() / "known_hosts").string() + "'"; }

    const support::CTemporaryFolder m_folder;
    static std::unique_ptr<support::CSSHServer> s_server;
    static std::unique_ptr<support::CSSHServer> s_another;
};

std::unique_ptr<support::CSSHServer> SSHOptionsTest::s_server;
std::unique_ptr<support::CSSHServer> SSHOptionsTest::s_another;

TEST_F(SSHOptionsTest, believeAKnownServerByEachOfItsKeys)
{
    for (const char* type : {"ed25519", "ecdsa"})
        EXPECT_EQ(outcomeOf(knowing(server().knownHostsLine(type) + "\n")), "success") << type;
}

TEST_F(SSHOptionsTest, believeAServerWhoseNameIsHashed)
{
    for (const char* type : {"ed25519", "ecdsa"}) {
        const CSSHOptions options = knowing("other.example " + s_another->knownHostsLine().substr(hostText().size())
            + "\n" + server().knownHostsLine(type) + "\n");
        const support::CProcessRun run({"ssh-keygen", "-q", "-H", "-f", m_folder.path() / "known_hosts"});
        ASSERT_EQ(run.exitStatus(), 0) << run.errors();
        EXPECT_EQ(outcomeOf(options), "success") << type;
    }
}

TEST_F(SSHOptionsTest, believeAServerByAPattern)
{
    const std::string line = server().knownHostsLine();
    EXPECT_EQ(outcomeOf(knowing("[127.0.0.*]:*" + line.substr(line.find(' ')))), "success");
}

TEST_F(SSHOptionsTest, believeAServerOnAPortThatIsSetApart)
{
    const auto request = requestFor(knowing(server().knownHostsLine() + "\n"));
    request->setURL(kx::String::fromUTF8("sftp://127.0.0.1" + (server().root() / "digits.txt").string()));
    request->setOptionInt(CURLOPT_PORT, server().getPort());
    EXPECT_EQ(messageOf(*request), "success");
    request->setOptionInt(CURLOPT_PORT, 0);
    request->setOptionInt(CURLOPT_FRESH_CONNECT, 1);
    request->setOptionInt64(CURLOPT_PORT, server().getPort());
    EXPECT_EQ(messageOf(*request), "success");
}

TEST_F(SSHOptionsTest, believeNoUnknownServer)
{
    const std::string reason = reasonOf(knowing(""));
    EXPECT_THAT(reason, HasSubstr(title() + "is not known: its key "));
    EXPECT_THAT(reason, HasSubstr(server().fingerprint("ecdsa") + " does not stand in " + quotedFile()));
}

TEST_F(SSHOptionsTest, sendNothingToAnUnknownServer)
{
    const support::CSSHServer fresh;
    CSSHOptions options = knowing("");
    const auto request = requestFor(options);
    request->setURL(kx::String::fromUTF8(fresh.url("/")));
    EXPECT_NE(failureOf(*request), nullptr);
    EXPECT_THAT(fresh.log(), Not(HasSubstr(server().userName())));
}

TEST_F(SSHOptionsTest, believeNobodyWithAChangedKeyWhateverIsSaid)
{
    const std::string expected = title() + "has another key than it is known by: expected ssh-ed25519 "
        + s_another->fingerprint() + ", as " + quotedFile() + " has it, came ssh-ed25519 " + server().fingerprint();
    for (const auto unknown : {UnknownSSHHost::Refuse, UnknownSSHHost::Ask, UnknownSSHHost::Remember}) {
        CSSHOptions options = knowing(changedLine() + "\n");
        options.unknownHost = unknown;
        if (unknown == UnknownSSHHost::Ask)
            options.ask = [](const CSSHHostKey&) { return SSHHostAnswer::Remember; };
        EXPECT_EQ(reasonOf(options), expected);
        EXPECT_EQ(knownHosts(), changedLine() + "\n");
    }
}

TEST_F(SSHOptionsTest, believeNobodyWithARevokedKey)
{
    CSSHOptions options = knowing(server().knownHostsLine() + "\n@revoked * "
        + server().knownHostsLine().substr(server().knownHostsLine().find(' ') + 1) + "\n");
    EXPECT_EQ(reasonOf(options),
        "the key ssh-ed25519 " + server().fingerprint() + " of " + title() + "is revoked in " + quotedFile());
}

TEST_F(SSHOptionsTest, believeTheFingerprintAlone)
{
    CSSHOptions options = knowing("");
    options.fingerprint = kx::String::fromUTF8(server().fingerprint("ed25519"));
    options.hostKeyType = "ssh-ed25519";
    EXPECT_EQ(outcomeOf(options), "success");
    options.fingerprint = kx::String::fromUTF8(s_another->fingerprint());
    EXPECT_EQ(reasonOf(options),
        title() + "has another key: expected " + s_another->fingerprint() + ", came ssh-ed25519 "
            + server().fingerprint());
    options = knowing(server().knownHostsLine() + "\n");
    options.fingerprint = kx::String::fromUTF8(s_another->fingerprint());
    EXPECT_NE(reasonOf(options), "success") << "although the server is known";
}

TEST_F(SSHOptionsTest, askAboutAnUnknownServer)
{
    std::vector<CSSHHostKey> asked;
    const auto ask = [&asked](const CSSHHostKey& key) {
        asked.push_back(key);
        return SSHHostAnswer::AcceptOnce;
    };
    EXPECT_EQ(outcomeOf(asking(ask)), "success");
    ASSERT_EQ(asked.size(), 1U);
    EXPECT_EQ(asked[0].host, "127.0.0.1");
    EXPECT_EQ(asked[0].port, server().getPort());
    EXPECT_EQ(asked[0].type, "ecdsa-sha2-nistp256");
    EXPECT_EQ(asked[0].fingerprint, kx::String::fromUTF8(server().fingerprint("ecdsa")));
    EXPECT_EQ(knownHosts(), "");
}

TEST_F(SSHOptionsTest, askNobodyAboutAKnownServer)
{
    CSSHOptions options = knowing(server().knownHostsLine() + "\n");
    options.unknownHost = UnknownSSHHost::Ask;
    options.ask = [](const CSSHHostKey&) {
        ADD_FAILURE() << "is asked";
        return SSHHostAnswer::Refuse;
    };
    EXPECT_EQ(outcomeOf(options), "success");
}

TEST_F(SSHOptionsTest, takeNoForAnAnswer)
{
    EXPECT_THAT(reasonOf(asking([](const CSSHHostKey&) { return SSHHostAnswer::Refuse; })),
        HasSubstr("is not known: its key "));
    EXPECT_EQ(knownHosts(), "");
}

TEST_F(SSHOptionsTest, rememberWhatWasAnswered)
{
    EXPECT_EQ(outcomeOf(asking([](const CSSHHostKey&) { return SSHHostAnswer::Remember; })), "success");
    EXPECT_THAT(knownHosts(), testing::StartsWith(hostText() + " ecdsa-sha2-nistp256 "));
}

TEST_F(SSHOptionsTest, passOnWhatIsThrownInPlaceOfAnAnswer)
{
    const auto request
        = requestFor(asking([](const CSSHHostKey&) -> SSHHostAnswer { throw kx::CError("Nobody in."); }));
    EXPECT_EQ(messageOf(*request), "Nobody in.");
    request->setSSHOptions(knowing(server().knownHostsLine() + "\n"));
    EXPECT_EQ(messageOf(*request), "success");
}

TEST_F(SSHOptionsTest, rememberAnUnknownServerOnce)
{
    const CSSHOptions options = remembering();
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(outcomeOf(options), "success");
    const std::string line = server().knownHostsLine("ecdsa");
    EXPECT_EQ(knownHosts(), line.substr(0, line.rfind(' ')) + "\n") << "without the comment";
    const support::CProcessRun run({"ssh-keygen", "-F", hostText(), "-f", m_folder.path() / "known_hosts"});
    EXPECT_EQ(run.exitStatus(), 0) << "OpenSSH does not find it";
}

TEST_F(SSHOptionsTest, loseNothingOfTheFileWhenTheyRemember)
{
    const std::string before = "# comment\n@revoked * ssh-rsa AAAA gone\n@cert-authority *.example ssh-rsa AAAA\n"
                               "|1|F1E1KeoE/eEWhi10WpGv4OdiO6Y=|3988QV0VE8wmZL7suNrYQLITLCg= ssh-rsa AAAA x\n\ngarbage";
    CSSHOptions options = knowing(before);
    options.unknownHost = UnknownSSHHost::Remember;
    EXPECT_EQ(outcomeOf(options), "success");
    EXPECT_THAT(knownHosts(), testing::StartsWith(before + "\n" + hostText() + " "));
}

TEST_F(SSHOptionsTest, tellThatTheyCannotRemember)
{
    CSSHOptions options = remembering();
    options.knownHostsFile = pathOf(m_folder.path() / "no/such/file");
    const auto error = failureOf(*requestFor(options));
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getMessage(),
        "The file '" + options.knownHostsFile.toString()
            + "' of known SSH hosts cannot be written: No such file or directory.");
}

TEST_F(SSHOptionsTest, holdInTheBackgroundToo)
{
    const auto thread = kx::newObj<norla::CAsyncNetRequestThread>();
    thread->start();
    EXPECT_EQ(outcomeBy(*thread, knowing(server().knownHostsLine() + "\n")), "success");
    EXPECT_THAT(outcomeBy(*thread, knowing("")), HasSubstr(title() + "is not known: its key "));
    EXPECT_THAT(outcomeBy(*thread, knowing(changedLine() + "\n")), HasSubstr("has another key than it is known by"));
    EXPECT_EQ(outcomeBy(*thread, asking([](const CSSHHostKey&) -> SSHHostAnswer { throw kx::CError("Nobody in."); })),
        "Nobody in.");
    EXPECT_EQ(outcomeBy(*thread, remembering()), "success");
    EXPECT_THAT(knownHosts(), testing::StartsWith(hostText()));
}

TEST_F(SSHOptionsTest, useNoConnectionThatBelievedMore)
{
    const auto request = requestFor(asking([](const CSSHHostKey&) { return SSHHostAnswer::AcceptOnce; }));
    EXPECT_EQ(messageOf(*request), "success");
    request->setSSHOptions(knowing(""));
    EXPECT_NE(messageOf(*request), "success");
}

TEST_F(SSHOptionsTest, useAConnectionAgainThatBelievedTheSame)
{
    const auto request = requestFor(knowing(server().knownHostsLine() + "\n"));
    request->perform();
    prepare(*request, knowing(server().knownHostsLine() + "\n"));
    request->perform();
    EXPECT_EQ(request->getInfoLong(CURLINFO_NUM_CONNECTS), 0);
}

TEST_F(SSHOptionsTest, areGoneAfterAReset)
{
    const auto request = requestFor(knowing(changedLine() + "\n"));
    EXPECT_NE(messageOf(*request), "success");
    request->reset();
    request->setURL(kx::String::fromUTF8(server().url((server().root() / "digits.txt").string())));
    request->setUserName(kx::String::fromUTF8(server().userName()));
    request->setOptionString(CURLOPT_SSH_PRIVATE_KEYFILE, kx::String::fromUTF8(server().privateKeyFile().string()));
    EXPECT_EQ(messageOf(*request), "success") << "which believes everybody";
}

TEST_F(SSHOptionsTest, replaceAFileThatWasSetBefore)
{
    const auto request = requestFor(knowing(server().knownHostsLine() + "\n"));
    request->setSSHKnownHostsPath(pathOf(m_folder.write("empty", "")));
    EXPECT_NE(messageOf(*request), "success");
    request->setSSHOptions(knowing(server().knownHostsLine() + "\n"));
    EXPECT_EQ(messageOf(*request), "success");
}

TEST_F(SSHOptionsTest, logInWithAKeyThatHasAPassphrase)
{
    const auto key = m_folder.path() / "key";
    std::filesystem::copy_file(server().privateKeyFile(), key);
    const support::CProcessRun run({"ssh-keygen", "-q", "-p", "-P", "", "-N", "open sesame", "-f", key});
    ASSERT_EQ(run.exitStatus(), 0) << run.errors();
    CSSHOptions options = knowing(server().knownHostsLine() + "\n");
    options.privateKeyFile = pathOf(key);
    options.passphrase = "open sesame";
    EXPECT_EQ(outcomeOf(options), "success");
    options.passphrase = "guessed wrongly";
    const std::string message = outcomeOf(options);
    EXPECT_THAT(message, HasSubstr("the passphrase is wrong: '" + key.string() + "'"));
    EXPECT_THAT(message, Not(HasSubstr("guessed")));
}

TEST_F(SSHOptionsTest, logInWithAPublicKeyFileBeside)
{
    CSSHOptions options = knowing(server().knownHostsLine() + "\n");
    options.publicKeyFile = pathOf(server().publicKeyFile());
    EXPECT_EQ(outcomeOf(options), "success");
}

TEST_F(SSHOptionsTest, logInByAnAgent)
{
    const CAgent agent;
    CSSHOptions options = knowing(server().knownHostsLine() + "\n");
    options.privateKeyFile = CSSHOptions::Path();
    EXPECT_NE(outcomeOf(options), "success") << "with an agent that has no key";
    agent.add(server().privateKeyFile());
    EXPECT_EQ(outcomeOf(options), "success");
    options.useAgent = false;
    EXPECT_NE(outcomeOf(options), "success");
}

TEST_F(SSHOptionsTest, tellWhichKindOfKeyTheServerDoesNotHave)
{
    CSSHOptions options = knowing("");
    options.hostKeyType = "ecdsa-sha2-nistp521";
    EXPECT_THAT(outcomeOf(options), EndsWith("; the server was asked for its ecdsa-sha2-nistp521 key alone"));
}

} // namespace
