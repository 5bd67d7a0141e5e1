#include "tests/support/CPostfixServer.h"

#include "tests/support/CTestCertificates.h"
#include "tests/support/configuration.h"
#include "tests/support/files.h"
#include "tests/support/loopback.h"
#include "tests/support/packages.h"

#include <chrono>
#include <map>
#include <pwd.h>
#include <stdexcept>
#include <unistd.h>

namespace support {

namespace {

const char* const postfixPackage = "postfix";

/// Postfix serves as a user of its own, who may not be root. Debian has this one on every machine.
const char* const postfixUser = "daemon";

/// Postfix is started by root only: whoever else runs the test does it in a user namespace, where there is no other
/// user.
bool isInNamespace()
{
    return geteuid() != 0;
}

std::string postfixUserId()
{
    const passwd* const user = getpwnam(postfixUser);
    if (!user)
        throw std::runtime_error(std::string("there is no user ") + postfixUser);
    return std::to_string(user->pw_uid);
}

std::filesystem::path masterProgram()
{
    return packageFile(postfixPackage, "usr/lib/postfix/sbin/master");
}

/// What all programs of the server need in their environment, also those that the first one starts.
std::vector<std::string> environment()
{
    std::vector<std::string> variables{"LD_LIBRARY_PATH=" + masterProgram().parent_path().parent_path().string()};
    if (isInNamespace())
        variables.push_back(std::string("LD_PRELOAD=") + NORLA_TEST_IDENTITY_PRELOAD);
    return variables;
}

/// As the configuration has it: a path may have blanks.
std::string inBraces(const std::vector<std::string>& variables)
{
    std::string text;
    for (const std::string& variable : variables)
        text += "{" + variable + "} ";
    return text;
}

/// unshare itself must not see what is preloaded.
std::vector<std::string> command(const std::filesystem::path& folder)
{
    std::vector<std::string> arguments;
    if (isInNamespace())
        arguments = {"unshare", "--map-root-user"};
    arguments.emplace_back("/usr/bin/env");
    for (const std::string& variable : environment())
        arguments.push_back(variable);
    arguments.insert(arguments.end(), {masterProgram(), "-d", "-c", folder});
    return arguments;
}

} // namespace

CPostfixServer::CPostfixServer()
    : m_process(start())
{
}

unsigned short CPostfixServer::getPort() const
{
    return m_port;
}

std::string CPostfixServer::url() const
{
    return loopbackURL("smtp", m_port, "");
}

std::vector<std::string> CPostfixServer::waitForMessages(size_t count) const
{
    m_process->waitUntil([this, count] { return storedMessages().size() >= count; },
        "did not store " + std::to_string(count) + " messages");
    return storedMessages();
}

std::string CPostfixServer::log() const
{
    return m_process->log();
}

void CPostfixServer::waitUntilLogged(std::string_view text) const
{
    m_process->waitUntilLogged(text);
}

/// A file that is here is complete: it was renamed into this folder.
std::vector<std::string> CPostfixServer::storedMessages() const
{
    std::vector<std::string> messages;
    for (const auto& entry : std::filesystem::directory_iterator(m_folder.path() / "mail/new"))
        messages.push_back(readFile(entry.path()));
    return messages;
}

void CPostfixServer::makeFiles() const
{
    const CTestCertificates& certificates = CTestCertificates::get();
    copy_file(certificates.serverCertificate(), m_folder.path() / "server.pem");
    copy_file(certificates.serverKey(), m_folder.path() / "server.key");
    for (const char* folder : {"data", "mail/cur", "mail/new", "mail/tmp"})
        create_directories(m_folder.path() / folder);
    for (const char* queue : {"active", "bounce", "corrupt", "defer", "deferred", "flush", "hold", "incoming", "pid",
             "private", "public", "saved", "trace"})
        create_directories(m_folder.path() / "spool" / queue);
    m_folder.write("mail.log", "");
}

void CPostfixServer::configure() const
{
    const std::filesystem::path daemons = masterProgram().parent_path();
    const std::map<std::string, std::string> values{
        {"FOLDER", m_folder.path()},
        {"COMMANDS", packageFile(postfixPackage, "usr/sbin/postfix").parent_path()},
        {"DAEMONS", daemons},
        {"LIBRARIES", daemons.parent_path()},
        {"USER", postfixUser},
        {"USER_ID", postfixUserId()},
        {"ENVIRONMENT", inBraces(environment())},
        {"PORT", std::to_string(m_port)},
    };
    m_folder.write("master.cf", expandConfiguration("postfix-master.cf", values));
    const auto main = m_folder.write("main.cf", expandConfiguration("postfix-main.cf", values));
    // What was written just now Postfix takes for unfinished, and waits.
    last_write_time(main, std::filesystem::file_time_type::clock::now() - std::chrono::minutes(1));
}

std::unique_ptr<CServerProcess> CPostfixServer::start()
{
    const CDescriptor reserved = reserveOnLoopback();
    m_port = portOf(reserved.get());
    makeFiles();
    configure();
    if (!isInNamespace())
        giveToUser(m_folder.path(), postfixUser);
    auto server = std::make_unique<CServerProcess>(CServerProcess::CSettings{
        .arguments = command(m_folder.path()), .package = postfixPackage, .logFile = m_folder.path() / "mail.log"});
    server->waitUntilLogged("daemon started");
    return server;
}

} // namespace support
