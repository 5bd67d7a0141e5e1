#include "norla/core/CPrerequest.h"

namespace norla {

CPrerequest::CPrerequest(CEasyHandle& handle) noexcept
    : m_calls(handle, CURLOPT_PREREQFUNCTION, CURLOPT_PREREQDATA)
{
}

void CPrerequest::noticePointer(CURLoption option, void* value)
{
    if (m_calls.notice(option, value))
        m_calls.stay();
}

int CPrerequest::callApplications(char* peerIP, char* localIP, int peerPort, int localPort) const
{
    const auto callback = reinterpret_cast<curl_prereq_callback>(m_calls.getFunction());
    return callback ? callback(m_calls.getData(), peerIP, localIP, peerPort, localPort) : CURL_PREREQFUNC_OK;
}

} // namespace norla
