#include "norla/core/CConnectionDemands.h"

#include "norla/core/CEasyHandle.h"
#include "norla/core/CRequestURL.h"

namespace norla {

CConnectionDemands::CConnectionDemands(CEasyHandle& handle)
    : m_handle(handle)
    , m_tls(handle)
{
}

void CConnectionDemands::noticeText(CURLoption option, const std::string& bytes)
{
    if (option == CURLOPT_SSH_KNOWNHOSTS || option == CURLOPT_SSH_HOST_PUBLIC_KEY_MD5
        || option == CURLOPT_SSH_HOST_PUBLIC_KEY_SHA256)
        m_ssh[option] = bytes;
}

void CConnectionDemands::forgetOptions() noexcept
{
    m_tls.forgetOptions();
    m_isFreshBySelf = false;
    m_ssh.clear();
}

void CConnectionDemands::begin(const CRequestURL& url, bool isManaged)
{
    m_tls.begin();
    const bool isFresh = needsNewSSHConnection(url, isManaged);
    if (m_isFreshBySelf || isFresh) // the first: of the last transfer
        setFresh(isFresh);
}

void CConnectionDemands::beginAgain()
{
    setFresh(true);
    m_tls.begin();
}

// libcurl does not ask who the server is where it has a connection to it already, made by whomever and believing
// whatever.
bool CConnectionDemands::needsNewSSHConnection(const CRequestURL& url, bool isManaged)
{
    const kx::String scheme = url.getScheme();
    if (scheme != "sftp" && scheme != "scp")
        return false;
    if (isManaged)
        return !m_ssh.empty();
    m_hasOtherSSHConnections = m_hasOtherSSHConnections || (m_ownSSH && *m_ownSSH != m_ssh);
    m_ownSSH = m_ssh;
    return m_hasOtherSSHConnections;
}

void CConnectionDemands::setFresh(bool fresh)
{
    m_handle.setNumber(CURLOPT_FRESH_CONNECT, fresh || m_tls.isFreshConnectSet());
    m_isFreshBySelf = fresh;
}

} // namespace norla
