// The example mail, run as a person runs it.
#include "kx/text/hex.h"
#include "tests/live/exampleRun.h"
#include "tests/support/CEximServer.h"
#include "tests/support/CSMTPServer.h"
#include "tests/support/CTemporaryFolder.h"
#include "tests/support/CTestCertificates.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace {

using support::CProcessRun;
using support::CSMTPServer;

/// Prints a message as Python reads it: its fields, then type, file name and content of each part.
constexpr const char* reader = R"(
import email, email.policy, sys
message = email.message_from_bytes(sys.stdin.buffer.read(), policy=email.policy.default)
print(message["From"], message["To"], message["Subject"], sep="|")
print(*(part.get_content_type() for part in message.walk()))
for part in message.walk():
    if not part.is_multipart():
        print(part.get_filename(), part.get_payload(decode=True).hex())
)";

std::string readByPython(const std::string& message)
{
    const CProcessRun run({.arguments = {"/usr/bin/python3", "-c", reader},
        .package = "python3",
        .input = message,
        .environment = {"PYTHONIOENCODING=utf-8"}});
    return run.output() + run.errors();
}

std::string hexOf(const std::string& bytes)
{
    return kx::hexEncode(bytes).toUTF8();
}

/// What is printed when the command line is wrong.
std::string refusal(const std::string& reason)
{
    return "mail: " + reason + "\nTry 'mail --help'.\n";
}

class MailExampleTest : public testing::Test {
protected:
    CProcessRun mail(unsigned short port, std::vector<std::string> words,
        CProcessRun::Terminal terminal = CProcessRun::Terminal::None)
    {
        words.insert(words.begin(), {"mail", "--ca", support::CTestCertificates::get().caFile()});
        words.push_back("127.0.0.1:" + std::to_string(port));
        return live::run(
            {.arguments = std::move(words), .environment = {"MAIL_PASSWORD=" + m_password}, .terminal = terminal});
    }

    std::string m_password = "secret";
    support::CTemporaryFolder m_folder;
};

TEST_F(MailExampleTest, sendsTextHTMLAndFiles)
{
    std::string bytes;
    for (int byte = 0; byte < 256; ++byte)
        bytes += static_cast<char>(byte);
    const auto file = m_folder.write("all \"bytes\".bin", bytes).string();
    const auto empty = m_folder
                           .write("l\xC3\xA4"
                                  "er + leer.txt",
                               "")
                           .string();
    const support::CEximServer server(support::CEximServer::Authentication::Demanded);
    const auto result = mail(server.getPort(),
        {"--user", "user", "--from", "a@x.example", "--to", "b@x.example", "--to", "c@x.example", "--subject",
            "Gr\xC3\xBC\xC3\x9F"
            "e",
            "--text", "the text \xE2\x82\xAC", "--html", "<p>the text</p>", "--attach", file, "--attach", empty});
    EXPECT_EQ(result.exitStatus(), 0) << result.errors();
    const auto messages = server.waitForMessages(2);
    EXPECT_EQ(result.errors(), std::to_string(messages[0].size()) + " bytes sent\n");
    EXPECT_EQ(readByPython(messages[0]),
        "a@x.example|b@x.example, c@x.example|Gr\xC3\xBC\xC3\x9F"
        "e\n"
        "multipart/mixed multipart/alternative text/plain text/html application/octet-stream application/octet-stream\n"
        "None "
            + hexOf("the text \xE2\x82\xAC") + "\nNone " + hexOf("<p>the text</p>") + "\nall \"bytes\".bin "
            + hexOf(bytes)
            + "\nl\xC3\xA4"
              "er + leer.txt \n");
    EXPECT_EQ(messages[1], messages[0]);
    EXPECT_NE(server.log().find(" X=TLS"), std::string::npos) << server.log();
    EXPECT_NE(server.log().find(" from <a@x.example> for b@x.example c@x.example\n"), std::string::npos);
}

TEST_F(MailExampleTest, sendsNoMorePartsThanNeeded)
{
    const CSMTPServer server;
    const std::vector<std::string> start
        = {"--security", "unencrypted", "--from", "a@x.example", "--to", "b@x.example"};
    for (const std::vector<std::string>& body :
        {std::vector<std::string>{"--text", "a"}, {"--html", "<b>"}, {"--attach", m_folder.write("f", "c").string()}}) {
        std::vector<std::string> words = start;
        words.insert(words.end(), body.begin(), body.end());
        EXPECT_EQ(mail(server.getPort(), words).exitStatus(), 0);
    }
    const auto messages = server.messages();
    ASSERT_EQ(messages.size(), 3u);
    EXPECT_EQ(readByPython(messages[0].body), "a@x.example|b@x.example|\ntext/plain\nNone 61\n");
    EXPECT_EQ(readByPython(messages[1].body), "a@x.example|b@x.example|\ntext/html\nNone 3c623e\n");
    EXPECT_EQ(readByPython(messages[2].body),
        "a@x.example|b@x.example|\nmultipart/mixed text/plain application/octet-stream\nNone \nf 63\n");
}

