#include "tests/support/CSMTPServer.h"

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
    return message;
}

} // namespace

CSMTPServer::CSMTPServer()
    : m_process(start())
{
    m_process->waitUntilLogged("ready\n");
}

unsigned short CSMTPServer::getPort() const
{
    return m_port;
}

std::string CSMTPServer::url() const
{
    return loopbackURL("smtp", m_port, "");
}

std::vector<CSMTPServer::CMessage> CSMTPServer::messages() const
{
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(m_folder.path() / "messages")) {
        if (entry.path().extension() == ".body")
            files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    std::vector<CMessage> messages;
    std::transform(files.begin(), files.end(), std::back_inserter(messages), readMessage);
    return messages;
}

std::unique_ptr<CServerProcess> CSMTPServer::start()
{
    const CDescriptor listener = listenOnLoopback();
    m_port = portOf(listener.get());
    const std::filesystem::path messages = m_folder.path() / "messages";
    std::filesystem::create_directory(messages);
    return std::make_unique<CServerProcess>(
        CServerProcess::CSettings{.arguments = {"/usr/bin/python3", serverFile("smtp_server.py"), "--socket",
                                      std::to_string(listener.get()), "--messages", messages},
            .package = "python3-aiosmtpd",
            .logFile = m_folder.path() / "output.log",
            .inheritedDescriptors = {listener.get()}});
}

} // namespace support
