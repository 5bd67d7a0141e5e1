// What programs of today want of every transfer.

#include "norla/core/CNetRequestRooms.h"

namespace norla {

namespace {

void verifyProxies(CNetRequest& request, long leastVersion)
{
    request.setOptionInt(CURLOPT_PROXY_SSLVERSION, static_cast<int>(leastVersion));
    request.setOptionInt(CURLOPT_PROXY_SSL_VERIFYPEER, 1);
    request.setOptionInt(CURLOPT_PROXY_SSL_VERIFYHOST, 2);
}

} // namespace

void CNetRequest::setSafeDefaults()
{
    setSafeDefaults(CSafeDefaults{});
}

void CNetRequest::setSafeDefaults(const CSafeDefaults& defaults)
{
    m_rooms->redirects.setRules(defaults.redirectsStaySafe, defaults.secretsStayWithTheirHost);
    if (defaults.secretsStayWithTheirHost)
        setOptionInt(CURLOPT_UNRESTRICTED_AUTH, 0);
    if (defaults.maxRedirects >= 0)
        setOptionInt(CURLOPT_MAXREDIRS, defaults.maxRedirects);
    if (defaults.verifyTLS) {
        m_rooms->tls.demandProof();
        m_rooms->demands.noticeTLSTrust(m_rooms->tls.getDescription());
        verifyProxies(*this, m_rooms->tls.getLeastProxyVersion());
    }
    if (defaults.verifySSH && !m_rooms->demands.wantsSSHHosts()) {
        m_rooms->ssh.demandProof();
        m_rooms->demands.noticeSSHTrust(m_rooms->ssh.getDescription());
    }
    m_rooms->receiveLimits.set(defaults.maxReceiveBuffer, defaults.maxHeaders);
    m_rooms->response.takeBareLineFeeds(defaults.judgeByProtocol);
    m_rooms->safety = defaults;
}

} // namespace norla
