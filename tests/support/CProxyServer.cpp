#include "tests/support/CProxyServer.h"

#include "tests/support/loopback.h"

#include <utility>

namespace support {

CProxyServer::CProxyServer()
    : m_reservedPort(reserveOnLoopback())
{
}

unsigned short CProxyServer::getPort() const
{
    return portOf(m_reservedPort.get());
}

std::string CProxyServer::host() const
{
    return "127.0.0.1:" + std::to_string(getPort());
}

std::string CProxyServer::log() const
{
    return m_process->log();
}

void CProxyServer::waitUntilLogged(std::string_view text) const
{
    m_process->waitUntilLogged(text);
}

const CTemporaryFolder& CProxyServer::folder() const
{
    return m_folder;
}

std::filesystem::path CProxyServer::logFile() const
{
    return m_folder.path() / "output.log";
}

void CProxyServer::start(const CServerProcess::CSettings& settings, std::string_view readyText)
{
    m_process = std::make_unique<CServerProcess>(settings);
    if (!readyText.empty())
        m_process->waitUntilLogged(readyText);
    m_process->waitUntilConnectable(getPort());
}

} // namespace support
