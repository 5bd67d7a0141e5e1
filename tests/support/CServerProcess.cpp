#include "tests/support/CServerProcess.h"

#include "tests/support/files.h"
#include "tests/support/loopback.h"
#include "tests/support/systemError.h"

#include <fcntl.h>
#include <stdexcept>

namespace support {

using namespace std::chrono_literals;

namespace {

constexpr auto readyLimit = 15s;
constexpr auto pollInterval = 20ms;
constexpr int portAttempts = 5;

CChildProcess::CSettings childSettings(const CServerProcess::CSettings& settings, int log)
{
    return {.arguments = settings.arguments,
        .package = settings.package,
        .environment = settings.environment,
        .inheritedDescriptors = settings.inheritedDescriptors,
        .output = log,
        .errors = log};
}

CDescriptor openLog(const std::filesystem::path& file)
{
    const int flags = O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC;
    return CDescriptor(checked(open(file.c_str(), flags, 0600), "log file"));
}

unsigned short freePort()
{
    return portOf(bindToLoopback().get());
}

} // namespace

CServerProcess::CServerProcess(const CSettings& settings)
    : m_settings(settings)
    , m_process(childSettings(settings, openLog(settings.logFile).get()))
{
}

CServerProcess::~CServerProcess()
{
    stop();
}

pid_t CServerProcess::getPid() const
{
    return m_process.getPid();
}

std::string CServerProcess::log() const
{
    return readFile(m_settings.logFile);
}

void CServerProcess::waitUntilConnectable(unsigned short port)
{
    waitUntil([port] { return static_cast<bool>(connectToLoopback(port)); }, "accepted no connection");
}

void CServerProcess::waitUntilLogged(std::string_view text)
{
    const auto isLogged = [this, text] { return log().find(text) != std::string::npos; };
    waitUntil(isLogged, "did not log '" + std::string(text) + "'");
}

void CServerProcess::waitUntil(const std::function<bool()>& isReady, const std::string& failure)
{
    const auto end = std::chrono::steady_clock::now() + readyLimit;
    while (!isReady()) {
        if (m_process.waitForEnd(pollInterval) && !isReady())
            fail("ended with status " + std::to_string(*m_process.exitStatus()));
        if (std::chrono::steady_clock::now() >= end)
            fail(failure + " within 15 s");
    }
}

void CServerProcess::stop()
{
    m_process.stop(m_settings.stopLimit);
}

void CServerProcess::kill()
{
    m_process.kill();
}

std::unique_ptr<CServerProcess> CServerProcess::startOnFreePort(
    const std::function<CSettings(unsigned short port)>& settingsFor, std::string_view readyText, unsigned short& port)
{
    for (int attempt = 1;; ++attempt) {
        port = freePort();
        auto server = std::make_unique<CServerProcess>(settingsFor(port));
        try {
            server->waitUntilLogged(readyText);
            return server;
        } catch (const std::runtime_error&) {
            if (attempt == portAttempts || server->log().find("already in use") == std::string::npos)
                throw;
        }
    }
}

void CServerProcess::fail(const std::string& what) const
{
    throw std::runtime_error(
        m_settings.arguments[0] + " (Debian package " + m_settings.package + ") " + what + "; its log: " + log());
}

} // namespace support