TEST_F(MailExampleTest, speaksImplicitTLS)
{
    const CSMTPServer server(
        {.security = CSMTPServer::Security::Implicit, .authentication = CSMTPServer::Authentication::Demanded});
    const auto result = mail(
        server.getPort(), {"--security", "ssl", "--user", "user", "--from", "a@x.example", "--to", "b@x.example"});
    EXPECT_EQ(result.exitStatus(), 0) << result.errors();
    EXPECT_EQ(server.messages().at(0).user, "user");
}

TEST_F(MailExampleTest, tellsNoPasswordToAServerThatNobodyKnows)
{
    const CSMTPServer server(
        {.security = CSMTPServer::Security::StartTLS, .authentication = CSMTPServer::Authentication::Demanded});
    const std::string place = "127.0.0.1:" + std::to_string(server.getPort());
    for (const std::vector<std::string>& words : {std::vector<std::string>{"mail", "--check", "--user", "user", place},
             {"mail", "--user", "user", "--from", "a@x.example", "--to", "b@x.example", place}}) {
        const auto result = live::run({.arguments = words, .environment = {"MAIL_PASSWORD=secret"}});
        EXPECT_EQ(result.exitStatus(), 1);
        EXPECT_NE(result.errors().find("certificate"), std::string::npos) << result.errors();
    }
    EXPECT_TRUE(server.messages().empty());
}

TEST_F(MailExampleTest, showsItsProgressOnATerminal)
{
    const CSMTPServer server;
    const auto file = m_folder.write("big", std::string(1 << 20, 'x')).string();
    const auto result = mail(server.getPort(),
        {"--security", "unencrypted", "--from", "a@x.example", "--to", "b@x.example", "--attach", file},
        CProcessRun::Terminal::Errors);
    EXPECT_NE(result.errors().find("\r[#"), std::string::npos) << result.errors();
    EXPECT_NE(result.errors().find("] 100 %"), std::string::npos) << result.errors();
}

TEST_F(MailExampleTest, checksTheServerAndSendsNothing)
{
    const CSMTPServer server(
        {.security = CSMTPServer::Security::StartTLS, .authentication = CSMTPServer::Authentication::Demanded});
    const auto ready = mail(server.getPort(), {"--check", "--user", "user"});
    EXPECT_EQ(ready.errors(), "the server is ready\n");
    EXPECT_EQ(ready.exitStatus(), 0);
    m_password = "wrong";
    const auto refused = mail(server.getPort(), {"--check", "--user", "user"});
    EXPECT_EQ(refused.errors(),
        "mail: 127.0.0.1: Login denied (response code: smtp 535)\n"
        "  535 5.7.8 Authentication credentials invalid\n");
    EXPECT_EQ(refused.exitStatus(), 1);
    EXPECT_TRUE(server.messages().empty());
}

TEST_F(MailExampleTest, tellsWhatTheServerSaid)
{
    const support::CEximServer server;
    const auto result
        = mail(server.getPort(), {"--security", "unencrypted", "--from", "a@x.example", "--to", "reject@x.example"});
    EXPECT_EQ(result.errors(),
        "mail: 127.0.0.1: Failed sending data to the peer: RCPT failed: 550 (response code: smtp 550)\n"
        "  550 5.1.1 No such recipient\n");
    EXPECT_EQ(result.exitStatus(), 1);
}

// libcurl's goodbye is answered, and the failure of TLS is not the server's.
TEST_F(MailExampleTest, doesNotTakeTheServersGoodbyeForItsRefusal)
{
    const CSMTPServer server(
        {.security = CSMTPServer::Security::StartTLS, .replies = {{"STARTTLS", "220 Ready to start TLS"}}});
    const auto failed = mail(server.getPort(), {"--from", "a@x.example", "--to", "b@x.example"});
    EXPECT_EQ(failed.exitStatus(), 1);
    EXPECT_TRUE(failed.errors().starts_with("mail: ")) << failed.errors();
    EXPECT_EQ(failed.errors().find("\n"), failed.errors().size() - 1) << failed.errors();
}

