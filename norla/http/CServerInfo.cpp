#include "norla/http/CServerInfo.h"

#include "kx/threads/CMutexLock.h"
#include "norla/http/CHTTPServerHeader.h"

namespace norla {

namespace {

bool hasVersion(const CHTTPServerHeader& header, const kx::String& product)
{
    const auto found = header.getProducts().find(product);
    return found != header.getProducts().end() && !found->second.isEmpty();
}

} // namespace

CServerInfo::~CServerInfo() = default;

kx::String CServerInfo::getServerHeader() const
{
    const kx::CMutexLock lock(m_mutex);
    return m_serverHeader;
}

bool CServerInfo::isGetBroken() const
{
    const kx::CMutexLock lock(m_mutex);
    return m_getBroken;
}

bool CServerInfo::isPutBroken() const
{
    const kx::CMutexLock lock(m_mutex);
    return m_putBroken;
}

bool CServerInfo::areGetRangesBroken() const
{
    const kx::CMutexLock lock(m_mutex);
    return m_getRangesBroken;
}

void CServerInfo::updateFromHeaders(const kx::TMap<kx::String, kx::String>& headers)
{
    const kx::CMutexLock lock(m_mutex);
    const auto server = headers.find("server");
    if (m_serverHeader.isEmpty() && server != headers.end())
        m_serverHeader = server->second;
    if (m_serverHeader.isEmpty())
        return;
    // WebDAV servers on Python's own HTTP server answer ranges wrongly.
    const CHTTPServerHeader header(m_serverHeader);
    if (hasVersion(header, "DAV") && hasVersion(header, "Python"))
        m_getRangesBroken = true;
}

} // namespace norla
