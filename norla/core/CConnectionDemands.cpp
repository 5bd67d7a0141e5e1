#include "norla/core/CConnectionDemands.h"

#include "norla/core/CEasyHandle.h"
#include "norla/core/CRequestURL.h"

namespace norla {

namespace {

constexpr bool isTextForSSH(CURLoption option) noexcept
{
    return option == CURLOPT_SSH_KNOWNHOSTS || option == CURLOPT_SSH_HOST_PUBLIC_KEY_MD5
        || option == CURLOPT_SSH_HOST_PUBLIC_KEY_SHA256;
}

} // namespace

CConnectionDemands::CConnectionDemands(CEasyHandle& handle)
    : m_handle(handle)
    , m_tls(handle)
{
}

void CConnectionDemands::noticeText(CURLoption option, const std::string& bytes)
{
    if (isTextForSSH(option))
        m_ssh[option] = bytes;
}

void CConnectionDemands::noticePointer(CURLoption option, const void* value)
{
    if (!value && (isTextForSSH(option) || option == CURLOPT_SSH_HOSTKEYFUNCTION))
        m_ssh.erase(option);
    else if (value && isTextForSSH(option))
        m_ssh[option] = static_cast<const char*>(value);
}

void CConnectionDemands::forgetOptions() noexcept
{
    m_tls.forgetOptions();
    m_isFreshBySelf = false;
    m_ssh.clear();
    m_trust.clear();
}

void CConnectionDemands::begin(const CRequestURL& url, bool isManaged)
{
    m_tls.begin();
    const bool isFresh = needsNewSSHConnection(url, isManaged) || needsNewTLSConnection(url, isManaged);
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
    if (!url.isSSH())
        return false;
    if (isManaged)
        return !m_ssh.empty();
    m_hasOtherSSHConnections = m_hasOtherSSHConnections || (m_ownSSH && *m_ownSSH != m_ssh);
    m_ownSSH = m_ssh;
    return m_hasOtherSSHConnections;
}

// libcurl compares whom two connections believe only where a connection begins with TLS, not where it is upgraded.
bool CConnectionDemands::needsNewTLSConnection(const CRequestURL& url, bool isManaged)
{
    if (!m_tls.isUpgraded(url))
        return false;
    if (isManaged)
        return !m_trust.empty();
    m_hasOtherTLSConnections = m_hasOtherTLSConnections || (m_ownTrust && *m_ownTrust != m_trust);
    m_ownTrust = m_trust;
    return m_hasOtherTLSConnections;
}

void CConnectionDemands::setFresh(bool fresh)
{
    m_handle.setNumber(CURLOPT_FRESH_CONNECT, fresh || m_tls.isFreshConnectSet());
    m_isFreshBySelf = fresh;
}

} // namespace norla