TEST_F(MailExampleTest, refusesLineEndsInWhatGoesOutAsItIs)
{
    for (const std::string option : {"--from", "--to", "--subject", "--user"}) {
        for (const std::string value : {"a\r\nb", "a\nb", "a\rb"}) {
            std::vector<std::string> words{option, value};
            for (const std::string other : {"--from", "--to"}) {
                if (other != option)
                    words.insert(words.end(), {other, "b@x.example"});
            }
            const auto result = mail(1, words);
            EXPECT_EQ(result.errors(), refusal("the value of " + option + " must not have a line end"));
            EXPECT_EQ(result.exitStatus(), 2);
        }
    }
    EXPECT_EQ(live::runLightly({"mail", "--check", "local\nhost:25"}).errors(),
        refusal("HOST:PORT must not have a line end"));
}

struct CIncompleteRow {
    const char* name;
    std::vector<std::string> words;
    const char* error;
};

class IncompleteMailTest : public MailExampleTest, public testing::WithParamInterface<CIncompleteRow> {};

TEST_P(IncompleteMailTest, isNotSent)
{
    const CSMTPServer server;
    std::vector<std::string> words = GetParam().words;
    words.insert(words.end(), {"--security", "unencrypted"});
    const auto result = mail(server.getPort(), words);
    EXPECT_EQ(result.errors(), refusal(GetParam().error));
    EXPECT_EQ(result.exitStatus(), 2);
    EXPECT_TRUE(server.messages().empty());
}

INSTANTIATE_TEST_SUITE_P(All, IncompleteMailTest,
    testing::ValuesIn(std::vector<CIncompleteRow>{
        {"noSender", {"--to", "b@x.example"}, "a mail needs a sender (--from)"},
        {"emptySender", {"--from", "", "--to", "b@x.example"}, "option '--from' needs a value: ADDRESS"},
        {"noRecipient", {"--from", "a@x.example"}, "a mail needs a recipient (--to)"},
        {"emptyRecipient", {"--from", "a@x.example", "--to", "b@x.example", "--to="},
            "option '--to' needs a value: ADDRESS"},
    }),
    [](const testing::TestParamInfo<CIncompleteRow>& row) { return row.param.name; });

TEST_F(MailExampleTest, sendsNothingWhenAnAttachmentCannotBeRead)
{
    const CSMTPServer server;
    const std::string folder = m_folder.path();
    for (const auto& [file, reason] : {std::pair<std::string, std::string>{folder, "Is a directory"},
             {"/nowhere/file", "No such file or directory"}}) {
        const auto result = mail(server.getPort(),
            {"--security", "unencrypted", "--from", "a@x.example", "--to", "b@x.example", "--attach", file});
        EXPECT_EQ(result.errors(), "mail: The file '" + file + "' cannot be read: " + reason + ".\n");
        EXPECT_EQ(result.exitStatus(), 3);
    }
    EXPECT_TRUE(server.messages().empty());
}

TEST_F(MailExampleTest, aFileNameAddsNoFields)
{
    const CSMTPServer server;
    const std::string name = "a\nX-Injected: 1\n\nb.txt";
    const auto file = m_folder.write(name, "content").string();
    const auto result = mail(server.getPort(),
        {"--security", "unencrypted", "--from", "a@x.example", "--to", "b@x.example", "--attach", file});
    EXPECT_EQ(result.exitStatus(), 0) << result.errors();
    const std::string message = server.messages().at(0).body;
    EXPECT_EQ(message.find("X-Injected: "), std::string::npos) << message;
    EXPECT_NE(readByPython(message).find("\n" + name + ' ' + hexOf("content")), std::string::npos)
        << readByPython(message);
}

TEST_F(MailExampleTest, wantsAHostAndAPort)
{
    for (const auto& [place, error] : {std::pair<std::string, std::string>{"localhost", "no HOST:PORT: 'localhost'"},
             {"localhost:0", "PORT is no whole number from 1 to 65535: '0'"},
             {"localhost:65536", "PORT is no whole number from 1 to 65535: '65536'"},
             {"localhost:x", "PORT is no whole number from 1 to 65535: 'x'"}}) {
        const auto result = live::runLightly({"mail", "--check", place});
        EXPECT_EQ(result.errors(), refusal(error));
        EXPECT_EQ(result.exitStatus(), 2);
    }
}

} // namespace
