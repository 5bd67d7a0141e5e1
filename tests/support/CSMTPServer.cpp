#include "tests/support/CSMTPServer.h"

#include "tests/support/CTestCertificates.h"
#include "tests/support/configuration.h"
#include "tests/support/files.h"
#include "tests/support/loopback.h"

#include <algorithm>
#include <filesystem>
#include <iterator>

namespace support {

namespace {

CSMTPServer::CMessage readMessage(std::filesystem::path file)
{
    CSMTPServer::CMessage message;
    message.body = readFile(file);
    message.from = readFile(file.replace_extension("from"));
    message.recipients = splitLines(readFile(file.replace_extension("recipients")));
    message.user = readFile(file.replace_extension("user"));
    message.isSecure = readFile(file.replace_extension("security")) == "TLS";
    return message;
}

const char* nameOf(CSMTPServer::Security security)
{
    switch (security) {
    case CSMTPServer::Security::StartTLS:
        return "starttls";
    case CSMTPServer::Security::Implicit:
        return "implicit";
    default:
        return "none";
    }
}

const char* nameOf(CSMTPServer::Authentication authentication)
{
    switch (authentication) {
    case CSMTPServer::Authentication::Offered:
        return "offered";
    case CSMTPServer::Authentication::Demanded:
        return "demanded";
    default:
        return "none";
    }
}

std::vector<std::string> argumentsFor(const CSMTPServer::CSettings& settings)
{
    const CTestCertificates& certificates = CTestCertificates::get();
    std::vector<std::string> arguments{"--security", nameOf(settings.security), "--certificate",
        certificates.serverCertificate(), "--key", certificates.serverKey(), "--authentication",
        nameOf(settings.authentication), "--disconnect-after", std::to_string(settings.disconnectAfter)};
    for (const auto& [start, reply] : settings.replies)
        arguments.insert(arguments.end(), {"--reply", start, reply});
    return arguments;
}

} // namespace

CSMTPServer::CSMTPServer()
    : CSMTPServer(CSettings{})
{
}

CSMTPServer::CSMTPServer(const CSettings& settings)
    : m_settings(settings)
    , m_process(start())
{
    m_process->waitUntilLogged("ready\n");
}

unsigned short CSMTPServer::getPort() const
{
    return m_port;
}

std::string CSMTPServer::url() const
{
    return loopbackURL(m_settings.security == Security::Implicit ? "smtps" : "smtp", m_port, "");
}

std::vector<CSMTPServer::CMessage> CSMTPServer::messages() const
{
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(messageFolder())) {
        if (entry.path().extension() == ".body")
            files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    std::vector<CMessage> messages;
    std::transform(files.begin(), files.end(), std::back_inserter(messages), readMessage);
    return messages;
}

std::filesystem::path CSMTPServer::messageFolder() const
{
    return m_folder.path() / "messages";
}

std::unique_ptr<CServerProcess> CSMTPServer::start()
{
    const CDescriptor listener = listenOnLoopback();
    m_port = portOf(listener.get());
    std::filesystem::create_directory(messageFolder());
    std::vector<std::string> arguments{"/usr/bin/python3", serverFile("smtp_server.py"), "--socket",
        std::to_string(listener.get()), "--messages", messageFolder()};
    const std::vector<std::string> settings = argumentsFor(m_settings);
    arguments.insert(arguments.end(), settings.begin(), settings.end());
    return std::make_unique<CServerProcess>(CServerProcess::CSettings{.arguments = arguments,
        .package = "python3-aiosmtpd",
        .logFile = m_folder.path() / "output.log",
        .inheritedDescriptors = {listener.get()}});
}

} // namespace support
