// What programs of today want of every transfer.

#include "norla/core/CNetRequestRooms.h"

#include <cstdlib>

namespace norla {

namespace {

CNetRequest::Path usersKnownHosts()
{
    const char* const home = std::getenv("HOME");
    if (!home)
        return "/dev/null"; // which knows none
    return CNetRequest::Path::fromBytes(home) / CNetRequest::Path(".ssh/known_hosts");
}

void verifyTLS(CNetRequest& request)
{
    for (const CURLoption version : {CURLOPT_SSLVERSION, CURLOPT_PROXY_SSLVERSION})
        request.setOptionInt(version, CURL_SSLVERSION_TLSv1_2);
    for (const CURLoption issuer : {CURLOPT_SSL_VERIFYPEER, CURLOPT_PROXY_SSL_VERIFYPEER})
        request.setOptionInt(issuer, 1);
    for (const CURLoption host : {CURLOPT_SSL_VERIFYHOST, CURLOPT_PROXY_SSL_VERIFYHOST})
        request.setOptionInt(host, 2);
}

} // namespace

void CNetRequest::setSafeDefaults()
{
    setSafeDefaults(CSafeDefaults{});
}

void CNetRequest::setSafeDefaults(const CSafeDefaults& defaults)
{
    m_rooms->redirects.setRules(defaults.redirectsStaySafe, defaults.secretsStayWithTheirHost);
    if (defaults.maxRedirects >= 0)
        setOptionInt(CURLOPT_MAXREDIRS, defaults.maxRedirects);
    if (defaults.verifyTLS && !m_rooms->tls.isSet())
        verifyTLS(*this);
    if (defaults.verifySSH && !m_rooms->ssh.isSet() && !m_rooms->demands.wantsSSHHosts())
        setSSHKnownHostsPath(usersKnownHosts());
    m_rooms->receiveLimits.set(defaults.maxReceiveBuffer, defaults.maxHeaders);
    m_rooms->response.takeBareLineFeeds(defaults.judgeByProtocol);
    m_rooms->safety = defaults;
}

} // namespace norla
